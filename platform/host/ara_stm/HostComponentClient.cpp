#include "platform/host/ara_stm/HostComponentClient.h"

#include <exception>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "support/WorkerThread.h"

namespace platform_host {

using csc_logging::CSCLogging;
using nlohmann::json;

namespace {

void LogException(const std::string& name, std::uint32_t sequence, const char* reason) {
  CSCLogging::LogError("libara_stm: " + name + " threw an exception at request " +
                       std::to_string(sequence) + ": " + reason);
}

void AddRequest(const json& request, const ControlReply& reply, StateRequests& requests) {
  const auto state = request.find("state");
  if (state == request.end() || !state->is_string()) {
    return reply.Refuse("the request has no \"state\" that is a text");
  }
  requests.Add(state->get<std::string>(), reply);
}

}  // namespace

HostComponentClient::HostComponentClient(const std::string& componentName,
                                         ara::stm::StateChangeHandler stateHandler,
                                         ControlBoard& board,
                                         std::shared_ptr<const void> reachedThrough)
    : connection(std::move(reachedThrough)),
      name(componentName),
      handler(std::move(stateHandler)),
      requests(name),
      part(board.OfferStatus("component", [this] { return requests.Status(); })),
      command(board.OfferCommand("state",
                                 [this](const json& request, const ControlReply& reply) {
                                   AddRequest(request, reply, requests);
                                 })),
      thread(support::StartThread("AraStm", [this] { Run(); })) {}

HostComponentClient::~HostComponentClient() {
  requests.End();
  thread.join();
}

void HostComponentClient::ConfirmState(std::uint32_t sequence, const std::string& state) noexcept {
  try {
    requests.Confirm(sequence, state);
  } catch (const std::exception&) {
    CSCLogging::LogError("libara_stm: a confirmation is lost: out of memory");
  }
}

void HostComponentClient::Run() noexcept {
  while (const auto demanded = requests.Next()) Handle(*demanded);
}

void HostComponentClient::Handle(const StateRequests::Step& demanded) noexcept {
  try {
    try {
      handler(*this, demanded.sequence, demanded.state);
    } catch (const std::exception& error) {
      LogException(name, demanded.sequence, error.what());
    } catch (...) {
      LogException(name, demanded.sequence, "of an unknown kind");
    }
  } catch (const std::exception&) {
    CSCLogging::LogError("libara_stm: a component threw an exception");
  }
}

}  // namespace platform_host
