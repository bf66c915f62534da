#include "tests/doubles/FakeAra.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "tests/doubles/FakeAraCore.h"

namespace tests {

using State = FakeAraCore::State;

FakeAra::FakeAra() : core(std::make_shared<FakeAraCore>()) {
  FakeAraCore::SetCurrent(core);
}

FakeAra::~FakeAra() {
  FakeAraCore::SetCurrent(nullptr);
}

void FakeAra::FailReports() {
  core->With([](State& state) { state.failReports = true; });
}

void FakeAra::FailComponentClient(const std::string& error) {
  core->With([&](State& state) { state.componentError = error; });
}

void FakeAra::RequestDuringCreation(unsigned int sequence, const std::string& requested) {
  core->With([&](State& state) { state.requestDuringCreation = {sequence, requested}; });
}

void FakeAra::FailHealthObjects(const std::string& kind) {
  core->With([&](State& state) { state.failingHealthObject = kind; });
}

void FakeAra::SetCheckpoints(Checkpoints behaviour) {
  core->With([&](State& state) { state.checkpoints = behaviour; });
}

void FakeAra::DuringConfirmations(std::function<void()> action) {
  core->With([&](State& state) { state.inConfirmations = std::move(action); });
}

void FakeAra::RequestState(unsigned int sequence, const std::string& requested) {
  core->RequestState(sequence, requested);
}

bool FakeAra::HasComponentClient() const {
  return core->With([](const State& state) { return state.client != nullptr; });
}

std::vector<std::string> FakeAra::Calls() const {
  return core->With([](const State& state) { return state.calls; });
}

std::vector<std::string> FakeAra::Calls(const std::string& begin) const {
  const auto calls = Calls();
  std::vector<std::string> found;
  std::copy_if(calls.begin(), calls.end(), std::back_inserter(found),
               [&](const std::string& call) { return call.compare(0, begin.size(), begin) == 0; });
  return found;
}

}  // namespace tests
