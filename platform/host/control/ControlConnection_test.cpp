#include "platform/host/control/ControlConnection.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ControlPeer.h"

namespace platform_host {
namespace {

using nlohmann::json;
using ::testing::StartsWith;

constexpr const char* kStatus = R"({"command":"status"})";
constexpr const char* kEmptyStatus = R"({"ok":true,"status":{}})";

std::array<support::UniqueFd, 2> MakePair() {
  std::array<int, 2> ends{-1, -1};
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  EXPECT_EQ(::fcntl(ends[0], F_SETFL, O_NONBLOCK), 0);
  return {support::UniqueFd(ends[0]), support::UniqueFd(ends[1])};
}

/// A connection, its client, and what the control thread would do, step by step.
class ControlConnectionTest : public ::testing::Test {
 protected:
  /// Serves what is ready now, until nothing is.
  void ServeReady() {
    while (ServeOnce()) {
    }
  }

  /// Returns false when nothing is ready.
  bool ServeOnce() {
    pollfd wait{connection.Descriptor(), connection.NeedsNow(), 0};
    const bool isReady = ::poll(&wait, 1, 0) == 1 || connection.HasRequest();
    if (connection.IsFinished() || !isReady) return false;
    connection.Serve(wait.revents);
    return true;
  }

  std::string Ask(const std::string& line) {
    EXPECT_TRUE(client.Send(line));
    ServeReady();
    return client.ReadLine();
  }

