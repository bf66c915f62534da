/// Listeners of the connector that write down what they hear, one text a callback. On any thread.
#ifndef TESTS_DOUBLES_RECORDINGLISTENERS_H
#define TESTS_DOUBLES_RECORDINGLISTENERS_H

#include <cstdint>
#include <string>
#include <vector>

#include "lumo_connector/LumoCallbacks.h"
#include "support/Mutex.h"
#include "tests/support/EventLog.h"

namespace tests {

/// Where a callback may be held until the test lets it go.
class Gate {
 public:
  void Close() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    isClosed = true;
  }

  void Open() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    isClosed = false;
    opened.NotifyAll();
  }

  /// Waits while the gate is closed.
  void Pass() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    while (isClosed) opened.Wait(mutex);
  }

 private:
  support::Mutex mutex;
  support::ConditionVariable opened;
  bool isClosed GUARDED_BY(mutex) = false;
};

/// Writes "session STATUS".
class RecordingSession : public lumo_connector::LumoSessionCallbackIf {
 public:
  void LumoConnectorStatus(lumo_connector::SessionStatus status) override {
    heard.Add("session " + std::to_string(static_cast<unsigned>(status)));
    gate.Pass();
  }

  EventLog heard;
  Gate gate;
};

/// Writes "ID STATE" for each connection state.
class RecordingStates : public lumo_connector::LumoServiceControllerCallbackIf {
 public:
  void LumoSCSessionStatus(lumo_connector::SCSessionStatus) override {}
  void LumoSCInvocationURL(lumo_connector::SCUrlResult) override {}
  void LumoSCActivationState(lumo_connector::SCActivationStateUpdate) override {}
  void LumoSCConnectionState(lumo_connector::SCConnectionStateUpdate update) override {
    heard.Add(update.transactionTypeId + " " + std::to_string(update.state));
    gate.Pass();
  }

  EventLog heard;
  Gate gate;
};

/// Writes "connection STATE", "message TOPIC PAYLOAD", "subscribed TOPIC STATUS ID",
/// "subscribe failed TOPIC ID", "published TOPIC ID" and "publish failed TOPIC ID".
class RecordingTopics : public lumo_connector::LumoPubSubCallbackIf {
 public:
  void LumoPubSubConnectionState(std::int32_t state) override {
    Write("connection " + std::to_string(state));
  }
  void LumoPublishAcknowledgeReceived(const std::string& topic, std::uint16_t id) override {
    Write("published " + topic + " " + std::to_string(id));
  }
  void LumoPublishReceived(const std::string& topic, const std::vector<std::uint8_t>& payload,
                           std::uint16_t /*messageId*/) override {
    Write("message " + topic + " " + std::string(payload.begin(), payload.end()));
  }
  void LumoSubscribeAcknowledgeReceived(const std::string& topic, std::int32_t status,
                                        std::uint16_t id) override {
    Write("subscribed " + topic + " " + std::to_string(status) + " " + std::to_string(id));
  }
  void LumoSubscribeFailed(const std::string& topic, std::uint16_t id) override {
    Write("subscribe failed " + topic + " " + std::to_string(id));
  }
  void LumoUnsubscribeAcknowledgeReceived(const std::string&, std::uint16_t) override {}
  void LumoUnsubscribeFailed(const std::string&, std::uint16_t) override {}
  void LumoPublishFailed(const std::string& topic, std::uint16_t id) override {
    Write("publish failed " + topic + " " + std::to_string(id));
  }

  EventLog heard;
  Gate gate;

 private:
  void Write(const std::string& text) {
    heard.Add(text);
    gate.Pass();
  }
};

}  // namespace tests

#endif
