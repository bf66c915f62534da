#include "platform/host/control/ControlBoard.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <new>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/support/Deadline.h"
#include "tests/support/EventLog.h"

namespace platform_host {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;

/// What a board answers at once; empty when it does not.
std::string Ask(ControlBoard& board, const std::string& line) {
  std::string answer;
  std::optional<ControlReply> reply(
      ControlReply([&answer](std::string text) { answer = std::move(text); }));
  board.Serve(line, *reply);
  return answer;
}

std::string Status(ControlBoard& board) {
  return Ask(board, R"({"command":"status"})");
}

ControlBoard::StatusPart Constant(const json& value) {
  return [value] { return value; };
}

TEST(ControlBoard, NothingOffered_StatusEmpty) {
  ControlBoard board;
  EXPECT_EQ(Status(board), R"({"ok":true,"status":{}})");
}

TEST(ControlBoard, SeveralParts_AllInStatus) {
  ControlBoard board;
  const auto session = board.OfferStatus("session", Constant({{"status", 2}}));
  const auto broker = board.OfferStatus("broker", Constant(nullptr));
  EXPECT_EQ(Status(board), R"({"ok":true,"status":{"broker":null,"session":{"status":2}}})");
}

TEST(ControlBoard, PartOfferedAgain_NewestCounts) {
  ControlBoard board;
  const auto older = board.OfferStatus("part", Constant(1));
  auto newer = board.OfferStatus("part", Constant(2));
  EXPECT_EQ(Status(board), R"({"ok":true,"status":{"part":2}})");
  newer.reset();
  EXPECT_EQ(Status(board), R"({"ok":true,"status":{"part":1}})");
}

TEST(ControlBoard, OfferEnded_PartGone) {
  ControlBoard board;
  board.OfferStatus("part", Constant(1)).reset();
  EXPECT_EQ(Status(board), R"({"ok":true,"status":{}})");
}

TEST(ControlBoard, PartThatThrows_ErrorInItsPlace) {
  ControlBoard board;
  const auto good = board.OfferStatus("good", Constant(1));
  const auto bad =
      board.OfferStatus("bad", []() -> json { throw std::runtime_error("disk gone"); });
  const auto worse = board.OfferStatus("worse", []() -> json { throw 1; });
  EXPECT_EQ(Status(board), R"({"ok":true,"status":{"bad":{"error":"disk gone"},"good":1,)"
                           R"("worse":{"error":"failed"}}})");
}

TEST(ControlBoard, Command_HearsItsRequest) {
  ControlBoard board;
  const auto offer =
      board.OfferCommand("connection", [](const json& request, const ControlReply& reply) {
        reply.Answer(json{{"state", request.at("state")}});
      });
  EXPECT_EQ(Ask(board, R"({"command":"connection","state":2})"), R"({"ok":true,"state":2})");
}

TEST(ControlBoard, CommandThatThrows_Refused) {
  ControlBoard board;
  const auto offer = board.OfferCommand(
      "state", [](const json&, const ControlReply&) { throw std::runtime_error("broken"); });
  EXPECT_EQ(Ask(board, R"({"command":"state"})"), R"({"ok":false,"error":"broken"})");
}

TEST(ControlBoard, CommandThatForgetsTheReply_Refused) {
  ControlBoard board;
  const auto offer = board.OfferCommand("state", [](const json&, const ControlReply&) {});
  std::vector<std::string> answers;
  {
    const ControlReply reply([&](std::string line) { answers.push_back(std::move(line)); });
    board.Serve(R"({"command":"state"})", reply);
    EXPECT_THAT(answers, ElementsAre());
  }
  EXPECT_THAT(answers, ElementsAre(R"({"ok":false,"error":"the process is ending"})"));
}

TEST(ControlBoard, CommandThatKeepsTheReply_AnsweredLater) {
  ControlBoard board;
  std::optional<ControlReply> kept;
  const auto offer = board.OfferCommand(
      "state", [&kept](const json&, const ControlReply& reply) { kept = reply; });
  std::string answer;
  board.Serve(R"({"command":"state"})",
              ControlReply([&](std::string line) { answer = std::move(line); }));
  EXPECT_EQ(answer, "");
  kept->Answer(json{{"sequence", 1}});
  EXPECT_EQ(answer, R"({"ok":true,"sequence":1})");
}

TEST(ControlBoard, StatusPart_IsNoCommand) {
  ControlBoard board;
  const auto offer = board.OfferStatus("session", Constant(1));
  EXPECT_EQ(Ask(board, R"({"command":"session"})"),
            R"({"ok":false,"error":"nobody serves the command \"session\" here"})");
}

