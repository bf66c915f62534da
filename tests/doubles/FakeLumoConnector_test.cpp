#include "tests/doubles/FakeLumoConnector.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "support/FileContents.h"

namespace tests {
namespace {

using lumo_connector::LumoConnector;
using lumo_connector::SessionStatus;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Keeps what it hears. Read after the fake has said that all has been told.
class Listener : public lumo_connector::LumoSessionCallbackIf,
                 public lumo_connector::LumoServiceControllerCallbackIf {
 public:
  void LumoConnectorStatus(SessionStatus status) override { sessions.push_back(status); }
  void LumoSCSessionStatus(lumo_connector::SCSessionStatus) override {}
  void LumoSCInvocationURL(lumo_connector::SCUrlResult) override {}
  void LumoSCActivationState(lumo_connector::SCActivationStateUpdate) override {}
  void LumoSCConnectionState(lumo_connector::SCConnectionStateUpdate update) override {
    states.push_back(update.transactionTypeId + " " + std::to_string(update.state));
  }

  std::vector<SessionStatus> sessions;
  std::vector<std::string> states;
};

std::string ReadToEnd(int descriptor) {
  std::string all;
  std::array<char, 256> piece{};
  for (;;) {
    const ssize_t count = ::read(descriptor, piece.data(), piece.size());
    if (count <= 0) return all;
    all.append(piece.data(), static_cast<std::size_t>(count));
  }
}

class FakeConnector : public ::testing::Test {
 protected:
  FakeLumoConnector fake;
  Listener listener;
  LumoConnector connector{&listener};
};

TEST_F(FakeConnector, Start_StartedAndTold) {
  connector.Start();
  fake.WaitForCallbacks();
  EXPECT_THAT(listener.sessions, ElementsAre(SessionStatus::kStarted));
  EXPECT_EQ(connector.GetSessionStatus(), SessionStatus::kStarted);
}

TEST_F(FakeConnector, StartHeld_ToldByTheTest) {
  fake.HoldStart();
  connector.Start();
  fake.WaitForCallbacks();
  EXPECT_THAT(listener.sessions, IsEmpty());
  fake.ReportSession(SessionStatus::kFailed);
  EXPECT_THAT(listener.sessions, ElementsAre(SessionStatus::kFailed));
}

TEST_F(FakeConnector, StateSubscription_PresentStateThenEachChange) {
  EXPECT_EQ(connector.SubscribeTransactionTypeState("T", &listener, 0), 1U);
  fake.ReportConnectionState(1);
  EXPECT_THAT(listener.states, ElementsAre("T 2", "T 1"));
}

TEST_F(FakeConnector, AfterStop_NobodyIsTold) {
  connector.Start();
  fake.WaitForCallbacks();
  connector.Stop();
  fake.ReportSession(SessionStatus::kRejected);
  EXPECT_THAT(listener.sessions, ElementsAre(SessionStatus::kStarted));
  EXPECT_EQ(connector.SubscribeTransactionTypeState("T", &listener, 0), 0U);
}

TEST_F(FakeConnector, TokenAndUrl_AsConfigured) {
  EXPECT_EQ(connector.GetToken("O").status, 2);
  EXPECT_EQ(connector.GetInvocationUrl("O").status, 2);
  fake.SetToken("O", "secret");
  fake.SetUrl("O", "http://h/");
  EXPECT_EQ(connector.GetToken("O").token, "secret");
  EXPECT_EQ(connector.GetInvocationUrl("O").url, "http://h/");
  fake.SetTokenFailure("O", 3);
  EXPECT_EQ(connector.GetToken("O").status, 3);
}

TEST_F(FakeConnector, Connects_InOrderAndTheLastStays) {
  fake.RefuseConnect(ETIMEDOUT, "slow");
  fake.Connect(Answer("pong"));
  EXPECT_EQ(connector.SocketConnect("O", "h", 80).text, "slow");
  for (int round = 0; round < 2; ++round) {
    const auto result = connector.SocketConnect("O", "h", 80);
    ASSERT_EQ(result.status, 0);
    const support::UniqueFd stream(result.descriptor);
    ASSERT_EQ(support::WriteAll(stream.Get(), "GET\r\nContent-Length: 2\r\n\r\nab"), 0);
    EXPECT_EQ(ReadToEnd(stream.Get()), "pong");
  }
  EXPECT_THAT(fake.Requests(), ElementsAre("GET\r\nContent-Length: 2\r\n\r\nab",
                                           "GET\r\nContent-Length: 2\r\n\r\nab"));
  EXPECT_THAT(fake.Calls(),
              ElementsAre("SocketConnect O h 80", "SocketConnect O h 80", "SocketConnect O h 80"));
}

TEST_F(FakeConnector, Stop_EndsStreams) {
  fake.Connect([](PeerStream& peer) { peer.WaitForClose(); });
  const support::UniqueFd stream(connector.SocketConnect("O", "h", 80).descriptor);
  connector.Stop();
  EXPECT_EQ(ReadToEnd(stream.Get()), "");
  EXPECT_NE(connector.SocketConnect("O", "h", 80).status, 0);
}

TEST_F(FakeConnector, PieceByPiece_EachReadGetsOne) {
  fake.Connect([](PeerStream& peer) { peer.SendInPieces("abcde", 2); });
  const support::UniqueFd stream(connector.SocketConnect("O", "h", 80).descriptor);
  std::array<char, 8> piece{};
  EXPECT_EQ(::read(stream.Get(), piece.data(), piece.size()), 2);
  EXPECT_EQ(::read(stream.Get(), piece.data(), piece.size()), 2);
  EXPECT_EQ(::read(stream.Get(), piece.data(), piece.size()), 1);
}

TEST_F(FakeConnector, Publication_EveryArgumentKept) {
  fake.SetPubSubPublishStatus(2);
  EXPECT_EQ(connector.PubSubPublish("t", {'p', 'q'}, 1, 2, 3, "text", true), 2);
  ASSERT_EQ(fake.Publications().size(), 1U);
  const auto publication = fake.Publications().front();
  EXPECT_EQ(publication.topic + publication.payload + publication.contentType, "tpqtext");
  EXPECT_EQ(publication.timeToLive, 1U);
  EXPECT_EQ(publication.priority, 2U);
  EXPECT_EQ(publication.payloadFormat, 3U);
  EXPECT_TRUE(publication.reliable);
}

TEST_F(FakeConnector, ActionOnCall_ChangesWhatThatCallReturns) {
  std::string heard;
  fake.OnCall([&](const std::string& call) {
    heard = call;
    fake.SetToken("A", "fresh");
  });
  EXPECT_EQ("fresh", connector.GetToken("A").token);
  EXPECT_EQ("GetToken A", heard);
}

}  // namespace
}  // namespace tests
