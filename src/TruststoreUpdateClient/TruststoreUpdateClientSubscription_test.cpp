// How long the main loop waits, and when it subscribes.
#include <chrono>
#include <utility>

#include "tests/support/ClientTest.h"

namespace truststore_update_client {
namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kConnected = "debug: Connection state notification, new state: 2";
const std::string kDue = "info: Handling MQTT subscription request.";
const std::string kSubscribed = "info: MQTT Subscribed successfully";
const std::string kFailed = "info: MQTT Subscribtion failed";
const std::string kAgain = "info: MQTT Re-Subscription request was received";
const std::string kSubscribe = "Subscribe RUNA-TruststoreUpdate.CTTSCJobKORB1";
const std::string kNegative = "warning: MQTT Resubscribe has negative timeout.";

std::string Wait(int timeout) {
  return "debug: Process timeout set to: " + std::to_string(timeout) + "s";
}

// A client whose main loop has had its first round and has ended, so that the test may ask it how
// long it would wait.
class ClientTimeout : public tests::ClientTest {
 protected:
  // `state`: of the connection.
  void FirstRoundDone(std::uint8_t state) {
    unit.connector.SetConnectionState(state);
    Construct();
    Initialize();
    unit.calls.During("GetInstalledContainerId", [&] { Terminate(); });
    (void)RunToEnd();
    Forget();
  }

