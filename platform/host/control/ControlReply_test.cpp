#include "platform/host/control/ControlReply.h"

#include <gmock/gmock.h>

#include <thread>
#include <vector>

#include "tests/support/EventLog.h"

namespace platform_host {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;

class ControlReplyTest : public ::testing::Test {
 protected:
  [[nodiscard]] ControlReply Make() {
    return ControlReply([this](const std::string& line) { lines.Add(line); });
  }

  tests::EventLog lines;
};

TEST_F(ControlReplyTest, Answer_MembersBehindOk) {
  Make().Answer(json{{"state", "kOn"}, {"sequence", 3}});
  EXPECT_THAT(lines.Texts(), ElementsAre(R"({"ok":true,"sequence":3,"state":"kOn"})"));
}

TEST_F(ControlReplyTest, AnswerWithoutMembers_OkAlone) {
  Make().Answer({});
  Make().Answer(json::object());
  EXPECT_THAT(lines.Texts(), ElementsAre(R"({"ok":true})", R"({"ok":true})"));
}

TEST_F(ControlReplyTest, Refuse_ErrorTold) {
  Make().Refuse("unknown state");
  EXPECT_THAT(lines.Texts(), ElementsAre(R"({"ok":false,"error":"unknown state"})"));
}

TEST_F(ControlReplyTest, BytesThatAreNoText_Replaced) {
  Make().Refuse("a\xFF\n\x01");
  EXPECT_THAT(lines.Texts(), ElementsAre(R"({"ok":false,"error":"a)"
                                         "\xEF\xBF\xBD"
                                         R"(\n\u0001"})"));
}

TEST_F(ControlReplyTest, SecondAnswer_FirstCounts) {
  const ControlReply reply = Make();
  const ControlReply copy = reply;
  copy.Refuse("busy");
  reply.Answer({});
  EXPECT_THAT(lines.Texts(), ElementsAre(R"({"ok":false,"error":"busy"})"));
}

TEST_F(ControlReplyTest, LastCopyEndsWithoutAnswer_Refused) {
  std::vector<ControlReply> copies(2, Make());
  copies.pop_back();
  EXPECT_THAT(lines.Texts(), ElementsAre());
  copies.pop_back();
  EXPECT_THAT(lines.Texts(), ElementsAre(R"({"ok":false,"error":"the process is ending"})"));
}

TEST_F(ControlReplyTest, ManyThreadsAnswer_OneAnswerDelivered) {
  const ControlReply reply = Make();
  std::vector<std::thread> threads;
  for (int index = 0; index < 4; ++index) {
    threads.emplace_back([reply, index] { reply.Answer(json{{"index", index}}); });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(lines.Texts().size(), 1U);
}

}  // namespace
}  // namespace platform_host
