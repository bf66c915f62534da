#include "tests/doubles/FakeAraCore.h"

#include <atomic>
#include <stdexcept>
#include <thread>

#include "ara/exec/ApplicationClient.h"
#include "ara/phm/HealthChannel.h"
#include "ara/phm/Phm_client.h"
#include "ara/phm/SupervisionEntity.h"

namespace tests {
namespace {

using State = FakeAraCore::State;

/// The core of the FakeAra alive.
class CurrentCore {
 public:
  static CurrentCore& OfProcess() {
    static CurrentCore current;
    return current;
  }

  std::shared_ptr<FakeAraCore> Get() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return core;
  }

  void Set(std::shared_ptr<FakeAraCore> newCore) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    core.swap(newCore);
  }

 private:
  support::Mutex mutex;
  std::shared_ptr<FakeAraCore> core GUARDED_BY(mutex);
};

/// One that nobody configured any more: what is left of a test must not reach the next one.
std::shared_ptr<FakeAraCore> MakeFailing() {
  auto core = std::make_shared<FakeAraCore>();
  core->With([](State& state) {
    state.failReports = true;
    state.componentError = "no FakeAra";
    state.checkpoints = FakeAra::Checkpoints::kThrow;
  });
  return core;
}

void MakeHealthObject(const std::string& kind, const std::string& instance) {
  const bool fails = FakeAraCore::Current()->With([&](State& state) {
    state.calls.push_back(kind + " " + instance);
    return state.failingHealthObject == kind;
  });
  if (fails) throw std::runtime_error("no health management");
}

class FakeComponentClient : public ara::stm::ComponentClient {
 public:
  explicit FakeComponentClient(std::shared_ptr<FakeAraCore> fakeCore) : core(std::move(fakeCore)) {}
  ~FakeComponentClient() override { core->EndClient(this); }

  void ConfirmState(std::uint32_t sequence, const std::string& state) noexcept override {
    const auto action = core->With([](const State& all) { return all.inConfirmations; });
    if (action) action();
    core->Record("confirm " + std::to_string(sequence) + " " + state);
  }

 private:
  const std::shared_ptr<FakeAraCore> core;
};

}  // namespace

std::shared_ptr<FakeAraCore> FakeAraCore::Current() {
  auto core = CurrentCore::OfProcess().Get();
  return core == nullptr ? MakeFailing() : core;
}

void FakeAraCore::SetCurrent(std::shared_ptr<FakeAraCore> core) {
  CurrentCore::OfProcess().Set(std::move(core));
}

void FakeAraCore::Record(const std::string& call) {
  With([&](State& all) { all.calls.push_back(call); });
}

void FakeAraCore::RequestState(unsigned int sequence, const std::string& requested) {
  ara::stm::StateChangeHandler handler;
  ara::stm::ComponentClient* client = nullptr;
  {
    const support::MutexLock lock(mutex);
    while (state.handling != nullptr) changed.Wait(mutex);
    if (state.client == nullptr) return;
    handler = state.handler;
    client = state.client;
    state.handling = client;
  }
  std::thread([&] { handler(*client, sequence, requested); }).join();
  const support::MutexLock lock(mutex);
  state.handling = nullptr;
  changed.NotifyAll();
}

void FakeAraCore::EndClient(const ara::stm::ComponentClient* client) {
  const support::MutexLock lock(mutex);
  if (state.client == client) state.client = nullptr;
  while (state.handling == client) changed.Wait(mutex);
  state.calls.emplace_back("component ended");
}

bool FakeAraCore::IsHandling() {
  const support::MutexLock lock(mutex);
  return state.handling != nullptr;
}

}  // namespace tests

namespace ara::exec {

bool ApplicationClient::ReportApplicationState(ApplicationState state) noexcept {
  const bool isRunning = state == ApplicationState::kRunning;
  return tests::FakeAraCore::Current()->With([&](tests::FakeAraCore::State& all) {
    all.calls.emplace_back(isRunning ? "report running" : "report terminating");
    return !all.failReports;
  });
}

}  // namespace ara::exec

namespace ara::stm {

ComponentClientResult createComponentClient(const std::string& name,
                                            StateChangeHandler handler) noexcept {
  const auto core = tests::FakeAraCore::Current();
  core->Record("component " + name);
  const std::string error = core->With([](const tests::FakeAraCore::State& all) -> std::string {
    return all.client != nullptr ? "there is a component client already" : all.componentError;
  });
  if (!error.empty()) return {nullptr, error};
  auto client = std::make_unique<tests::FakeComponentClient>(core);
  const auto request = core->With([&](tests::FakeAraCore::State& all) {
    all.handler = std::move(handler);
    all.client = client.get();
    return std::exchange(all.requestDuringCreation, std::nullopt);
  });
  if (request) {
    const auto isDone = std::make_shared<std::atomic<bool>>(false);
    std::thread([core, request, isDone] {
      core->RequestState(request->first, request->second);
      *isDone = true;
    }).detach();
    while (!core->IsHandling() && !*isDone) std::this_thread::yield();
    // Turns enough for a handler that does not wait for the creation.
    for (int turn = 0; !*isDone && turn < 1000; ++turn) std::this_thread::yield();
  }
  core->Record("component created");
  return {std::move(client), ""};
}

}  // namespace ara::stm

namespace ara::phm {

Phm_client::Phm_client(const std::string& instanceId) : instance(instanceId) {
  tests::MakeHealthObject("client", instanceId);
}

SupervisionEntity::SupervisionEntity(const Phm_client& client) : instance(client.InstanceId()) {
  tests::MakeHealthObject("supervision", instance);
}

HealthChannel::HealthChannel(const Phm_client& client) {
  tests::MakeHealthObject("channel", client.InstanceId());
}

void SupervisionEntity::CheckpointReached(std::uint16_t supervisionEntityId,
                                          std::uint16_t checkpointId) {
  using Checkpoints = tests::FakeAra::Checkpoints;
  const auto behaviour = tests::FakeAraCore::Current()->With([&](tests::FakeAraCore::State& all) {
    all.calls.push_back("checkpoint " + std::to_string(supervisionEntityId) + " " +
                        std::to_string(checkpointId));
    return all.checkpoints;
  });
  if (behaviour == Checkpoints::kThrow) throw std::runtime_error("no health management");
  if (behaviour == Checkpoints::kThrowWhatIsNoError) throw 1;
}

}  // namespace ara::phm
