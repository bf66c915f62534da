#include "tests/doubles/FakeLumoConnector.h"

#include <utility>

#include "tests/doubles/FakeConnectorCore.h"

namespace tests {

using lumo_connector::LumoPubSubCallbackIf;
using lumo_connector::SessionStatus;

namespace {

/// How the connector calls a look-up that succeeded.
constexpr std::int32_t kSuccess = 1;

}  // namespace

FakeLumoConnector::FakeLumoConnector() : core(std::make_shared<FakeConnectorCore>()) {
  FakeConnectorCore::SetCurrent(core);
}

FakeLumoConnector::~FakeLumoConnector() {
  FakeConnectorCore::SetCurrent(nullptr);
  core->End();
}

void FakeLumoConnector::SetToken(const std::string& operationTypeId, const std::string& token) {
  core->With([&](auto& state) { state.answers.tokens[operationTypeId] = {kSuccess, token}; });
}

void FakeLumoConnector::SetTokenFailure(const std::string& operationTypeId, std::int32_t status) {
  core->With([&](auto& state) { state.answers.tokens[operationTypeId] = {status, ""}; });
}

void FakeLumoConnector::SetUrl(const std::string& operationTypeId, const std::string& url) {
  core->With([&](auto& state) {
    state.answers.urls[operationTypeId] = {kSuccess, operationTypeId, url};
  });
}

void FakeLumoConnector::SetUrlFailure(const std::string& operationTypeId, std::int32_t status) {
  core->With([&](auto& state) {
    state.answers.urls[operationTypeId] = {status, operationTypeId, ""};
  });
}

void FakeLumoConnector::Connect(PeerScript script) {
  core->With([&](auto& state) {
    state.answers.connects.push_back({0, "", std::move(script), false});
  });
}

void FakeLumoConnector::RefuseConnect(std::int32_t status, const std::string& text) {
  core->With([&](auto& state) {
    state.answers.connects.push_back({status, text, nullptr, false});
  });
}

std::vector<std::string> FakeLumoConnector::Requests() const {
  const auto peers = core->With([](const auto& state) { return state.peers; });
  std::vector<std::string> all;
  for (const auto& peer : peers) {
    for (auto& request : peer->Requests()) all.push_back(std::move(request));
  }
  return all;
}

void FakeLumoConnector::WaitForPeers() {
  core->WaitForPeers();
}

void FakeLumoConnector::SetStartStatus(SessionStatus status) {
  core->With([&](auto& state) { state.answers.startStatus = status; });
}

void FakeLumoConnector::HoldStart() {
  core->With([](auto& state) { state.answers.holdStart = true; });
}

void FakeLumoConnector::SetConnectionState(std::uint8_t connectionState) {
  core->With([&](auto& state) { state.answers.connectionState = connectionState; });
}

void FakeLumoConnector::FailStateSubscription() {
  core->With([](auto& state) { state.answers.failStateSubscription = true; });
}

void FakeLumoConnector::SetPubSubConnectStatus(std::int32_t status) {
  core->With([&](auto& state) { state.answers.pubSubConnectStatus = status; });
}

void FakeLumoConnector::SetPubSubSubscribeStatus(std::int32_t status) {
  core->With([&](auto& state) { state.answers.pubSubSubscribeStatus = status; });
}

void FakeLumoConnector::SetPubSubPublishStatus(std::int32_t status) {
  core->With([&](auto& state) { state.answers.pubSubPublishStatus = status; });
}

void FakeLumoConnector::SetPubSubDisconnectStatus(std::int32_t status) {
  core->With([&](auto& state) { state.answers.pubSubDisconnectStatus = status; });
}

void FakeLumoConnector::ReportSession(SessionStatus status) {
  core->With([&](auto& state) {
    if (!state.stopped) state.status = status;
  });
  core->Post([status](const FakeConnectorCore::Listeners& listeners) {
    if (listeners.session != nullptr) listeners.session->LumoConnectorStatus(status);
  });
  core->WaitForCallbacks();
}

void FakeLumoConnector::ReportConnectionState(std::uint8_t connectionState) {
  SetConnectionState(connectionState);
  core->PostConnectionState(connectionState, nullptr);
  core->WaitForCallbacks();
}

void FakeLumoConnector::ReportPubSub(std::function<void(LumoPubSubCallbackIf&)> tell) {
  core->Post([tell = std::move(tell)](const FakeConnectorCore::Listeners& listeners) {
    if (listeners.pubSub != nullptr) tell(*listeners.pubSub);
  });
  core->WaitForCallbacks();
}

void FakeLumoConnector::ReportPublished(const std::string& topic, const std::string& payload,
                                        std::uint16_t messageId) {
  const std::vector<std::uint8_t> bytes(payload.begin(), payload.end());
  ReportPubSub([&](auto& listener) { listener.LumoPublishReceived(topic, bytes, messageId); });
}

void FakeLumoConnector::WaitForCallbacks() {
  core->WaitForCallbacks();
}

void FakeLumoConnector::OnCall(std::function<void(const std::string& call)> action) {
  core->With([&](auto& state) { state.onCall = std::move(action); });
}

std::vector<std::string> FakeLumoConnector::Calls() const {
  return core->With([](const auto& state) { return state.calls; });
}

std::vector<FakeLumoConnector::Publication> FakeLumoConnector::Publications() const {
  return core->With([](const auto& state) { return state.publications; });
}

}  // namespace tests
