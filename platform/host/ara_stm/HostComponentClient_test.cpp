#include "platform/host/ara_stm/HostComponentClient.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include <atomic>
#include <future>
#include <optional>
#include <stdexcept>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/EventLog.h"

namespace platform_host {
namespace {

using ara::stm::ComponentClient;
using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string NameOfThread() {
  char name[16] = "";
  ::pthread_getname_np(::pthread_self(), name, sizeof name);
  return name;
}

/// A component on a board of the test's own.
class Component : public ::testing::Test {
 protected:
  void Make(ara::stm::StateChangeHandler handler) {
    client.emplace("unit", std::move(handler), board, nullptr);
  }

  /// Makes a component whose handler notes "STATE SEQUENCE on THREAD".
  void MakeRecorder() {
    Make([this](const ComponentClient&, std::uint32_t sequence, const std::string& state) {
      heard.Add(state + " " + std::to_string(sequence) + " on " + NameOfThread());
    });
  }

  /// What somebody at the control socket does; the answer is noted.
  void Serve(const std::string& line) {
    board.Serve(line, ControlReply([this](const std::string& answer) { answers.Add(answer); }));
  }

  void Demand(const std::string& state) {
    Serve(R"({"command": "state", "state": ")" + state + R"("})");
  }

  const CapturedLog log;
  tests::EventLog heard;
  tests::EventLog answers;
  ControlBoard board;
  std::optional<HostComponentClient> client;  // last: its end answers what waits
};

TEST_F(Component, Demanded_HandlerCalledOnThreadOfItsOwn) {
  MakeRecorder();
  Demand("kPrepSD");
  Demand("kOn");
  EXPECT_THAT(heard.WaitForCount(2), ElementsAre("kPrepSD 1 on AraStm", "kOn 2 on AraStm"));
  EXPECT_THAT(answers.Texts(), IsEmpty());
}

TEST_F(Component, Confirmed_Answered) {
  MakeRecorder();
  Demand("kPrepSD");
  ASSERT_EQ(heard.WaitForCount(1).size(), 1U);
  client->ConfirmState(1, "kPrepSD");
  EXPECT_THAT(answers.Texts(), ElementsAre(R"({"ok":true,"sequence":1,"state":"kPrepSD"})"));
}

TEST_F(Component, ConfirmedInsideHandler_Answered) {
  std::promise<ComponentClient*> made;
  Make([ready = made.get_future().share()](const ComponentClient& own, std::uint32_t sequence,
                                           const std::string& state) {
    EXPECT_EQ(ready.get(), &own);
    ready.get()->ConfirmState(sequence, state);
  });
  made.set_value(&*client);
  Demand("kOn");
  EXPECT_THAT(answers.WaitForCount(1), ElementsAre(R"({"ok":true,"sequence":1,"state":"kOn"})"));
}

TEST_F(Component, Status_ShowsComponent) {
  MakeRecorder();
  Demand("kOn");
  Serve(R"({"command": "status"})");
  EXPECT_EQ(json::parse(answers.Texts().at(0))["status"], json::parse(R"({"component":
      {"name": "unit", "requested": {"state": "kOn", "sequence": 1}, "confirmed": null}})"));
}

TEST_F(Component, RequestsWithoutState_Refused) {
  MakeRecorder();
  Serve(R"({"command": "state"})");
  Serve(R"({"command": "state", "state": 1})");
  Serve(R"({"command": "state", "state": null})");
  Demand("kSleep");
  const std::string refused =
      R"({"ok":false,"error":"the request has no \"state\" that is a text"})";
  EXPECT_THAT(answers.Texts(), ElementsAre(refused, refused, refused,
                                           R"({"ok":false,"error":"unknown state \"kSleep\""})"));
}

TEST_F(Component, HandlerThrows_OneErrorLineAndNextOneCalled) {
  Make([this](const ComponentClient&, std::uint32_t sequence, const std::string&) {
    heard.Add(std::to_string(sequence));
    if (sequence == 1) throw std::runtime_error("no");
    throw sequence;
  });
  Demand("kOn");
  Demand("kOn");
  EXPECT_THAT(heard.WaitForCount(2), ElementsAre("1", "2"));
  client.reset();
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: libara_stm: unit threw an exception at request 1: no",
                          "error: libara_stm: unit threw an exception at request 2: of an unknown "
                          "kind"));
}

TEST_F(Component, EndWithoutRequest_CommandGone) {
  MakeRecorder();
  client.reset();
  Demand("kOn");
  EXPECT_THAT(answers.Texts(),
              ElementsAre(R"({"ok":false,"error":"nobody serves the command \"state\" here"})"));
}

TEST_F(Component, EndDuringHandler_WaitsAndRefusesTheRest) {
  std::promise<void> released;
  Make([this, release = released.get_future().share()](const ComponentClient&, std::uint32_t,
                                                       const std::string&) {
    heard.Add("begun");
    release.wait();
    heard.Add("returned");
  });
  Demand("kOn");
  Demand("kPrepSD");
  ASSERT_TRUE(heard.WaitFor("begun"));
  auto end = std::async(std::launch::async, [this] {
    client.reset();
    heard.Add("ended");
  });
  EXPECT_EQ(answers.WaitForCount(2).size(), 2U) << "refused while the handler is still at work";
  released.set_value();
  end.get();
  EXPECT_THAT(heard.Texts(), ElementsAre("begun", "returned", "ended"));
  const std::string refused = R"({"ok":false,"error":"the process is ending"})";
  EXPECT_THAT(answers.Texts(), ElementsAre(refused, refused));
}

TEST_F(Component, End_ConnectionLetGoAfterAnswers) {
  std::shared_ptr<const void> connection(&board,
                                         [this](const void*) { answers.Add("connection closed"); });
  client.emplace(
      "unit", [](const ComponentClient&, std::uint32_t, const std::string&) {}, board,
      std::move(connection));
  Demand("kOn");
  client.reset();
  EXPECT_THAT(answers.Texts(),
              ElementsAre(R"({"ok":false,"error":"the process is ending"})", "connection closed"));
}

TEST_F(Component, RequestsConfirmationsAndEndAtOnce_EachAnsweredOnceAndNoCallAfterEnd) {
  std::atomic<bool> hasEnded{false};
  std::atomic<int> answered{0};
  std::promise<ComponentClient*> made;
  Make([&hasEnded, ready = made.get_future().share()](
           const ComponentClient&, std::uint32_t sequence, const std::string& state) {
    EXPECT_FALSE(hasEnded);
    ready.get()->ConfirmState(sequence, state);
  });
  made.set_value(&*client);
  constexpr int kDemands = 50;
  std::vector<std::thread> threads;
  for (int index = 0; index < 2; ++index) {
    threads.emplace_back([this, &answered] {
      for (int round = 0; round < kDemands; ++round) {
        board.Serve(R"({"command": "state", "state": "kOn"})",
                    ControlReply([&answered](const std::string&) { ++answered; }));
        board.Serve(R"({"command": "status"})", ControlReply([](const std::string&) {}));
      }
    });
  }
  client.reset();
  hasEnded = true;
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(answered, 2 * kDemands);
}

}  // namespace
}  // namespace platform_host
