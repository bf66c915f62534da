#include "platform/host/ara_stm/StateRequests.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/Deadline.h"

namespace platform_host {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Requests : public ::testing::Test {
 protected:
  /// Demands `state`; its answer goes to `answers`, as REQUEST: ANSWER.
  void Demand(const std::string& state) {
    const int number = ++demanded;
    const ControlReply reply([this, number](const std::string& line) {
      answers.push_back(std::to_string(number) + ": " + line);
    });
    requests.Add(state, reply);
  }

  /// The next request, as "STATE SEQUENCE"; "end" when there is none any more.
  std::string Taken() {
    const auto next = requests.Next();
    return next ? next->state + " " + std::to_string(next->sequence) : "end";
  }

  const CapturedLog log;
  std::vector<std::string> answers;
  int demanded = 0;
  StateRequests requests{"unit"};  // last: its end answers what waits
};

TEST_F(Requests, NothingYet_EmptyStatus) {
  EXPECT_EQ(requests.Status(), json::parse(R"({"name":"unit","requested":null,"confirmed":null})"));
}

TEST_F(Requests, Demanded_TakenInOrderWithNumbersFromOne) {
  Demand("kOn");
  Demand("kPrepSD");
  Demand("kOn");
  EXPECT_EQ(Taken(), "kOn 1");
  EXPECT_EQ(Taken(), "kPrepSD 2");
  EXPECT_EQ(Taken(), "kOn 3");
  EXPECT_THAT(answers, IsEmpty());
}

TEST_F(Requests, UnknownStates_RefusedWithoutNumber) {
  for (const char* const state : {"", "kon", "kOn ", "kRunning", "1"}) Demand(state);
  Demand("kOn");
  EXPECT_EQ(Taken(), "kOn 1");
  EXPECT_THAT(answers, ElementsAre(R"(1: {"ok":false,"error":"unknown state \"\""})",
                                   R"(2: {"ok":false,"error":"unknown state \"kon\""})",
                                   R"(3: {"ok":false,"error":"unknown state \"kOn \""})",
                                   R"(4: {"ok":false,"error":"unknown state \"kRunning\""})",
                                   R"(5: {"ok":false,"error":"unknown state \"1\""})"));
}

TEST_F(Requests, Confirmed_AnsweredAndShown) {
  Demand("kPrepSD");
  requests.Confirm(1, "kPrepSD");
  EXPECT_THAT(answers, ElementsAre(R"(1: {"ok":true,"sequence":1,"state":"kPrepSD"})"));
  EXPECT_EQ(requests.Status(), json::parse(R"({"name": "unit",
      "requested": {"state": "kPrepSD", "sequence": 1},
      "confirmed": {"state": "kPrepSD", "sequence": 1}})"));
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Requests, Unconfirmed_RequestAndLastConfirmationShown) {
  Demand("kOn");
  requests.Confirm(1, "kOn");
  Demand("kPrepSD");
  EXPECT_EQ(requests.Status()["requested"], (json{{"state", "kPrepSD"}, {"sequence", 2}}));
  EXPECT_EQ(requests.Status()["confirmed"], (json{{"state", "kOn"}, {"sequence", 1}}));
}

TEST_F(Requests, ConfirmedAgain_AnsweredOnce) {
  Demand("kOn");
  requests.Confirm(1, "kOn");
  requests.Confirm(1, "kOn");
  EXPECT_EQ(answers.size(), 1U);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Requests, LaterConfirmedFirst_EarlierRefused) {
  Demand("kOn");
  Demand("kPrepSD");
  Demand("kOn");
  requests.Confirm(2, "kPrepSD");
  EXPECT_THAT(answers, ElementsAre(R"(1: {"ok":false,"error":"superseded by request 2"})",
                                   R"(2: {"ok":true,"sequence":2,"state":"kPrepSD"})"));
  requests.Confirm(1, "kOn");
  EXPECT_EQ(requests.Status()["confirmed"]["sequence"], 2);
  requests.Confirm(3, "kOn");
  EXPECT_EQ(answers.back(), R"(3: {"ok":true,"sequence":3,"state":"kOn"})");
}

