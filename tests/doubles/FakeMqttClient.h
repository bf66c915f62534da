/// An MQTT client without a broker: the test says what the broker does next. One thread at a time.
#ifndef TESTS_DOUBLES_FAKEMQTTCLIENT_H
#define TESTS_DOUBLES_FAKEMQTTCLIENT_H

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/lumo_connector/MqttClientIf.h"

namespace tests {

/// What a FakeMqttClient is to do, and has done. Outlives it.
struct FakeBroker {
  using Error = platform_host::Error;
  using Listener = lumo_connector::MqttListenerIf;
  using Sent = lumo_connector::MqttClientIf::Sent;

  std::function<void()> connecting = [] {};            ///< what happens meanwhile
  std::optional<Error> connectError;                   ///< why Connect fails
  std::vector<std::function<void(Listener&)>> saying;  ///< what the next Serve tells, then forgets
  std::optional<Error> loss;                           ///< why the next Serve ends the connection
  Sent::Outcome outcome = Sent::Outcome::kSent;        ///< of requests
  std::vector<std::string> calls;  ///< "connect", "close", "subscribe T", "publish T"
  int lastNumber = 0;              ///< of the last request sent
};

/// Behaves as its FakeBroker says.
class FakeMqttClient : public lumo_connector::MqttClientIf {
 public:
  explicit FakeMqttClient(FakeBroker& fakeBroker) : broker(fakeBroker) {}

  std::optional<platform_host::Error> Connect() override {
    broker.calls.emplace_back("connect");
    broker.connecting();
    return broker.connectError;
  }

  Interest WaitsFor() override { return {-1, 0}; }

  std::optional<platform_host::Error> Serve(short /*events*/,
                                            lumo_connector::MqttListenerIf& listener) override {
    for (const auto& say : std::exchange(broker.saying, {})) say(listener);
    return std::exchange(broker.loss, std::nullopt);
  }

  void Close() override { broker.calls.emplace_back("close"); }

  Sent Subscribe(const std::string& topic) override { return Send("subscribe " + topic); }

  Sent Publish(const std::string& topic, const std::vector<std::uint8_t>& /*payload*/) override {
    return Send("publish " + topic);
  }

 private:
  Sent Send(const std::string& call) {
    broker.calls.push_back(call);
    return {broker.outcome, ++broker.lastNumber};
  }

  FakeBroker& broker;
};

}  // namespace tests

#endif
