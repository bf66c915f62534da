#include "platform/host/lumo_connector/ConnectorControl.h"

#include <utility>

namespace lumo_connector {

using nlohmann::json;
using platform_host::ControlBoard;
using platform_host::ControlReply;

namespace {

/// The connection states that there are.
constexpr int kFirstState = 1;
constexpr int kLastState = 4;

const char* NameOf(SessionStatus status) {
  switch (status) {
    case SessionStatus::kFailed:
      return "failed";
    case SessionStatus::kStarted:
      return "started";
    case SessionStatus::kRejected:
      return "rejected";
    case SessionStatus::kStopped:
      break;
  }
  return "stopped";
}

const char* NameOf(TopicRequests::TopicState state) {
  switch (state) {
    case TopicRequests::TopicState::kSubscribed:
      return "subscribed";
    case TopicRequests::TopicState::kRefused:
      return "refused";
    case TopicRequests::TopicState::kWaiting:
      break;
  }
  return "waiting";
}

}  // namespace

ConnectorControl::ConnectorControl(ControlBoard& board, Sources shown)
    : sources(std::move(shown)),
      session(board.OfferStatus("session", [this] { return Session(); })),
      connection(board.OfferStatus("connection", [this] { return Connection(); })),
      broker(board.OfferStatus("broker", [this] { return Broker(); })),
      hold(board.OfferCommand("connection", [this](const json& request, const ControlReply& reply) {
        Hold(request, reply);
      })) {}

json ConnectorControl::Session() const {
  const SessionStatus status = sources.session();
  return {{"status", static_cast<std::uint32_t>(status)}, {"name", NameOf(status)}};
}

json ConnectorControl::Connection() const {
  const auto present = sources.states.Present();
  return {{"state", present.state}, {"held", present.isHeld}};
}

json ConnectorControl::Broker() const {
  const std::string address = sources.brokerAddress();
  if (address.empty()) return nullptr;
  json topics = json::array();
  for (const auto& [topic, state] : sources.requests.Topics()) {
    topics.push_back({{"topic", topic}, {"state", NameOf(state)}});
  }
  return {{"address", address},
          {"connected", sources.requests.IsConnected()},
          {"topics", std::move(topics)}};
}

void ConnectorControl::Hold(const json& request, const ControlReply& reply) const {
  const auto state = request.find("state");
  const bool isAutomatic = state != request.end() && *state == "auto";
  const bool isState = state != request.end() && state->is_number_integer() &&
                       *state >= kFirstState && *state <= kLastState;
  if (isAutomatic) {
    sources.states.Follow();
  } else if (isState) {
    sources.states.Hold(state->get<std::uint8_t>());
  } else {
    return reply.Refuse("\"state\" must be a number from 1 to 4, or \"auto\"");
  }
  reply.Answer(Connection());
}

}  // namespace lumo_connector
