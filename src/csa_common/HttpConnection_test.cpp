#include "csa_common/HttpConnection.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/HttpConnectionTest.h"

namespace csa_common {
namespace {

using platform_host::LogLevel;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::Answer;
using tests::PeerStream;

class Http : public tests::HttpConnectionTest {};

TEST_F(Http, Post_RequestOnTheWireAndResponseParsed) {
  EXPECT_EQ(Post(Answer("HTTP/1.1 200 OK\r\n\r\nabc")), kHttpSuccess);
  EXPECT_EQ(protocol.ResponseStatusCode(), 200);
  EXPECT_EQ(protocol.ResponsePayload(), "abc");
  EXPECT_THAT(fake.Calls(), ElementsAre("SocketConnect Service backend.example 8080"));
  EXPECT_THAT(fake.Requests(),
              ElementsAre("POST /a/b HTTP/1.1\r\nHost: backend.example\r\n"
                          "Content-Type: text/html\r\nContent-Length: 4\r\n\r\nbody"));
  EXPECT_THAT(NewDescriptors(), IsEmpty());
}

TEST_F(Http, Post_EveryLine) {
  EXPECT_EQ(Post(Answer("HTTP/1.1 200 OK\r\n\r\nabc")), kHttpSuccess);
  EXPECT_THAT(
      log.Lines(),
      ElementsAre("info: HttpConnection: Connecting to backend.example:8080",
                  "info: HttpConnection: Connection established to backend.example:8080",
                  "debug: HttpConnection: Sent request\n-----\nPOST /a/b HTTP/1.1\r\n"
                  "Host: backend.example\r\nContent-Type: text/html\r\nContent-Length: 4\r\n\r\n"
                  "body\n-----\n\n",
                  "info: HttpConnection: Read 22 bytes from socket",
                  "info: HttpConnection: Reception ended",
                  "info: HttpConnection: Total received 22 bytes from socket",
                  "debug: HttpConnection: Received Response\n-----\nHTTP/1.1 200 OK\n-----\n\n",
                  "debug: HttpConnection: Received payload 3 bytes\n\n"));
}

// Streams that no connector opens.
class OtherStreams : public HttpConnection {
 public:
  explicit OtherStreams(int streamsStatus) : HttpConnection(nullptr), status(streamsStatus) {}
  mutable std::string asked;

 private:
  [[nodiscard]] lumo_connector::LumoSocketResult SocketConnect(const std::string& operationTypeId,
                                                               const std::string& host,
                                                               std::uint16_t port) const override {
    asked = operationTypeId + " " + host + " " + std::to_string(port);
    return {status, -1, "", ""};
  }