TEST_F(Requests, OtherStateConfirmed_Refused) {
  Demand("kPrepSD");
  requests.Confirm(1, "kOn");
  EXPECT_THAT(answers,
              ElementsAre(R"(1: {"ok":false,"error":"the component confirmed \"kOn\" instead"})"));
  EXPECT_EQ(requests.Status()["confirmed"]["state"], "kOn");
}

TEST_F(Requests, UnknownSequences_WarningAndNothingRecorded) {
  requests.Confirm(1, "kOn");
  Demand("kOn");
  requests.Confirm(0, "kOn");
  requests.Confirm(2, "kOn");
  EXPECT_THAT(answers, IsEmpty());
  EXPECT_EQ(requests.Status()["confirmed"], nullptr);
  const std::string begin = "warning: libara_stm: unit confirms request ";
  EXPECT_THAT(log.Lines(),
              ElementsAre(begin + "1, which nobody has made", begin + "0, which nobody has made",
                          begin + "2, which nobody has made"));
}

TEST_F(Requests, WaitingAtLimit_KeptAndOneMoreBusy) {
  for (std::size_t count = 0; count < StateRequests::kWaitingLimit; ++count) Demand("kOn");
  EXPECT_THAT(answers, IsEmpty());
  Demand("kOn");
  EXPECT_THAT(answers, ElementsAre(R"(17: {"ok":false,"error":"busy"})"));
  EXPECT_EQ(Taken(), "kOn 1");
  Demand("kPrepSD");
  EXPECT_EQ(answers.size(), 1U);
  EXPECT_EQ(requests.Status()["requested"]["sequence"], 17);
}

TEST_F(Requests, UnconfirmedAtLimit_KeptAndOldestGivenUpForOneMore) {
  for (std::size_t count = 0; count < StateRequests::kUnconfirmedLimit; ++count) {
    Demand("kOn");
    EXPECT_EQ(Taken(), "kOn " + std::to_string(count + 1));
  }
  EXPECT_THAT(answers, IsEmpty());
  Demand("kOn");
  EXPECT_THAT(answers,
              ElementsAre(R"(1: {"ok":false,"error":"not confirmed: too many later requests"})"));
  requests.Confirm(65, "kOn");
  EXPECT_EQ(answers.back(), R"(65: {"ok":true,"sequence":65,"state":"kOn"})");
}

TEST_F(Requests, End_EverythingRefusedAndNothingTaken) {
  Demand("kOn");
  Demand("kPrepSD");
  EXPECT_EQ(Taken(), "kOn 1");
  requests.End();
  Demand("kOn");
  EXPECT_EQ(Taken(), "end");
  const std::string refused = R"({"ok":false,"error":"the process is ending"})";
  EXPECT_THAT(answers, ElementsAre("1: " + refused, "2: " + refused, "3: " + refused));
}

TEST_F(Requests, ConfirmedAfterEnd_Recorded) {
  Demand("kOn");
  requests.End();
  requests.Confirm(1, "kOn");
  EXPECT_EQ(requests.Status()["confirmed"]["sequence"], 1);
}

TEST_F(Requests, EndWhileWaiting_WaitEnds) {
  EXPECT_TRUE(tests::EndsInTime(
      [this] {
        std::thread ender([this] { requests.End(); });
        EXPECT_EQ(Taken(), "end");
        ender.join();
      },
      [this] { requests.End(); }));
}

TEST_F(Requests, DemandsConfirmationsAndEndAtOnce_EachAnsweredOnce) {
  std::atomic<int> answered{0};
  constexpr int kDemands = 200;
  std::thread component([this] {
    while (const auto next = requests.Next()) requests.Confirm(next->sequence, next->state);
  });
  std::vector<std::thread> threads;
  for (int index = 0; index < 2; ++index) {
    threads.emplace_back([&] {
      for (int round = 0; round < kDemands; ++round) {
        requests.Add("kOn", ControlReply([&answered](const std::string&) { ++answered; }));
      }
    });
  }
  threads.emplace_back([&] {
    while (answered < kDemands) {
      EXPECT_TRUE(requests.Status().is_object());
    }
    requests.End();
  });
  for (auto& thread : threads) thread.join();
  component.join();
  EXPECT_EQ(answered, 2 * kDemands);
}

}  // namespace
}  // namespace platform_host
