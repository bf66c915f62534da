/// The fixture of the tests of the client's core: the whole life of a client on collaborators in
/// memory, step by step.
#ifndef TESTS_SUPPORT_CLIENTTEST_H
#define TESTS_SUPPORT_CLIENTTEST_H

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "TruststoreUpdateClient/TruststoreUpdateClient.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/RecordingCollaborators.h"
#include "tests/support/Deadline.h"
#include "tests/support/EventLog.h"

namespace tests {

/// Every wait of the main loop writes one line, after which no trigger is lost: a test that waits
/// for it knows all that was written before. Ends the process when something waits for ever.
class ClientTest : public ::testing::Test {
 protected:
  using Client = truststore_update_client::TruststoreUpdateClient;
  using Lines = std::vector<std::string>;
  using State = process_lifecycle_adapter::ProcessState;
  using Code = tls_alert_if::ETlsAlertCode;

  /// What the main thread logs when it waits without limit, and of its end.
  static constexpr const char* kAsleep = "debug: Process timeout set to inf";
  static constexpr const char* kSignal = "debug: Termination signal received";
  static constexpr const char* kEnding =
      "info: Handling Truststore Update Client termination request.";
  static constexpr const char* kWaiting = "info: Waiting for the threads to stop...";
  static constexpr const char* kEnded = "info: Truststore Update Client Terminated.";

  ClientTest() {
    ::alarm(static_cast<unsigned>(4 * kDeadline.count()));
    unit.connector.SetConnectionState(1);
  }
  ~ClientTest() override { ::alarm(0); }

  /// Ends the client while the members of the test still live.
  void TearDown() override {
    if (mainThread.joinable()) (void)End();
    client.reset();
  }

  /// Constructs a client; once it waits for the status of the connector, `report` happens.
  void Construct(const std::function<void()>& report) {
    unit.connector.HoldStart();
    auto made = std::async(std::launch::async,
                           [this] { return std::make_unique<Client>(unit.ForClient()); });
    EXPECT_TRUE(WaitForLine(kAsleep));
    report();
    client = made.get();
  }
  void Construct(lumo_connector::SessionStatus status = lumo_connector::SessionStatus::kStarted) {
    Construct([&] { unit.connector.ReportSession(status); });
  }

  /// Constructs a client that waits for nobody.
  void ConstructAtOnce() { client = std::make_unique<Client>(unit.ForClient()); }

  /// Connects the client; what that tells of the connection has been told.
  void Initialize(bool factoryReset = false) {
    client->Initialize(factoryReset);
    unit.connector.WaitForCallbacks();
  }

  /// Starts the main loop and waits until it waits.
  void StartMain() {
    const std::ptrdiff_t before = Sleeps();
    mainThread = std::thread([this] { client->Main(); });
    EXPECT_TRUE(WaitForSleep(before));
  }

  /// All of these, up to a main loop that waits with a container installed and no connection. What
  /// was logged and asked before is forgotten.
  void Begin() {
    Construct();
    Initialize();
    StartMain();
    Forget();
  }

  /// The lines of one round of the main loop, which `event` triggers; what was asked is in
  /// unit.calls.
  Lines Round(const std::function<void()>& event) {
    Forget();
    event();
    EXPECT_TRUE(WaitForSleep(0));
    return log.Lines();
  }

  /// Ends the main loop by a termination; its lines.
  Lines End() {
    log.Clear();
    Terminate();
    mainThread.join();
    return log.Lines();
  }

  /// Runs the main loop to its end on this thread; somebody has asked for termination.
  Lines RunToEnd() {
    log.Clear();
    client->Main();
    return log.Lines();
  }

  /// What the client's listeners are told.
  void Terminate() { unit.callbacks.lifecycle.load()->ProcessLifecycleAdapterTerminate(); }
  void Request(State state, unsigned int sequence) {
    unit.callbacks.states.load()->ProcessLifecycleAdapterEnterState(state, sequence);
  }
  void Connect(std::uint8_t state) { unit.connector.ReportConnectionState(state); }
  void Alert(int code, const std::string& operation) {
    unit.callbacks.alerts.load()->TlsAlertNotifyCb(operation,
                                                   Code{static_cast<std::uint8_t>(code)});
  }

  /// A message is in the queue, and the client knows.
  void Message(const std::string& message) {
    unit.broker.Send(message);
    unit.callbacks.mqtt.load()->MQTTMessageReceivedCb();
  }
  void Job(const std::string& id) { Message(JobMessage(id)); }

  /// A job message as protobuf writes it: field 1, a text of less than 128 bytes.
  static std::string JobMessage(const std::string& id) {
    return "\x0a" + std::string(1, static_cast<char>(id.size())) + id;
  }

  bool WaitForLine(const std::string& line, std::ptrdiff_t times = 1) const {
    return Eventually([&] {
      const Lines lines = log.Lines();
      return std::count(lines.begin(), lines.end(), line) >= times;
    });
  }

  /// Forgets lines and calls so far.
  void Forget() {
    log.Clear();
    unit.calls.Clear();
  }

  RecordingCollaborators unit;
  platform_host::CapturedLog log;
  std::unique_ptr<Client> client;
  std::thread mainThread;

 private:
  // How often the main thread has gone to wait.
  std::ptrdiff_t Sleeps() const {
    const Lines lines = log.Lines();
    return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
      return line.rfind("debug: Process timeout set to", 0) == 0;
    });
  }

  bool WaitForSleep(std::ptrdiff_t before) const {
    return Eventually([&] { return Sleeps() > before; });
  }
};

}  // namespace tests

#endif
