#include <utility>

#include "lumo_connector/LumoConnector.h"
#include "tests/doubles/FakeConnectorCore.h"

namespace lumo_connector {

namespace {

/// How the connector calls a look-up of something that the configuration lacks.
constexpr std::int32_t kNotConfigured = 2;

}  // namespace

/// Forwards to the fake that was alive when the connector was made.
class LumoConnector::Impl {
 public:
  /// REQUIRES: a tests::FakeLumoConnector is alive.
  Impl() : core(tests::FakeConnectorCore::Current()) {}

  void Record(const std::string& call) const {
    const auto onCall = core->With([&](auto& state) {
      state.calls.push_back(call);
      return state.onCall;
    });
    if (onCall) onCall(call);
  }

  const std::shared_ptr<tests::FakeConnectorCore> core;
};

LumoConnector::LumoConnector(LumoSessionCallbackIf* callback) : impl(std::make_unique<Impl>()) {
  impl->core->With([&](auto& state) {
    state.listeners = {callback, nullptr, {}};
    state.stopped = false;
  });
}

LumoConnector::~LumoConnector() {
  impl->core->Stop();
}

void LumoConnector::Start() {
  impl->Record("Start");
  const bool tells = impl->core->With([](auto& state) {
    if (state.stopped || state.answers.holdStart) return false;
    state.status = state.answers.startStatus;
    return true;
  });
  if (!tells) return;
  impl->core->Post([status = GetSessionStatus()](const auto& listeners) {
    if (listeners.session != nullptr) listeners.session->LumoConnectorStatus(status);
  });
}

void LumoConnector::Stop() {
  impl->Record("Stop");
  impl->core->Stop();
}

SessionStatus LumoConnector::GetSessionStatus() const {
  return impl->core->With([](const auto& state) { return state.status; });
}

std::uint32_t LumoConnector::SubscribeTransactionTypeState(
    const std::string& transactionTypeId, LumoServiceControllerCallbackIf* callback,
    std::uint32_t options) {
  impl->Record("SubscribeTransactionTypeState " + transactionTypeId + " " +
               std::to_string(options));
  std::uint8_t present = 0;
  const std::uint32_t id = impl->core->With([&](auto& state) -> std::uint32_t {
    if (state.stopped || callback == nullptr || state.answers.failStateSubscription) return 0;
    state.listeners.services.emplace_back(transactionTypeId, callback);
    present = state.answers.connectionState;
    return ++state.lastId;
  });
  if (id != 0) impl->core->PostConnectionState(present, callback);
  return id;
}

LumoTokenResult LumoConnector::GetToken(const std::string& operationTypeId) const {
  impl->Record("GetToken " + operationTypeId);
  return impl->core->With([&](const auto& state) -> LumoTokenResult {
    const auto found = state.answers.tokens.find(operationTypeId);
    if (found != state.answers.tokens.end()) return found->second;
    return {kNotConfigured, ""};
  });
}

SCUrlResult LumoConnector::GetInvocationUrl(const std::string& operationTypeId) const {
  impl->Record("GetInvocationUrl " + operationTypeId);
  return impl->core->With([&](const auto& state) -> SCUrlResult {
    const auto found = state.answers.urls.find(operationTypeId);
    if (found != state.answers.urls.end()) return found->second;
    return {kNotConfigured, operationTypeId, ""};
  });
}

LumoSocketResult LumoConnector::SocketConnect(const std::string& operationTypeId,
                                              const std::string& host, std::uint16_t port) {
  impl->Record("SocketConnect " + operationTypeId + " " + host + " " + std::to_string(port));
  return impl->core->Connect();
}

std::int32_t LumoConnector::PubSubConnect(LumoPubSubCallbackIf* callback) {
  impl->Record("PubSubConnect");
  return impl->core->With([&](auto& state) {
    if (!state.stopped) state.listeners.pubSub = callback;
    return state.answers.pubSubConnectStatus;
  });
}

LumoPubSubResult LumoConnector::PubSubSubscribe(const std::string& topic, bool persistent) {
  impl->Record("PubSubSubscribe " + topic + (persistent ? " persistent" : ""));
  return impl->core->With([](auto& state) {
    return LumoPubSubResult{state.answers.pubSubSubscribeStatus, ++state.lastId};
  });
}

std::int32_t LumoConnector::PubSubPublish(const std::string& topic,
                                          const std::vector<std::uint8_t>& payload,
                                          std::uint32_t timeToLive, std::uint32_t priority,
                                          std::uint32_t payloadFormat,
                                          const std::string& contentType, bool reliable) {
  impl->Record("PubSubPublish " + topic);
  return impl->core->With([&](auto& state) {
    state.publications.push_back({topic, std::string(payload.begin(), payload.end()), timeToLive,
                                  priority, payloadFormat, contentType, reliable});
    return state.answers.pubSubPublishStatus;
  });
}

std::int32_t LumoConnector::PubSubDisconnect() {
  impl->Record("PubSubDisconnect");
  return impl->core->With([](auto& state) {
    state.listeners.pubSub = nullptr;
    return state.answers.pubSubDisconnectStatus;
  });
}

}  // namespace lumo_connector
