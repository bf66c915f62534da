/// Everything that the client's core stands on, in memory: it writes down what it was asked, and
/// the test calls back as it likes.
#ifndef TESTS_DOUBLES_RECORDINGCOLLABORATORS_H
#define TESTS_DOUBLES_RECORDINGCOLLABORATORS_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "TruststoreUpdateClient/ClientCollaborators.h"
#include "support/Mutex.h"
#include "tests/doubles/CallRecord.h"
#include "tests/doubles/FakeLumoConnector.h"
#include "tests/doubles/FakeUpdateHandler.h"

namespace tests {

/// Where the client is called back; null until it said so.
struct ClientCallbacks {
  std::atomic<process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf*> lifecycle{nullptr};
  std::atomic<process_lifecycle_adapter::ProcessLifecycleAdapterStateCallbackIf*> states{nullptr};
  std::atomic<csa_common::TlsAlertsCbIf*> alerts{nullptr};
  std::atomic<csa_common::MqttConnectionCbIf*> mqtt{nullptr};
};

/// Writes "ProcessLifecycleAdapter Initialize NAME", "StateChanged STATE SEQUENCE" and
/// "~ProcessLifecycleAdapter".
class RecordingLifecycleAdapter : public process_lifecycle_adapter::ProcessLifecycleAdapterIf {
 public:
  using Callback = process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf;
  using StateCallback = process_lifecycle_adapter::ProcessLifecycleAdapterStateCallbackIf;

  RecordingLifecycleAdapter(CallRecord& record, ClientCallbacks& listeners)
      : calls(record), callbacks(listeners) {}
  ~RecordingLifecycleAdapter() override { calls.Add("~ProcessLifecycleAdapter"); }
  RecordingLifecycleAdapter(const RecordingLifecycleAdapter&) = delete;
  RecordingLifecycleAdapter& operator=(const RecordingLifecycleAdapter&) = delete;

  void Initialize(const std::string& name, Callback* callback) override {
    Initialize(name, callback, nullptr);
  }
  void Initialize(const std::string& name, Callback* callback,
                  StateCallback* stateCallback) override {
    callbacks.lifecycle = callback;
    callbacks.states = stateCallback;
    calls.Add("ProcessLifecycleAdapter Initialize " + name);
  }
  void NotifyInit(const std::string& /*name*/, StateCallback* /*stateCallback*/) override {}
  void Configure(const ConfigParams& /*params*/) override {}
  void StateChanged(process_lifecycle_adapter::ProcessState state, unsigned int sequence) override {
    calls.Add("StateChanged " + std::to_string(static_cast<int>(state)) + " " +
              std::to_string(sequence));
  }

 private:
  CallRecord& calls;
  ClientCallbacks& callbacks;
};

/// Writes "~TlsAlerts".
class RecordingAlerts : public csa_common::TlsAlertsIf {
 public:
  explicit RecordingAlerts(CallRecord& record) : calls(record) {}
  ~RecordingAlerts() override { calls.Add("~TlsAlerts"); }
  RecordingAlerts(const RecordingAlerts&) = delete;
  RecordingAlerts& operator=(const RecordingAlerts&) = delete;

  void CallbackInit(csa_common::TlsAlertsCbIf* /*callback*/) override {}
  [[nodiscard]] csa_common::TlsAlertInfo CheckAlerts() override { return {}; }

 private:
  CallRecord& calls;
};

/// The messages of a broker, and what it answers. Outlives its RecordingMqtt.
class BrokerAnswers {
 public:
  void Send(const std::string& message) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    messages.push_back(message);
  }
  [[nodiscard]] bool HasMessage() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return !messages.empty();
  }

  /// REQUIRES: there is one.
  [[nodiscard]] std::string Take() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    std::string message = std::move(messages.front());
    messages.pop_front();
    return message;
  }

  std::atomic<unsigned int> connect{0};
  std::atomic<unsigned int> subscribe{0};
  std::atomic<std::int32_t> publish{0};

 private:
  mutable support::Mutex mutex;
  std::deque<std::string> messages GUARDED_BY(mutex);
};