  // With a subscription that is due in `left`.
  int TimeoutWhenDueIn(nanoseconds left) {
    client->MQTTSubscribeFailedCb();
    unit.AdvanceClock(kResubscribePause - left);
    log.Clear();
    return client->CalculateTimeout();
  }
};

TEST_F(ClientTimeout, NothingPending_NoLimit) {
  FirstRoundDone(2);
  EXPECT_EQ(client->CalculateTimeout(), 100000);
}

TEST_F(ClientTimeout, StateChangePending_OneSecond) {
  FirstRoundDone(1);
  Request(State::kOn, 1);
  EXPECT_EQ(client->CalculateTimeout(), 1);
}

TEST_F(ClientTimeout, CheckOfStorePending_OneSecondOnlyWhenConnected) {
  Construct();
  EXPECT_EQ(client->CalculateTimeout(), 100000);
  Initialize();
  EXPECT_EQ(client->CalculateTimeout(), 100000);
  Connect(2);
  EXPECT_EQ(client->CalculateTimeout(), 1);
}

TEST_F(ClientTimeout, AlertPending_OneSecond) {
  FirstRoundDone(1);
  Alert(46, "operation");
  EXPECT_EQ(client->CalculateTimeout(), 1);
}

TEST_F(ClientTimeout, MessagePending_OneSecond) {
  FirstRoundDone(1);
  Message("");
  EXPECT_EQ(client->CalculateTimeout(), 1);
}

TEST_F(ClientTimeout, SubscriptionPendingUnconnected_NoLimit) {
  FirstRoundDone(1);
  EXPECT_EQ(TimeoutWhenDueIn(seconds(60)), 100000);
}

TEST_F(ClientTimeout, SubscriptionPending_WholeSecondsAndOne) {
  FirstRoundDone(2);
  const nanoseconds justLess = seconds(1) - nanoseconds(1);
  const std::vector<std::pair<nanoseconds, int>> cases = {
      {nanoseconds(0), 1},
      {nanoseconds(1), 1},
      {justLess, 1},
      {seconds(1), 2},
      {seconds(60), 61},
      {seconds(59) + justLess, 60},
      {-nanoseconds(1), 1},
      {-justLess, 1},
      {-seconds(1), 1},
      {-seconds(1) - justLess, 1},
      {seconds(99997) + justLess, 99998},
      {seconds(99998), 99999},
      {seconds(99998) + justLess, 99999},
      {seconds(99999), 100000},
      {seconds(100000), 100000},
      {std::chrono::hours(24 * 365 * 100), 100000}};
  for (const auto& [left, timeout] : cases) {
    EXPECT_EQ(TimeoutWhenDueIn(left), timeout) << left.count();
    EXPECT_THAT(log.Lines(), IsEmpty()) << left.count();
  }
}

TEST_F(ClientTimeout, SubscriptionOverdue_OneSecondAndWarning) {
  FirstRoundDone(2);
  for (const nanoseconds left : {nanoseconds(-seconds(2)), nanoseconds(-std::chrono::hours(1))}) {
    EXPECT_EQ(TimeoutWhenDueIn(left), 1) << left.count();
    EXPECT_THAT(log.Lines(), ElementsAre(kNegative)) << left.count();
  }
}

// Each of the four comes before what would have the loop wait longer.
TEST_F(ClientTimeout, EverythingPending_OneSecondWithoutWarning) {
  FirstRoundDone(2);
  Message("");
  EXPECT_EQ(TimeoutWhenDueIn(-seconds(2)), 1);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ClientTimeout, StatesOfConnection_TwoAndThreeAreUsable) {
  Construct();
  EXPECT_TRUE(client->IsConnectingAllowed());
  Initialize();
  for (int state = 0; state < 256; ++state) {
    Connect(static_cast<std::uint8_t>(state));
    EXPECT_EQ(client->IsConnectingAllowed(), state != 2 && state != 3) << state;
  }
}

class ClientSubscription : public tests::ClientTest {
 protected:
  // Up to a client that has subscribed.
  void BeginSubscribed() {
    Begin();
    (void)Round([&] { Connect(2); });
  }
};

TEST_F(ClientSubscription, ConnectionUsable_Subscribed) {
  Begin();
  EXPECT_THAT(Round([&] { Connect(2); }), ElementsAre(kConnected, kDue, kSubscribed, kAsleep));
  EXPECT_EQ(unit.calls.Count(kSubscribe), 1);
}

TEST_F(ClientSubscription, ConnectionDegraded_Subscribed) {
  Begin();
  EXPECT_THAT(Round([&] { Connect(3); }),
              ElementsAre("debug: Connection state notification, new state: 3", kDue, kSubscribed,
                          kAsleep));
}

TEST_F(ClientSubscription, Subscribed_NotAgain) {
  BeginSubscribed();
  EXPECT_THAT(Round([&] { Connect(2); }), ElementsAre(kConnected, kAsleep));
}

// Only a refusal that the broker tells leads to another try.
TEST_F(ClientSubscription, RequestFails_ToldAndNotTriedAgain) {
  unit.broker.subscribe = 1;
  Begin();
  EXPECT_THAT(Round([&] { Connect(2); }),
              ElementsAre(kConnected, kDue, "error: MQTT Subscription FAILED!", kAsleep));
  EXPECT_THAT(Round([&] { Connect(2); }), ElementsAre(kConnected, kAsleep));
}

TEST_F(ClientSubscription, AskedForAgain_AtOnce) {
  BeginSubscribed();
  EXPECT_THAT(Round([&] { client->MQTTResubscribeCb(); }),
              ElementsAre(kAgain, kDue, kSubscribed, kAsleep));
}

TEST_F(ClientSubscription, AskedForAgainUnconnected_WhenConnected) {
  Begin();
  EXPECT_THAT(Round([&] { client->MQTTResubscribeCb(); }), ElementsAre(kAgain, kAsleep));
  EXPECT_THAT(Round([&] { Connect(2); }), ElementsAre(kConnected, kDue, kSubscribed, kAsleep));
}

TEST_F(ClientSubscription, Refused_AfterMinute) {
  BeginSubscribed();
  EXPECT_THAT(Round([&] { client->MQTTSubscribeFailedCb(); }), ElementsAre(kFailed, Wait(61)));
  unit.AdvanceClock(seconds(59));
  EXPECT_THAT(Round([&] { client->SendTrigger(); }), ElementsAre(Wait(2)));
  unit.AdvanceClock(nanoseconds(1));
  EXPECT_THAT(Round([&] { client->SendTrigger(); }), ElementsAre(kDue, kSubscribed, kAsleep));
}

TEST_F(ClientSubscription, LongOverdue_AtOnce) {
  BeginSubscribed();
  (void)Round([&] { client->MQTTSubscribeFailedCb(); });
  unit.AdvanceClock(std::chrono::hours(1));
  EXPECT_THAT(Round([&] { client->SendTrigger(); }), ElementsAre(kDue, kSubscribed, kAsleep));
}

TEST_F(ClientSubscription, RefusedThenLost_PauseIsOver) {
  BeginSubscribed();
  (void)Round([&] { client->MQTTSubscribeFailedCb(); });
  EXPECT_THAT(Round([&] { client->MQTTResubscribeCb(); }),
              ElementsAre(kAgain, kDue, kSubscribed, kAsleep));
}

TEST_F(ClientSubscription, WhileSuspended_Subscribed) {
  Begin();
  (void)Round([&] { Request(State::kPrepSD, 1); });
  EXPECT_THAT(Round([&] { Connect(2); }), ElementsAre(kConnected, kDue, kSubscribed, kAsleep));
}

// The wait is counted by the loop itself, without a trigger.
TEST_F(ClientSubscription, TimeComes_SubscribedWithoutTrigger) {
  BeginSubscribed();
  (void)Round([&] { client->MQTTSubscribeFailedCb(); });
  unit.AdvanceClock(seconds(59));
  EXPECT_THAT(Round([&] { client->SendTrigger(); }), ElementsAre(Wait(2)));
  unit.AdvanceClock(seconds(1));
  EXPECT_TRUE(unit.calls.WaitFor(kSubscribe));
}

}  // namespace
}  // namespace truststore_update_client
