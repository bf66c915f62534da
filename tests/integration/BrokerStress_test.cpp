// Everything at once: the connector's operations on many threads while it starts and stops.
#include <gmock/gmock.h>

#include <thread>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/integration/BrokerUnit.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/MosquittoBroker.h"
#include "tests/support/ProcessUse.h"

namespace lumo_connector {
namespace {

constexpr int kRounds = 200;

std::size_t HeardBy(tests::BrokerUnit& unit) {
  return unit.session.heard.Texts().size() + unit.states.heard.Texts().size() +
         unit.topics.heard.Texts().size();
}

/// What clients do, some of it when they should not.
void Use(LumoConnector& connector, tests::BrokerUnit& unit) {
  static_cast<void>(connector.SubscribeTransactionTypeState("T", &unit.states, 0));
  for (int count = 0; count < 5; ++count) {
    static_cast<void>(connector.PubSubConnect(&unit.topics));
    static_cast<void>(connector.PubSubSubscribe("job", true));
    static_cast<void>(connector.PubSubPublish("job", {'x'}, 0, 0, 0, "", false));
    static_cast<void>(connector.SocketConnect("T", "127.0.0.1", 1));
    static_cast<void>(connector.GetToken("T"));
    static_cast<void>(connector.PubSubDisconnect());
  }
}

TEST(BrokerStress, EverythingAtOnce_NoCallbackAfterStop) {
  const platform_host::CapturedLog log;
  tests::MosquittoBroker broker;
  broker.Start();
  const auto descriptors = tests::OpenDescriptors();
  for (int round = 0; round < kRounds; ++round) {
    tests::BrokerUnit unit(broker.Port());
    std::vector<std::thread> threads;
    const auto stopAndCount = [&unit] {
      unit.connector.Stop();
      const std::size_t heard = HeardBy(unit);
      std::this_thread::yield();
      EXPECT_EQ(HeardBy(unit), heard);
    };
    threads.emplace_back([&unit] { unit.connector.Start(); });
    threads.emplace_back([&unit] { Use(unit.connector, unit); });
    threads.emplace_back([&unit, round] {
      // Half of the rounds stop while the session begins, half once it has begun.
      if (round % 2 == 0) static_cast<void>(unit.session.heard.WaitForCount(1));
      Use(unit.connector, unit);
      unit.connector.Stop();
    });
    if (round % 2 == 1) threads.emplace_back(stopAndCount);
    for (std::thread& thread : threads) thread.join();
    stopAndCount();
    EXPECT_EQ(unit.connector.GetSessionStatus(), SessionStatus::kStopped);
  }
  EXPECT_EQ(tests::OpenDescriptors(), descriptors);
}

}  // namespace
}  // namespace lumo_connector
