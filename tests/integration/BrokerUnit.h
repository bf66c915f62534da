/// A unit with its connector and what its listeners hear, for tests that play or run its broker.
/// One object belongs to the test's thread.
#ifndef TESTS_INTEGRATION_BROKERUNIT_H
#define TESTS_INTEGRATION_BROKERUNIT_H

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <string>

#include "lumo_connector/LumoConnector.h"
#include "tests/doubles/RecordingListeners.h"
#include "tests/support/HostConfiguration.h"

namespace tests {

/// The unit "unit-1".
class BrokerUnit {
 public:
  /// A Stop that waits for the broker would last longer: until the broker has failed to accept.
  static constexpr std::chrono::seconds kStopDeadline{10};

  /// For a broker on `port` of 127.0.0.1. `more` are further lines of [mqtt].
  explicit BrokerUnit(std::uint16_t port, const std::string& more = "")
      : configuration("[mqtt]\nhost = \"127.0.0.1\"\nport = " + std::to_string(port) +
                      "\nclient_id = \"unit-1\"\n" + more),
        connector(&session) {}

  /// As a client does it: session, states.
  void Start() {
    connector.Start();
    ASSERT_TRUE(session.heard.WaitFor("session 2"));
    ASSERT_NE(connector.SubscribeTransactionTypeState("T", &states, 0), 0U);
  }

  /// Waits until the broker has accepted the unit; then listens.
  void ListenOnceAccepted() {
    ASSERT_TRUE(states.heard.WaitFor("T 2"));
    ASSERT_EQ(connector.PubSubConnect(&topics), 0);
  }

  void Connect() {
    Start();
    ListenOnceAccepted();
  }

  /// Connect, and until the subscription of "job" is granted.
  void ConnectAndSubscribe() {
    Connect();
    const auto request = connector.PubSubSubscribe("job", true);
    ASSERT_EQ(request.status, 0);
    ASSERT_TRUE(topics.heard.WaitFor("subscribed job 0 " + std::to_string(request.requestId)));
  }

  /// Whether Stop returns without waiting for the broker.
  [[nodiscard]] bool StopsAtOnce() {
    const auto stopped = std::async(std::launch::async, [this] { connector.Stop(); });
    return stopped.wait_for(kStopDeadline) == std::future_status::ready;
  }

  const HostConfiguration configuration;
  RecordingSession session;
  RecordingStates states;
  RecordingTopics topics;
  lumo_connector::LumoConnector connector;
};

/// A line of the connector's, as CapturedLog gives it.
[[nodiscard]] inline std::string ConnectorLine(const std::string& level, const std::string& text) {
  return level + ": libLumoConnectorShared: " + text;
}

}  // namespace tests

#endif
