#include "tools/platformctl/Question.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include "platform/host/control/ControlConnection.h"
#include "platform/host/control/ControlListener.h"
#include "tests/support/ControlPeer.h"
#include "tests/support/TemporaryDirectory.h"

namespace platformctl {
namespace {

using nlohmann::json;
using platform_host::ControlListener;

constexpr std::chrono::seconds kLong = tests::kDeadline;
constexpr std::chrono::milliseconds kShort{20};

/// An answer of so many objects and arrays within each other.
std::string AnswerOfDepth(int depth) {
  const auto arrays = static_cast<std::size_t>(depth - 1);
  return R"({"ok":true,"part":)" + std::string(arrays, '[') + std::string(arrays, ']') + "}";
}

class QuestionTest : public ::testing::Test {
 protected:
  /// What a question comes to: the answer, or "failed: " and why.
  [[nodiscard]] std::string Outcome(std::chrono::milliseconds patience) const {
    const auto answer = Ask(path, {{{"command", "status"}}, patience, "too late"});
    return answer.Ok() ? answer.Value().dump() : "failed: " + answer.Failure().Text();
  }

  /// As Outcome, where a server reads the request and answers with these bytes, then closes.
  [[nodiscard]] std::string OutcomeOf(const std::string& bytes) const {
    const auto listener = Listen();
    auto served = std::async(std::launch::async, [&] {
      EXPECT_TRUE(tests::WaitFor(listener->Descriptor(), POLLIN));
      const tests::ControlPeer client(listener->Accept());
      EXPECT_EQ(::fcntl(client.Descriptor(), F_SETFL, 0), 0);
      EXPECT_EQ(client.ReadLine(), R"({"command":"status"})");
      static_cast<void>(tests::SendAll(client.Descriptor(), bytes));
    });
    return Outcome(kLong);
  }

  [[nodiscard]] std::unique_ptr<ControlListener> Listen() const {
    auto opened = ControlListener::Open(path);
    EXPECT_TRUE(opened.Ok());
    return std::move(opened).Take();
  }

  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/control.sock";
};

TEST_F(QuestionTest, Answer_Returned) {
  EXPECT_EQ(OutcomeOf("{\"ok\":true,\"status\":{}}\n"), R"({"ok":true,"status":{}})");
}

TEST_F(QuestionTest, Refusal_ItsText) {
  EXPECT_EQ(OutcomeOf("{\"ok\":false,\"error\":\"busy\"}\n"), "failed: busy");
}

TEST_F(QuestionTest, DeepestAnswer_Returned) {
  const std::string answer = AnswerOfDepth(kMaxAnswerDepth);
  EXPECT_EQ(OutcomeOf(answer + '\n'), answer);
}

TEST_F(QuestionTest, AnswerTooDeep_NoAnswer) {
  for (const int depth : {kMaxAnswerDepth + 1, 1000000}) {
    EXPECT_EQ(OutcomeOf(AnswerOfDepth(depth) + '\n'),
              "failed: " + path + ": what it answers is no answer");
  }
}

TEST_F(QuestionTest, AnythingElse_NoAnswer) {
  const std::vector<std::string> cases = {
      "\n",
      "{}\n",
      "[]\n",
      "null\n",
      "x\n",
      "{\"ok\":1}\n",
      "\xFF\n",
      "{\"ok\":false}\n",
      "true\n",
      "{\"ok\":true\n",
      "{\"ok\":false,\"error\":7}\n",
  };
  for (const auto& one : cases) {
    EXPECT_EQ(OutcomeOf(one), "failed: " + path + ": what it answers is no answer") << one;
  }
}

TEST_F(QuestionTest, ConnectionEnds_Told) {
  const std::string ended =
      "failed: " + path + ": closed without an answer: the process has ended or serves too many";
  EXPECT_EQ(OutcomeOf(""), ended);
  EXPECT_EQ(OutcomeOf("{\"ok\":true"), ended);
}

/// An answer whose line, with its end, has `size` bytes.
std::string AnswerOf(std::size_t size) {
  const std::string frame = "{\"ok\":true,\"x\":\"\"}\n";
  return "{\"ok\":true,\"x\":\"" + std::string(size - frame.size(), 'x') + "\"}\n";
}

TEST_F(QuestionTest, LongestAnswer_Returned) {
  const std::string answer = AnswerOf(platform_host::ControlConnection::kMaxAnswerBytes);
  EXPECT_EQ(OutcomeOf(answer) + '\n', answer);
}

TEST_F(QuestionTest, AnswerOneByteTooLong_NoAnswer) {
  const std::string answer = AnswerOf(platform_host::ControlConnection::kMaxAnswerBytes + 1);
  EXPECT_EQ(OutcomeOf(answer), "failed: " + path + ": what it answers is no answer");
}

TEST_F(QuestionTest, NobodyServes_Told) {
  EXPECT_EQ(Outcome(kLong), "failed: no process serves " + path + ": No such file or directory");
  const std::string aside = directory.Path() + "/aside";
  {
    const auto listener = Listen();
    std::filesystem::rename(path, aside);
  }
  std::filesystem::rename(aside, path);
  EXPECT_EQ(Outcome(kLong), "failed: no process serves " + path + ": Connection refused");
}

TEST_F(QuestionTest, SocketOfAnotherKind_Told) {
  const support::UniqueFd datagrams(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(datagrams.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
  EXPECT_EQ(Outcome(kLong),
            "failed: cannot connect to " + path + ": Protocol wrong type for socket");
}

TEST_F(QuestionTest, NobodyAnswers_LateOnceThePatienceIsOver) {
  const auto listener = Listen();
  EXPECT_EQ(Outcome(kShort), "failed: too late");
}

TEST_F(QuestionTest, TooManyWaitToBeAccepted_LateOnceThePatienceIsOver) {
  const auto listener = Listen();
  std::vector<tests::ControlPeer> waiting;
  for (int count = 0; count <= ControlListener::kBacklog; ++count) waiting.emplace_back(path);
  EXPECT_EQ(Outcome(kShort), "failed: too late");
}

}  // namespace
}  // namespace platformctl