TEST(ControlBoard, UnusableRequest_Refused) {
  ControlBoard board;
  struct Case {
    std::string line;
    std::string error;
  };
  const std::string noJson = "the request is not JSON in UTF-8";
  const std::string noObject = "the request is not an object";
  const std::string noCommand = R"(the request has no \"command\" that is a text)";
  const std::vector<Case> cases = {
      {"", noJson},
      {" ", noJson},
      {"status", noJson},
      {"{", noJson},
      {R"({"command":"status"}})", noJson},
      {R"({"command":"status"} {"command":"status"})", noJson},
      {R"({"command":"status",})", noJson},
      {R"({'command':'status'})", noJson},
      {R"({"command":"status"} // a comment)", noJson},
      {std::string("{\"command\":\"status\"}\0", 21), noJson},
      {std::string("\0", 1), noJson},
      {"{\"command\":\"\xFF\"}", noJson},
      {"{\"command\":\"\xC3\"}", noJson},
      {"{\"command\":\"\xED\xA0\x80\"}", noJson},
      {R"({"command":"\uD800"})", noJson},
      {R"({"number":1e999})", noJson},
      {std::string(4096, '['), noJson},
      {std::string(2048, '[') + std::string(2048, ']'), noObject},
      {"null", noObject},
      {"[]", noObject},
      {R"("status")", noObject},
      {"1", noObject},
      {"{}", noCommand},
      {R"({"Command":"status"})", noCommand},
      {R"({"command":null})", noCommand},
      {R"({"command":1})", noCommand},
      {R"({"command":["status"]})", noCommand},
      {R"({"command":""})", R"(nobody serves the command \"\" here)"},
      {R"({"command":"Status"})", R"(nobody serves the command \"Status\" here)"},
      {R"({"command":"a\nb"})", R"(nobody serves the command \"a\nb\" here)"},
  };
  for (const auto& one : cases) {
    EXPECT_EQ(Ask(board, one.line), R"({"ok":false,"error":")" + one.error + "\"}") << one.line;
  }
}

TEST(ControlBoard, BlanksAndFurtherMembers_Accepted) {
  ControlBoard board;
  for (const char* line : {" { \"command\" : \"status\" } ", "{\"command\":\"status\"}\r",
                           R"({"x":[{}],"command":"status"})", R"({"command":"st\u0061tus"})"}) {
    EXPECT_EQ(Ask(board, line), R"({"ok":true,"status":{}})") << line;
  }
}

TEST(ControlBoard, OfferEndsDuringItsCall_EndWaits) {
  ControlBoard board;
  std::promise<void> entered;
  std::promise<void> leave;
  std::atomic<bool> hasLeft{false};
  auto offer = board.OfferStatus("part", [&] {
    entered.set_value();
    leave.get_future().wait();
    hasLeft = true;
    return json(1);
  });
  auto asked = std::async(std::launch::async, [&] { return Status(board); });
  entered.get_future().wait();
  std::promise<void> ending;
  auto ended = std::async(std::launch::async, [&] {
    ending.set_value();
    offer.reset();
    return hasLeft.load();
  });
  ending.get_future().wait();
  // Time enough for an end that does not wait.
  for (int count = 0; count < 100; ++count) std::this_thread::yield();
  leave.set_value();
  EXPECT_TRUE(ended.get());
  EXPECT_EQ(asked.get(), R"({"ok":true,"status":{"part":1}})");
}

TEST(ControlBoard, OtherOffersDuringACall_ComeAndGo) {
  ControlBoard board;
  const auto part = board.OfferStatus("part", [&] {
    const auto inside = board.OfferStatus("inside", Constant(1));
    return json(2);
  });
  EXPECT_EQ(Status(board), R"({"ok":true,"status":{"part":2}})");
}

TEST(ControlBoard, CallThatThrew_OfferCanEnd) {
  ControlBoard board;
  auto offer = board.OfferStatus("part", []() -> json { throw std::bad_alloc(); });
  static_cast<void>(Status(board));
  EXPECT_TRUE(tests::EndsInTime([&] { offer.reset(); }, [] { std::abort(); }));
}

TEST(ControlBoard, SeveralThreadsAsk_OneCallAtATime) {
  ControlBoard board;
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  const auto offer = board.OfferStatus("part", [&] {
    const int now = ++inside;
    if (now > most) most = now;
    std::this_thread::yield();
    --inside;
    return json(1);
  });
  std::vector<std::future<void>> threads;
  for (int index = 0; index < 4; ++index) {
    threads.push_back(std::async(std::launch::async, [&board] {
      for (int count = 0; count < 50; ++count) {
        EXPECT_EQ(Status(board), R"({"ok":true,"status":{"part":1}})");
      }
    }));
  }
  for (auto& thread : threads) thread.get();
  EXPECT_EQ(most, 1);
}

TEST(ControlBoard, OffersComeAndGoWhileAsked_EveryAnswerWhole) {
  ControlBoard board;
  std::atomic<bool> isOver{false};
  auto offering = std::async(std::launch::async, [&] {
    while (!isOver) {
      const auto part = board.OfferStatus("part", Constant(1));
      const auto again = board.OfferStatus("part", Constant(1));
      const auto command = board.OfferCommand(
          "state", [](const json&, const ControlReply& reply) { reply.Answer({}); });
    }
  });
  for (int count = 0; count < 100; ++count) {
    const json answer = json::parse(Status(board));
    EXPECT_TRUE(answer.at("ok").get<bool>());
    EXPECT_NE(Ask(board, R"({"command":"state"})"), "");
  }
  isOver = true;
  offering.get();
}

TEST(ControlBoard, OfProcess_AlwaysTheSame) {
  EXPECT_EQ(&ControlBoard::OfProcess(), &ControlBoard::OfProcess());
}

}  // namespace
}  // namespace platform_host
