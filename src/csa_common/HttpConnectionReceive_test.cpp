#include "csa_common/HttpConnection.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "support/UniqueFd.h"
#include "tests/support/HttpConnectionTest.h"

namespace csa_common {
namespace {

using platform_host::LogLevel;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::Answer;
using tests::PeerStream;

class HttpReceive : public tests::HttpConnectionTest {};

TEST_F(HttpReceive, ServerNeverAnswers_EmptyResponseAfterBothWaits) {
  pollPlan.results = {0, 0};
  EXPECT_EQ(Post([](PeerStream& peer) { peer.WaitForClose(); }), kHttpSuccess);
  EXPECT_THAT(pollPlan.timeouts, ElementsAre(20000, 10000));
  EXPECT_EQ(protocol.ResponseStatusCode(), 0);
  EXPECT_EQ(protocol.ResponsePayload(), "");
  EXPECT_EQ(log.Lines().at(3), "info: HttpConnection: Total received 0 bytes from socket");
  EXPECT_THAT(NewDescriptors(), IsEmpty());
}

TEST_F(HttpReceive, FirstAnswerLate_StillReceived) {
  pollPlan.results = {0};
  EXPECT_EQ(Post(Answer("HTTP/1.1 200 OK\r\n\r\nabc")), kHttpSuccess);
  EXPECT_EQ(protocol.ResponsePayload(), "abc");
}

TEST_F(HttpReceive, SilenceAfterPart_ResponseIsThatPart) {
  pollPlan.results = {std::nullopt, std::nullopt, 0};
  EXPECT_EQ(Post([](PeerStream& peer) {
              peer.ReadRequest();
              peer.Send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc");
              peer.WaitForClose();
            }),
            kHttpSuccess);
  EXPECT_EQ(protocol.ResponsePayload(), "abc");
}

TEST_F(HttpReceive, ShorterWaits_AreThoseOfTheConstructor) {
  fake.Connect([](PeerStream& peer) { peer.WaitForClose(); });
  const HttpConnection hasty(connector, std::chrono::milliseconds(2), std::chrono::milliseconds(1));
  EXPECT_EQ(hasty.Post(protocol, "Service", kUrl), kHttpSuccess);
  EXPECT_THAT(pollPlan.timeouts, ElementsAre(2, 1));
}

TEST_F(HttpReceive, ByteByByte_SameResponse) {
  EXPECT_EQ(Post([](PeerStream& peer) {
              peer.ReadRequest();
              peer.SendInPieces("HTTP/1.1 200 OK\r\n\r\nabc", 1);
            }),
            kHttpSuccess);
  EXPECT_EQ(protocol.ResponseStatusCode(), 200);
  EXPECT_EQ(protocol.ResponseHeader(), "HTTP/1.1 200 OK");
  EXPECT_EQ(protocol.ResponsePayload(), "abc");
}

TEST_F(HttpReceive, MoreThanOneChunk_ReadInChunks) {
  const std::string body(1501 - 19, 'x');
  EXPECT_EQ(Post([&](PeerStream& peer) {
              peer.ReadRequest();
              peer.SendInPieces("HTTP/1.1 200 OK\r\n\r\n" + body, 3000);
            }),
            kHttpSuccess);
  EXPECT_EQ(protocol.ResponsePayload(), body);
  const auto lines = log.Lines();
  EXPECT_EQ(lines.at(3), "info: HttpConnection: Read 1500 bytes from socket");
  EXPECT_EQ(lines.at(4), "info: HttpConnection: Read 1 bytes from socket");
  EXPECT_EQ(lines.at(6), "info: HttpConnection: Total received 1501 bytes from socket");
}

TEST_F(HttpReceive, LargeResponse_CompleteAndToldChunkByChunk) {
  const std::string body(1 << 20, 'x');
  EXPECT_EQ(Post(Answer("HTTP/1.1 200 OK\r\n\r\n" + body)), kHttpSuccess);
  EXPECT_EQ(protocol.ResponsePayload(), body);
  const std::string before = "info: HttpConnection: Read ";
  std::size_t told = 0;
  for (const std::string& line : log.Lines()) {
    if (line.compare(0, before.size(), before) != 0) continue;
    const std::size_t count = std::stoul(line.substr(before.size()));
    EXPECT_LE(count, 1500U);
    told += count;
  }
  EXPECT_EQ(told, body.size() + 19);
}

TEST_F(HttpReceive, PollFailsFirst_StreamLeftOpen) {
  pollPlan.results = {-1};
  EXPECT_EQ(Post([](PeerStream& peer) { peer.WaitForClose(); }), kHttpReceiveFailed);
  EXPECT_EQ(log.Lines().back(), "error: HttpConnection: Receive Timeout!");
  connector->Stop();
  ASSERT_THAT(NewDescriptors(), ::testing::SizeIs(1));
  ::close(std::stoi(NewDescriptors().front()));
}

TEST_F(HttpReceive, PollFailsLater_WhatWasReadIsDropped) {
  protocol.ParseResponse("HTTP/1.1 404 X\r\n\r\nbefore");
  pollPlan.results = {std::nullopt, std::nullopt, -1};
  EXPECT_EQ(Post([](PeerStream& peer) {
              peer.ReadRequest();
              peer.Send("HTTP/1.1 200 OK\r\n\r\nabc");
              peer.WaitForClose();
            }),
            kHttpReceiveFailed);
  EXPECT_EQ(protocol.ResponseStatusCode(), 404);
  EXPECT_EQ(protocol.ResponsePayload(), "before");
  EXPECT_EQ(log.Lines(LogLevel::kError),
            std::vector<std::string>{"error: HttpConnection: Receive Timeout!!"});
  connector->Stop();
  ASSERT_THAT(NewDescriptors(), ::testing::SizeIs(1));
  ::close(std::stoi(NewDescriptors().front()));
}

TEST_F(HttpReceive, StatusIsNoNumber_ThrowsAndCloses) {
  EXPECT_THROW(static_cast<void>(Post(Answer("HTTP/1.1 OK\r\n\r\nabc"))), std::invalid_argument);
  EXPECT_THAT(NewDescriptors(), IsEmpty());
}

TEST_F(HttpReceive, PutStatusIsNoNumber_ThrowsAndCloses) {
  fake.Connect(Answer("HTTP/1.1\r\n\r\n"));
  EXPECT_THROW(static_cast<void>(connection.Put(protocol, "Service", kUrl)), std::invalid_argument);
  EXPECT_THAT(NewDescriptors(), IsEmpty());
}

TEST_F(HttpReceive, PeerGoneBeforeRequest_EmptyResponse) {
  EXPECT_EQ(Post([](PeerStream& peer) { peer.Close(); }), kHttpSuccess);
  EXPECT_EQ(protocol.ResponseStatusCode(), 0);
  EXPECT_THAT(log.Lines(LogLevel::kWarning), IsEmpty());
  EXPECT_THAT(NewDescriptors(), IsEmpty());
}

TEST_F(HttpReceive, ResetAfterRequest_EmptyResponse) {
  EXPECT_EQ(Post([](PeerStream& peer) {
              peer.ReadBytes(1);  // the rest stays unread: closing resets
            }),
            kHttpSuccess);
  EXPECT_EQ(protocol.ResponseStatusCode(), 0);
  EXPECT_EQ(log.Lines().at(3), "info: HttpConnection: Reception ended");
  EXPECT_THAT(NewDescriptors(), IsEmpty());
}

TEST_F(HttpReceive, NotHttp_StatusUntouched) {
  EXPECT_EQ(Post(Answer("220 mail.example ESMTP\r\n")), kHttpSuccess);
  EXPECT_EQ(protocol.ResponseStatusCode(), 0);
  EXPECT_EQ(protocol.ResponsePayload(), "");
}

TEST_F(HttpReceive, Send_OneWriteOfAll) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
  const support::UniqueFd near(ends[0]);
  const support::UniqueFd far(ends[1]);
  EXPECT_EQ(connection.Send(near.Get(), std::string("a\0b", 3)), 3);
  char packet[8];
  EXPECT_EQ(::read(far.Get(), packet, sizeof packet), 3);
}

TEST_F(HttpReceive, SendNothing_WritesNothing) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const support::UniqueFd near(ends[0]);
  const support::UniqueFd far(ends[1]);
  EXPECT_EQ(connection.Send(near.Get(), ""), 0);
  EXPECT_EQ(connection.Send(-1, ""), -1);
}

TEST_F(HttpReceive, ShortWrite_NotContinued) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
  const support::UniqueFd near(ends[0]);
  const support::UniqueFd far(ends[1]);
  const std::string much(std::size_t{1} << 23, 'x');
  const std::ptrdiff_t sent = connection.Send(near.Get(), much);
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, static_cast<std::ptrdiff_t>(much.size()));
}

TEST_F(HttpReceive, ReceiveFails_ResponseAsBefore) {
  std::string response = "before";
  pollPlan.results = {-1};
  EXPECT_EQ(connection.ReceiveResponse(-1, response), kHttpReceiveFailed);
  EXPECT_EQ(response, "before");
}

TEST_F(HttpReceive, ReceiveNothing_ResponseReplaced) {
  std::string response = "before";
  pollPlan.results = {0, 0};
  EXPECT_EQ(connection.ReceiveResponse(-1, response), kHttpSuccess);
  EXPECT_EQ(response, "");
}

}  // namespace
}  // namespace csa_common