  const int status;
};

TEST_F(Http, StreamsFromElsewhere_AreAskedForAndFailAsAConnectorsDo) {
  const OtherStreams other(ECONNREFUSED);
  EXPECT_EQ(other.Post(protocol, "Service", kUrl), kHttpConnectFailed);
  EXPECT_EQ(other.asked, "Service backend.example 8080");
  EXPECT_EQ(log.Lines(LogLevel::kError).front(),
            "error: HttpConnection: Connection not established. Status: 111");
}

TEST_F(Http, Get_RequestAndLine) {
  fake.Connect(Answer("HTTP/1.1 204 No Content\r\n\r\n"));
  protocol.SetOption(HttpOption::Payload, "");
  EXPECT_EQ(connection.Get(protocol, "Service", "http://h:80"), kHttpSuccess);
  EXPECT_EQ(protocol.ResponseStatusCode(), 204);
  const std::string request =
      "GET / HTTP/1.1\r\nHost: h\r\nContent-Type: text/html\r\nContent-Length: 0\r\n\r\n";
  EXPECT_THAT(fake.Requests(), ElementsAre(request));
  EXPECT_EQ(log.Lines().at(2),
            "debug: HttpConnection: Sent request\n-----\n" + request + "\n-----\n\n");
}

TEST_F(Http, PutAnswered100Then200_BodySentOnce) {
  std::string body;
  fake.Connect([&](PeerStream& peer) {
    peer.ReadRequest();
    peer.Send("HTTP/1.1 100 Continue\r\n\r\n");
    body = peer.ReadBytes(4);
    peer.Send("HTTP/1.1 200 OK\r\n\r\nok");
  });
  // Silence after the interim answer.
  pollPlan.results = {std::nullopt, std::nullopt, 0};
  EXPECT_EQ(connection.Put(protocol, "Service", kUrl), kHttpSuccess);
  fake.WaitForPeers();
  EXPECT_EQ(body, "body");
  EXPECT_EQ(protocol.ResponseStatusCode(), 200);
  EXPECT_EQ(protocol.ResponsePayload(), "ok");
  EXPECT_THAT(
      fake.Requests(),
      ElementsAre("PUT /a/b HTTP/1.1\r\nHost: backend.example\r\nContent-Type: text/html\r\n"
                  "Expect: 100-continue\r\nContent-Length: 4\r\n\r\n"));
  EXPECT_THAT(NewDescriptors(), IsEmpty());
}

TEST_F(Http, PutAnswered100Then200_EveryLine) {
  fake.Connect([](PeerStream& peer) {
    peer.ReadRequest();
    peer.Send("HTTP/1.1 100 Continue\r\n\r\n");
    peer.ReadBytes(4);
    peer.Send("HTTP/1.1 200 OK\r\n\r\nok");
  });
  pollPlan.results = {std::nullopt, std::nullopt, 0};
  EXPECT_EQ(connection.Put(protocol, "Service", kUrl), kHttpSuccess);
  EXPECT_THAT(
      log.Lines(),
      ElementsAre(
          "info: HttpConnection: Connecting to backend.example:8080",
          "info: HttpConnection: Connection established to backend.example:8080",
          "debug: HttpConnection: Sent header\n-----\n" + protocol.RequestHeader() + "\n-----\n\n",
          "info: HttpConnection: Read 25 bytes from socket",
          "info: HttpConnection: Total received 25 bytes from socket",
          "debug: HttpConnection: Received Response\n-----\nHTTP/1.1 100 Continue\n-----\n\n",
          "debug: HttpConnection: Sent payload 4 bytes\n\n",
          "info: HttpConnection: Read 21 bytes from socket",
          "info: HttpConnection: Reception ended",
          "info: HttpConnection: Total received 21 bytes from socket",
          "debug: HttpConnection: Received Response\n-----\nHTTP/1.1 200 OK\n-----\n\n",
          "debug: HttpConnection: Received payload 2 bytes\n\n"));
}

TEST_F(Http, PutAnswered100Again_BodySentAgain) {
  std::string body;
  fake.Connect([&](PeerStream& peer) {
    peer.ReadRequest();
    for (int round = 0; round < 2; ++round) {
      peer.Send("HTTP/1.1 100 Continue\r\n\r\n");
      body += peer.ReadBytes(4);
    }
    peer.Send("HTTP/1.1 201 Created\r\n\r\n");
  });
  pollPlan.results = {std::nullopt, std::nullopt, 0, std::nullopt, std::nullopt, 0};
  EXPECT_EQ(connection.Put(protocol, "Service", kUrl), kHttpSuccess);
  fake.WaitForPeers();
  EXPECT_EQ(body, "bodybody");
  EXPECT_EQ(protocol.ResponseStatusCode(), 201);
}

TEST_F(Http, PutAnswered100Only_EndsWithThat) {
  fake.Connect(Answer("HTTP/1.1 100 Continue\r\n\r\n"));
  EXPECT_EQ(connection.Put(protocol, "Service", kUrl), kHttpSuccess);
  EXPECT_EQ(protocol.ResponseStatusCode(), 100);
  EXPECT_THAT(NewDescriptors(), IsEmpty());
}

TEST_F(Http, PutNoExpectContinue_BodyWithTheHeader) {
  fake.Connect(Answer("HTTP/1.1 200 OK\r\n\r\n"));
  protocol.SetOption(HttpOption::NoExpectContinue);
  EXPECT_EQ(connection.Put(protocol, "Service", kUrl), kHttpSuccess);
  EXPECT_THAT(fake.Requests(), ElementsAre(protocol.RequestHeader() + "body"));
}

TEST_F(Http, PutFailsAfterInterimAnswer_ReceiveFailed) {
  fake.Connect([](PeerStream& peer) {
    peer.ReadRequest();
    peer.Send("HTTP/1.1 100 Continue\r\n\r\n");
    peer.WaitForClose();
  });
  pollPlan.results = {std::nullopt, std::nullopt, 0, -1};
  EXPECT_EQ(connection.Put(protocol, "Service", kUrl), kHttpReceiveFailed);
  EXPECT_EQ(log.Lines(LogLevel::kError),
            std::vector<std::string>{"error: HttpConnection: Receive Timeout!"});
  connector->Stop();
  ASSERT_THAT(NewDescriptors(), ::testing::SizeIs(1));
  ::close(std::stoi(NewDescriptors().front()));
}

TEST_F(Http, PostAnswered100_TakenAsItIs) {
  EXPECT_EQ(Post(Answer("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\n\r\n")), kHttpSuccess);
  EXPECT_EQ(protocol.ResponseStatusCode(), 100);
  EXPECT_EQ(protocol.ResponsePayload(), "HTTP/1.1 200 OK\r\n\r\n");
}

TEST_F(Http, EmptyUrl_DefaultServerAndTargetAsSet) {
  fake.Connect(Answer("HTTP/1.1 200 OK\r\n\r\n"));
  const HttpConnection withDefault("default.example", 81, "text", connector);
  protocol.SetOption(HttpOption::RequestTarget, "/set");
  protocol.SetOption(HttpOption::Host, "set.example");
  EXPECT_EQ(withDefault.Post(protocol, "Service", ""), kHttpSuccess);
  EXPECT_THAT(fake.Calls(), ElementsAre("SocketConnect Service default.example 81"));
  EXPECT_THAT(fake.Requests().front(),
              ::testing::StartsWith("POST /set HTTP/1.1\r\nHost: set.example\r\n"));
}

TEST_F(Http, EmptyUrlWithoutDefault_AsksForNoHost) {
  EXPECT_EQ(connection.Post(protocol, "Service", ""), kHttpConnectFailed);
  EXPECT_THAT(fake.Calls(), ElementsAre("SocketConnect Service  0"));
}

TEST_F(Http, BadUrl_NothingOpened) {
  EXPECT_EQ(connection.Get(protocol, "Service", "backend"), kHttpBadUrl);
  EXPECT_EQ(connection.Post(protocol, "Service", "backend"), kHttpBadUrl);
  EXPECT_EQ(connection.Put(protocol, "Service", "backend"), kHttpBadUrl);
  EXPECT_EQ(connection.Test("Service", "backend"), kHttpBadUrl);
  EXPECT_THAT(fake.Calls(), IsEmpty());
  const std::string line = "error: URL parsing failed! URL prefix not found!";
  EXPECT_THAT(log.Lines(), ElementsAre(line, line, line, line));
}

TEST_F(Http, ConnectRefused_EveryLine) {
  fake.RefuseConnect(ECONNREFUSED, "refused");
  EXPECT_EQ(connection.Post(protocol, "Service", kUrl), kHttpConnectFailed);
  EXPECT_THAT(log.Lines(),
              ElementsAre("info: HttpConnection: Connecting to backend.example:8080",
                          "error: HttpConnection: Connection not established. Status: 111",
                          "error: HttpConnection: Connection failed!"));
}

TEST_F(Http, NegativeConnectStatus_WrittenSigned) {
  fake.RefuseConnect(-5, "odd");
  EXPECT_EQ(connection.OpenConnection("Service", "h", 80), -1);
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: HttpConnection: Connection not established. Status: -5"));
}

TEST_F(Http, Test_OpensAndCloses) {
  fake.Connect([](PeerStream& peer) { peer.WaitForClose(); });
  EXPECT_EQ(connection.Test("Service", kUrl), kHttpSuccess);
  EXPECT_THAT(log.Lines(), ElementsAre("info: HttpConnection: Connecting to backend.example:8080",
                                       "info: HttpConnection: Connection succeeded!"));
  EXPECT_THAT(NewDescriptors(), IsEmpty());
}

TEST_F(Http, TestRefused_EveryLine) {
  fake.RefuseConnect(ETIMEDOUT, "slow");
  EXPECT_EQ(connection.Test("Service", kUrl), kHttpConnectFailed);
  EXPECT_THAT(log.Lines(),
              ElementsAre("info: HttpConnection: Connecting to backend.example:8080",
                          "error: HttpConnection: Connection not established. Status: 110",
                          "error: HttpConnection: Connection failed!"));
}

TEST_F(Http, PointerOperations_NotSupported) {
  EXPECT_EQ(connection.Get(&protocol), 255U);
  EXPECT_EQ(connection.Post(&protocol), 255U);
  EXPECT_EQ(connection.Put(&protocol), 255U);
  EXPECT_EQ(connection.Test(), 255U);
  EXPECT_THAT(fake.Calls(), IsEmpty());
}

TEST_F(Http, ThreadsAtOnce_EachItsOwnResponse) {
  fake.Connect([](PeerStream& peer) {
    const std::string request = peer.ReadRequest();
    peer.Send("HTTP/1.1 200 OK\r\n\r\n" + request.substr(request.find("\r\n\r\n") + 4));
  });
  std::vector<std::thread> threads;
  for (int number = 0; number < 8; ++number) {
    threads.emplace_back([this, number] {
      HttpProtocol own;
      own.SetOption(HttpOption::Payload, std::to_string(number));
      EXPECT_EQ(connection.Post(own, "Service", kUrl), kHttpSuccess);
      EXPECT_EQ(own.ResponsePayload(), std::to_string(number));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(NewDescriptors(), IsEmpty());
}

}  // namespace
}  // namespace csa_common
