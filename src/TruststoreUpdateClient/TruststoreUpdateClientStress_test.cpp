// Every callback at once, from construction to destruction, and the end of the process at any
// instant of it.
#include <atomic>
#include <memory>
#include <optional>
#include <random>

#include "TruststoreUpdateClient/UpdateHandler.h"
#include "tests/doubles/FakeContainerHandler.h"
#include "tests/support/ClientTest.h"
#include "tests/support/Repeated.h"

namespace truststore_update_client {
namespace {

using tests::Repeated;
using Lines = std::vector<std::string>;

constexpr unsigned kLives = 30;
constexpr unsigned kLatestEnd = 200;  ///< counted in requests of states

class ClientStress : public tests::ClientTest {
 protected:
  // What threads of the platform do while the object that they belong to lives. The requests of
  // states count the time.
  void AskForStates() {
    const unsigned int sequence = ++requests;
    Request(sequence % 2 == 0 ? State::kOn : State::kPrepSD, sequence);
    (void)unit.callbacks.lifecycle.load()->ProcessLifecycleAdapterGetHealthStatus();
  }
  void RaiseAlerts() {
    for (const int code : {46, 47, 48}) Alert(code, "Some.Operation");
  }
  void SendMessages() {
    Message("");
    Job("wanted-2");
    unit.callbacks.mqtt.load()->MQTTResubscribeCb();
    unit.callbacks.mqtt.load()->MQTTSubscribeFailedCb();
    unit.AdvanceClock(std::chrono::seconds(59));
  }
  void ChangeConnection() {
    for (const std::uint8_t state : {std::uint8_t{1}, std::uint8_t{2}, std::uint8_t{4}})
      Connect(state);
  }

  // The threads begin and end as those of the unit do: with what calls back on them.
  void PlanThreads(unsigned end) {
    unit.calls.During("ProcessLifecycleAdapter Initialize truststore-update-client", [this, end] {
      platform.emplace([this] { AskForStates(); });
      signals = std::thread([this, end] {
        while (requests < end) std::this_thread::yield();
        Terminate();
      });
    });
    unit.calls.During("~ProcessLifecycleAdapter", [this] {
      signals.join();
      platform.reset();
    });
    unit.calls.During("create TlsAlerts 46 48",
                      [this] { alerts.emplace([this] { RaiseAlerts(); }); });
    unit.calls.During("~TlsAlerts", [this] { alerts.reset(); });
    unit.calls.During("create MqttConnection",
                      [this] { broker.emplace([this] { SendMessages(); }); });
    unit.calls.During("~MqttConnection", [this] { broker.reset(); });
  }

  // A whole life that is asked to end after `end` requests of states. The lines of it.
  Lines Live(unsigned end, ClientCollaborators collaborators) {
    Forget();
    requests = 0;
    PlanThreads(end);
    {
      const Repeated connection([this] { ChangeConnection(); });
      client = std::make_unique<Client>(std::move(collaborators));
      client->Initialize(false);
      client->Main();
      client.reset();
    }
    return log.Lines();
  }

  static void ExpectOrderlyEnd(const Lines& lines) {
    for (const char* line : {kSignal, kEnding, kEnded})
      EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1) << line;
  }

  // That one update or report was started at most, and that each state was confirmed once, in turn.
  void ExpectOrderlyCalls() const {
    int starts = 0;
    unsigned long confirmed = 0;
    for (const std::string& call : unit.calls.Calls()) {
      if (call.rfind("Start", 0) == 0) ++starts;
      if (call.rfind("StateChanged ", 0) != 0) continue;
      const unsigned long sequence = std::stoul(call.substr(call.rfind(' ')));
      EXPECT_GT(sequence, confirmed);
      EXPECT_EQ(call[13], sequence % 2 == 0 ? '1' : '2') << call;
      confirmed = sequence;
    }
    EXPECT_LE(starts, 1);
  }

  unsigned SomeEnd() { return std::uniform_int_distribution<unsigned>(0, kLatestEnd)(random); }

  std::mt19937 random{std::random_device()()};
  std::atomic<unsigned> requests{0};
  std::optional<Repeated> platform;
  std::optional<Repeated> alerts;
  std::optional<Repeated> broker;
  std::thread signals;
};

TEST_F(ClientStress, EveryCallbackAndTheEnd_OrderlyEveryTime) {
  for (unsigned life = 0; life < kLives; ++life) {
    const unsigned end = SomeEnd();
    SCOPED_TRACE(end);
    ExpectOrderlyEnd(Live(end, unit.ForClient()));
    ExpectOrderlyCalls();
  }
}

// The unit's own update handler: its workers are stopped, resumed and ended meanwhile.
TEST_F(ClientStress, WithWorkersAtWork_EndsEveryTime) {
  for (unsigned life = 0; life < kLives; ++life) {
    const unsigned end = SomeEnd();
    SCOPED_TRACE(end);
    ClientCollaborators collaborators = unit.ForClient();
    collaborators.updateHandler = [](const auto& connector) {
      UpdateHandler::Collaborators parts{std::make_shared<tests::FakeContainerHandler>(),
                                         std::make_shared<ContainerConnection>(connector),
                                         connector};
      parts.notificationFile = "/nowhere/notification";
      parts.retryInterval = std::chrono::milliseconds(1);
      return std::make_shared<UpdateHandler>(std::move(parts));
    };
    ExpectOrderlyEnd(Live(end, std::move(collaborators)));
  }
}

}  // namespace
}  // namespace truststore_update_client