/// Writes "Connect", "Subscribe TOPIC", "GetReceivedMessage", "Publish [TOPIC] [PAYLOAD] FLAG FIRST
/// SECOND [TEXT]" and "~MqttConnection".
class RecordingMqtt : public csa_common::MqttConnectionIf {
 public:
  RecordingMqtt(CallRecord& record, BrokerAnswers& given) : calls(record), broker(given) {}
  ~RecordingMqtt() override { calls.Add("~MqttConnection"); }
  RecordingMqtt(const RecordingMqtt&) = delete;
  RecordingMqtt& operator=(const RecordingMqtt&) = delete;

  [[nodiscard]] unsigned int Subscribe(const std::string& topic) override {
    calls.Add("Subscribe " + topic);
    return broker.subscribe;
  }
  [[nodiscard]] unsigned int Connect() override {
    calls.Add("Connect");
    return broker.connect;
  }
  std::int32_t Disconnect() override { return 0; }
  [[nodiscard]] bool CheckReceivedUpdate() override { return broker.HasMessage(); }
  [[nodiscard]] std::string GetReceivedMessage() override {
    std::string message = broker.Take();
    calls.Add("GetReceivedMessage");
    return message;
  }
  [[nodiscard]] std::int32_t Publish(const std::string& topic, const std::string& payload,
                                     bool flag, unsigned int first, unsigned int second,
                                     std::string text) override {
    calls.Add("Publish [" + topic + "] [" + payload + "] " + (flag ? "true " : "false ") +
              std::to_string(first) + " " + std::to_string(second) + " [" + text + "]");
    return broker.publish;
  }

 private:
  CallRecord& calls;
  BrokerAnswers& broker;
};

/// Outlives the client. Its parts are for any thread, but for what says otherwise.
class RecordingCollaborators {
 public:
  using Collaborators = truststore_update_client::ClientCollaborators;
  using TimePoint = std::chrono::system_clock::time_point;

  /// Of one client. Each making is written as "create NAME", the alerts with their codes, the end
  /// of the connector as "~LumoConnector", and a pause as "pause".
  [[nodiscard]] Collaborators ForClient() {
    Collaborators made;
    made.lifecycle = [this] {
      return Make<RecordingLifecycleAdapter>("ProcessLifecycleAdapter", "", calls, callbacks);
    };
    made.connector = [this](auto* callback) { return MakeConnector(callback); };
    made.tlsAlerts = [this](const auto& codes, auto* callback) {
      std::string numbers;
      for (const auto code : codes) numbers += " " + std::to_string(static_cast<int>(code));
      callbacks.alerts = callback;
      return Make<RecordingAlerts>("TlsAlerts", numbers, calls);
    };
    made.updateHandler = [this](const auto& /*connector*/) {
      return Make<FakeUpdateHandler>("UpdateHandler", "", calls, updates);
    };
    made.mqttConnection = [this](const auto& /*connector*/, auto* callback) {
      callbacks.mqtt = callback;
      return Make<RecordingMqtt>("MqttConnection", "", calls, broker);
    };
    made.now = [this] { return TimePoint(std::chrono::nanoseconds(clock)); };
    made.pauseForSecond = [this] { calls.Add("pause"); };
    return made;
  }

  /// The collaborator `name` cannot be made. Before ForClient.
  void LeaveOut(const std::string& name) { missing.insert(name); }

  void AdvanceClock(std::chrono::nanoseconds time) { clock += time.count(); }

  CallRecord calls;
  ClientCallbacks callbacks;
  FakeLumoConnector connector;
  UpdateHandlerAnswers updates;
  BrokerAnswers broker;

 private:
  using Connector = lumo_connector::LumoConnector;

  template <typename Double, typename... Arguments>
  std::shared_ptr<Double> Make(const std::string& name, const std::string& details,
                               Arguments&... arguments) {
    calls.Add("create " + name + details);
    if (missing.count(name) != 0) return nullptr;
    return std::make_shared<Double>(arguments...);
  }

  std::shared_ptr<Connector> MakeConnector(lumo_connector::LumoSessionCallbackIf* callback) {
    calls.Add("create LumoConnector");
    if (missing.count("LumoConnector") != 0) return nullptr;
    return {new Connector(callback), [this](Connector* ending) {
              calls.Add("~LumoConnector");
              std::unique_ptr<Connector>(ending).reset();
            }};
  }

  std::set<std::string> missing;
  std::atomic<std::int64_t> clock{1720000000'000000000};
};

}  // namespace tests

#endif