  /// What the client can read without waiting.
  std::string ReadNow() {
    std::string bytes(65536, '\0');
    std::string all;
    ssize_t count = 0;
    while ((count = ::recv(client.Descriptor(), bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0) {
      all.append(bytes, 0, static_cast<std::size_t>(count));
    }
    return all;
  }

  /// Offers a command "later" whose reply is kept.
  void OfferLater() {
    later = board.OfferCommand("later",
                               [this](const json&, const ControlReply& reply) { kept = reply; });
  }

  /// Offers a status part so that the status' line, with its end, has `size` bytes.
  void OfferStatusOf(std::size_t size) {
    const std::string frame = "{\"ok\":true,\"status\":{\"part\":\"\"}}\n";
    later =
        board.OfferStatus("part", [text = std::string(size - frame.size(), 'x')] { return text; });
  }

  ControlBoard board;
  std::array<support::UniqueFd, 2> ends = MakePair();
  const std::shared_ptr<const WakeEvent> wake = std::make_shared<const WakeEvent>();
  ControlConnection connection{std::move(ends[0]), board, wake};
  tests::ControlPeer client{std::move(ends[1])};
  std::optional<ControlReply> kept;
  std::unique_ptr<ControlBoard::Offer> later;
};

TEST_F(ControlConnectionTest, Request_Answered) {
  EXPECT_EQ(Ask(kStatus), kEmptyStatus);
  EXPECT_FALSE(connection.IsFinished());
}

TEST_F(ControlConnectionTest, RequestByteByByte_Answered) {
  for (const char byte : std::string(kStatus)) {
    ASSERT_TRUE(tests::SendAll(client.Descriptor(), std::string(1, byte)));
    ServeReady();
  }
  EXPECT_EQ(Ask(""), kEmptyStatus);
}

TEST_F(ControlConnectionTest, SeveralRequestsAtOnce_AnsweredInOrder) {
  const std::string unknown = R"({"ok":false,"error":"nobody serves the command \"x\" here"})";
  ASSERT_TRUE(client.Send(std::string(kStatus) + "\n{\"command\":\"x\"}\n" + kStatus));
  ServeReady();
  EXPECT_EQ(client.ReadLine(), kEmptyStatus);
  EXPECT_EQ(client.ReadLine(), unknown);
  EXPECT_EQ(client.ReadLine(), kEmptyStatus);
}

TEST_F(ControlConnectionTest, SeveralRequestsAtOnce_OneServedEachTime) {
  int calls = 0;
  const auto counting = board.OfferCommand("count", [&calls](const json&, const ControlReply& to) {
    ++calls;
    to.Answer({});
  });
  const std::string count = R"({"command":"count"})";
  ASSERT_TRUE(client.Send(count + '\n' + count));
  ASSERT_TRUE(ServeOnce());
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(connection.HasRequest());
  ASSERT_TRUE(ServeOnce());
  EXPECT_EQ(calls, 2);
  EXPECT_FALSE(connection.HasRequest());
  EXPECT_FALSE(ServeOnce());
}

TEST_F(ControlConnectionTest, AsManyRequestsAsAreReadAtOnce_AllAnswered) {
  const std::string lines(ControlConnection::kMaxLineBytes + 1, '\n');
  ASSERT_TRUE(tests::SendAll(client.Descriptor(), lines));
  std::string answers;
  while (ServeOnce()) answers += ReadNow();
  EXPECT_EQ(std::count(answers.begin(), answers.end(), '\n'), lines.size());
  EXPECT_FALSE(connection.IsFinished());
}

TEST_F(ControlConnectionTest, UnusableLine_ErrorAndConnectionStays) {
  EXPECT_EQ(Ask("\xFF"), R"({"ok":false,"error":"the request is not JSON in UTF-8"})");
  EXPECT_EQ(Ask("[]"), R"({"ok":false,"error":"the request is not an object"})");
  EXPECT_EQ(Ask(kStatus), kEmptyStatus);
}

TEST_F(ControlConnectionTest, LongestLine_Answered) {
  const std::string padding(ControlConnection::kMaxLineBytes - std::string(kStatus).size(), ' ');
  EXPECT_EQ(Ask(kStatus + padding), kEmptyStatus);
}

TEST_F(ControlConnectionTest, LineOneByteTooLong_RefusedAndClosed) {
  const std::string padding(ControlConnection::kMaxLineBytes + 1 - std::string(kStatus).size(),
                            ' ');
  EXPECT_EQ(Ask(kStatus + padding),
            R"({"ok":false,"error":"the request is longer than 4096 bytes"})");
  EXPECT_TRUE(connection.IsFinished());
}

TEST_F(ControlConnectionTest, BytesWithoutLineEnd_RefusedAtTheLimit) {
  ASSERT_TRUE(
      tests::SendAll(client.Descriptor(), std::string(ControlConnection::kMaxLineBytes, '[')));
  ServeReady();
  EXPECT_FALSE(connection.IsFinished());
  ASSERT_TRUE(tests::SendAll(client.Descriptor(), "["));
  ServeReady();
  EXPECT_TRUE(connection.IsFinished());
}

TEST_F(ControlConnectionTest, AnswerLater_SentWhenItIsThere) {
  OfferLater();
  ASSERT_TRUE(client.Send(R"({"command":"later"})"));
  ServeReady();
  EXPECT_EQ(connection.NeedsNow(), 0);
  std::thread([reply = std::exchange(kept, std::nullopt)] { reply->Answer({}); }).join();
  ASSERT_TRUE(tests::WaitFor(wake->Descriptor(), POLLIN));
  connection.Serve(0);
  EXPECT_EQ(client.ReadLine(), R"({"ok":true})");
}

TEST_F(ControlConnectionTest, LinesDuringARequest_WaitForItsAnswer) {
  OfferLater();
  ASSERT_TRUE(client.Send(std::string(R"({"command":"later"})") + "\n" + kStatus));
  ServeReady();
  kept->Answer({});
  connection.Serve(0);
  EXPECT_EQ(client.ReadLine(), R"({"ok":true})");
  ServeReady();
  EXPECT_EQ(client.ReadLine(), kEmptyStatus);
}

TEST_F(ControlConnectionTest, ClientGoneDuringARequest_ReplyDropped) {
  OfferLater();
  ASSERT_TRUE(client.Send(R"({"command":"later"})"));
  ServeReady();
  client.Close();
  ServeReady();
  EXPECT_TRUE(connection.IsFinished());
  kept->Answer({});
}

TEST_F(ControlConnectionTest, ClientThatOnlyEndsSending_StillAnswered) {
  OfferLater();
  ASSERT_TRUE(client.Send(R"({"command":"later"})"));
  ASSERT_EQ(::shutdown(client.Descriptor(), SHUT_WR), 0);
  ServeReady();
  EXPECT_FALSE(connection.IsFinished());
  kept->Answer({});
  connection.Serve(0);
  EXPECT_EQ(client.ReadLine(), R"({"ok":true})");
  ServeReady();
  EXPECT_TRUE(connection.IsFinished());
}

TEST_F(ControlConnectionTest, ClientGoneInTheMiddleOfALine_LineIgnored) {
  OfferLater();
  ASSERT_TRUE(tests::SendAll(client.Descriptor(), R"({"command":"later"})"));
  client.Close();
  ServeReady();
  EXPECT_TRUE(connection.IsFinished());
  EXPECT_FALSE(kept);
}

TEST_F(ControlConnectionTest, ClientGoneBehindItsRequest_RequestServed) {
  OfferLater();
  ASSERT_TRUE(client.Send(R"({"command":"later"})"));
  client.Close();
  ServeReady();
  EXPECT_TRUE(kept);
  EXPECT_TRUE(connection.IsFinished());
}

TEST_F(ControlConnectionTest, ClientGoneBeforeItsAnswer_FinishedWithoutSignal) {
  ASSERT_TRUE(client.Send(kStatus));
  client.Close();
  ServeReady();
  EXPECT_TRUE(connection.IsFinished());
}

TEST_F(ControlConnectionTest, AnswerLongerThanTheSocketTakes_SentInPieces) {
  OfferStatusOf(ControlConnection::kMaxAnswerBytes);
  ASSERT_TRUE(client.Send(kStatus));
  ServeReady();
  EXPECT_EQ(connection.NeedsNow(), POLLOUT);
  std::string answer;
  while (answer.size() < ControlConnection::kMaxAnswerBytes) {
    const std::string piece = ReadNow();
    ASSERT_NE(piece, "");
    answer += piece;
    ServeReady();
  }
  EXPECT_EQ(answer.size(), ControlConnection::kMaxAnswerBytes);
  EXPECT_THAT(answer, StartsWith(R"({"ok":true,"status":{"part":"xxx)"));
  EXPECT_EQ(connection.NeedsNow(), POLLIN);
}

TEST_F(ControlConnectionTest, AnswerOneByteTooLong_Error) {
  OfferStatusOf(ControlConnection::kMaxAnswerBytes + 1);
  EXPECT_EQ(Ask(kStatus), R"({"ok":false,"error":"the answer is longer than 4194304 bytes"})");
}

TEST_F(ControlConnectionTest, ClientThatDoesNotReadItsAnswer_ServedNoFurther) {
  OfferStatusOf(ControlConnection::kMaxAnswerBytes);
  int calls = 0;
  const auto counting =
      board.OfferCommand("count", [&calls](const json&, const ControlReply&) { ++calls; });
  ASSERT_TRUE(client.Send(std::string(kStatus) + "\n{\"command\":\"count\"}"));
  ServeReady();
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(connection.NeedsNow(), POLLOUT);
}

TEST_F(ControlConnectionTest, ClientGoneDuringItsAnswer_Finished) {
  OfferStatusOf(ControlConnection::kMaxAnswerBytes);
  ASSERT_TRUE(client.Send(kStatus));
  ServeReady();
  client.Close();
  ServeReady();
  EXPECT_TRUE(connection.IsFinished());
}

TEST_F(ControlConnectionTest, Finish_AnswerThatIsThereSent) {
  OfferLater();
  ASSERT_TRUE(client.Send(std::string(R"({"command":"later"})") + "\n" + kStatus));
  ServeReady();
  kept.reset();
  connection.Finish();
  EXPECT_EQ(client.ReadLine(), R"({"ok":false,"error":"the process is ending"})");
  pollfd wait{client.Descriptor(), POLLIN, 0};
  EXPECT_EQ(::poll(&wait, 1, 0), 0) << "the second request was served";
}

}  // namespace
}  // namespace platform_host
