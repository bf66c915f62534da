// The connector's topics against a broker that the test plays byte by byte.
#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <string_view>
#include <thread>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/integration/BrokerUnit.h"
#include "tests/support/Files.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/TestPki.h"

namespace lumo_connector {
namespace {

using namespace std::string_view_literals;
using platform_host::LogLevel;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using tests::BrokerUnit;
using tests::ConnectorLine;
using tests::SendAll;

constexpr auto kAccepted = "\x20\x02\x00\x00"sv;

/// One packet of fewer than 128 bytes, its header included (MQTT 3.1.1 section 2).
std::string ReadPacket(int peer) {
  const std::string header = tests::ReadUpTo(peer, 2);
  return header.size() < 2 ? header
                           : header + tests::ReadUpTo(peer, static_cast<unsigned char>(header[1]));
}

/// Whether a connection to `port` of 127.0.0.1 waits to be taken in: state SYN_SENT in proc(5).
bool IsConnectingTo(std::uint16_t port) {
  std::array<char, 32> peerAndState{};
  std::snprintf(peerAndState.data(), peerAndState.size(), " 0100007F:%04X 02 ", port);
  return tests::ReadText("/proc/self/net/tcp").find(peerAndState.data()) != std::string::npos;
}

/// The answer to the packet `subscribe`, with its packet identifier.
std::string Suback(const std::string& subscribe, char code) {
  return "\x90\x03" + subscribe.substr(2, 2) + code;
}

class HostileBroker : public ::testing::Test {
 protected:
  /// Starts the unit and takes its connection. Its CONNECT has been read.
  support::UniqueFd TakeUnit() {
    unit.Start();
    support::UniqueFd fd = peer.Accept();
    EXPECT_THAT(ReadPacket(fd.Get()), StartsWith("\x10"));
    return fd;
  }

  /// TakeUnit, and accepts it.
  support::UniqueFd AcceptUnit() {
    support::UniqueFd fd = TakeUnit();
    EXPECT_TRUE(SendAll(fd.Get(), kAccepted));
    unit.ListenOnceAccepted();
    return fd;
  }

  [[nodiscard]] std::string NoConnection(const std::string& reason) const {
    return ConnectorLine("error", "no connection to the broker 127.0.0.1:" +
                                      std::to_string(peer.Port()) + ": " + reason);
  }

  /// What the log says of the lost connection, once it does.
  [[nodiscard]] std::vector<std::string> Errors() const {
    EXPECT_TRUE(tests::Eventually([&] { return !log.Lines(LogLevel::kError).empty(); }));
    return log.Lines(LogLevel::kError);
  }

  const platform_host::CapturedLog log;
  tests::LoopbackPeer peer;
  BrokerUnit unit{peer.Port()};
};

TEST_F(HostileBroker, ConnectPacket_ClientIdAndASessionThatIsKept) {
  unit.Start();
  const support::UniqueFd fd = peer.Accept();
  EXPECT_EQ(ReadPacket(fd.Get()), "\x10\x12\x00\x04MQTT\x04\x00\x00\x3C\x00\x06unit-1"sv);
}

TEST_F(HostileBroker, SubscriptionRefused_Status1) {
  const support::UniqueFd fd = AcceptUnit();
  EXPECT_EQ(unit.connector.PubSubSubscribe("job", true).requestId, 1);
  const std::string subscribe = ReadPacket(fd.Get());
  EXPECT_EQ(subscribe.substr(4), "\x00\x03job\x01"sv);
  EXPECT_TRUE(SendAll(fd.Get(), Suback(subscribe, '\x80')));
  EXPECT_THAT(unit.topics.heard.WaitForCount(1), ElementsAre("subscribed job 1 1"));
}

TEST_F(HostileBroker, LostBeforeTheAnswer_FailureToldAfterTheReturn) {
  {
    const support::UniqueFd fd = AcceptUnit();
    EXPECT_EQ(unit.connector.PubSubSubscribe("job", true).requestId, 1);
    EXPECT_THAT(ReadPacket(fd.Get()), StartsWith("\x82"));
  }
  const support::UniqueFd fd = peer.Accept();
  EXPECT_THAT(ReadPacket(fd.Get()), StartsWith("\x10"));
  EXPECT_TRUE(SendAll(fd.Get(), kAccepted));
  EXPECT_THAT(unit.topics.heard.WaitForCount(3),
              ElementsAre("connection 1", "connection 0", "subscribe failed job 1"));
}

TEST_F(HostileBroker, PublicationUnacknowledged_SentAgainOnceAfterTheReturn) {
  {
    const support::UniqueFd fd = AcceptUnit();
    EXPECT_EQ(unit.connector.PubSubPublish("r", {'x'}, 0, 0, 0, "", true), 0);
    EXPECT_EQ(ReadPacket(fd.Get()), "\x32\x06\x00\x01r\x00\x01x"sv);
  }
  const support::UniqueFd fd = peer.Accept();
  EXPECT_THAT(ReadPacket(fd.Get()), StartsWith("\x10"));
  EXPECT_TRUE(SendAll(fd.Get(), kAccepted));
  EXPECT_EQ(ReadPacket(fd.Get()), "\x3A\x06\x00\x01r\x00\x01x"sv)
      << "the same, marked as sent again";
  EXPECT_TRUE(SendAll(fd.Get(), "\x40\x02\x00\x01"sv));
  EXPECT_TRUE(unit.topics.heard.WaitFor("published r 1"));
  EXPECT_TRUE(unit.StopsAtOnce());
  EXPECT_EQ(tests::ReadToEnd(fd.Get()), "\xE0\x00"sv) << "nothing but the farewell";
}

TEST_F(HostileBroker, OtherRefusal_TriedAgain) {
  {
    const support::UniqueFd fd = TakeUnit();
    EXPECT_TRUE(SendAll(fd.Get(), "\x20\x02\x00\x03"sv));
    EXPECT_TRUE(tests::IsAtEnd(fd.Get()));
  }
  EXPECT_THAT(Errors(),
              ElementsAre(NoConnection(
                  "the broker refuses the connection: Connection Refused: broker unavailable")));
  const support::UniqueFd fd = peer.Accept();
  EXPECT_THAT(ReadPacket(fd.Get()), StartsWith("\x10"));
}

TEST_F(HostileBroker, CredentialsRefused_Rejected) {
  const support::UniqueFd fd = TakeUnit();
  EXPECT_TRUE(SendAll(fd.Get(), "\x20\x02\x00\x04"sv));
  EXPECT_THAT(unit.session.heard.WaitForCount(2), ElementsAre("session 2", "session 3"));
  EXPECT_TRUE(tests::IsAtEnd(fd.Get()));
}

struct Misbehaviour {
  const char* name;
  std::string_view bytes;
};

class Misbehaving : public HostileBroker, public ::testing::WithParamInterface<Misbehaviour> {};

TEST_P(Misbehaving, InPlaceOfAcceptance_ClosedWithOneLine) {
  const support::UniqueFd fd = TakeUnit();
  EXPECT_TRUE(SendAll(fd.Get(), GetParam().bytes));
  EXPECT_THAT(Errors(), ElementsAre(NoConnection("the broker breaks the protocol")));
  EXPECT_TRUE(tests::IsAtEnd(fd.Get()));
}

TEST_P(Misbehaving, AfterAcceptance_ClosedWithOneLine) {
  const support::UniqueFd fd = AcceptUnit();
  EXPECT_TRUE(SendAll(fd.Get(), GetParam().bytes));
  EXPECT_THAT(Errors(), ElementsAre(NoConnection("the broker breaks the protocol")));
  EXPECT_TRUE(tests::IsAtEnd(fd.Get()));
}

INSTANTIATE_TEST_SUITE_P(
    Bytes, Misbehaving,
    ::testing::Values(Misbehaviour{"TlsAlert", "\x15\x03\x01\x00\x02\x02\x28"sv},
                      Misbehaviour{"Zeroes", "\0\0\0\0\0\0\0\0"sv},
                      Misbehaviour{"Ones", "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"},
                      Misbehaviour{"LengthOfFiveBytes", "\x30\xFF\xFF\xFF\xFF\x7F"},
                      Misbehaviour{"TopicBeyondPacket", "\x32\x04\x00\x09\x61\x62"sv},
                      Misbehaviour{"EmptyPublish", "\x30\x00"sv},
                      Misbehaviour{"SubackWithoutCodes", "\x90\x02\x00\x01"sv},
                      Misbehaviour{"PubackCutShort", "\x40\x01\x00"sv},
                      Misbehaviour{"ConnackCutShort", "\x20\x01\x00"sv},
                      Misbehaviour{"ConnectFromTheBroker", "\x10\x02\x00\x00"sv}),
    [](const auto& row) { return row.param.name; });

TEST_F(HostileBroker, PacketAtLimit_DroppedAndTheConnectionStays) {
  const support::UniqueFd fd = AcceptUnit();
  // 1 MiB, the header of four bytes included.
  EXPECT_TRUE(SendAll(fd.Get(), "\x30\xFC\xFF\x3F\x00\x01t"sv));
  EXPECT_TRUE(SendAll(fd.Get(), std::string(1048576 - 7, 'x')));
  EXPECT_EQ(unit.connector.PubSubSubscribe("job", true).requestId, 1);
  EXPECT_TRUE(SendAll(fd.Get(), Suback(ReadPacket(fd.Get()), '\0')));
  EXPECT_THAT(unit.topics.heard.WaitForCount(1), ElementsAre("subscribed job 0 1"));
}

TEST_F(HostileBroker, PacketAboveLimit_Closed) {
  const support::UniqueFd fd = AcceptUnit();
  EXPECT_EQ(unit.connector.PubSubPublish("r", {}, 0, 0, 0, "", false), 0);
  EXPECT_THAT(ReadPacket(fd.Get()), StartsWith("\x32"));
  EXPECT_TRUE(SendAll(fd.Get(), "\x30\xFF\xFF\xFF\x7F"sv));
  EXPECT_TRUE(SendAll(fd.Get(), std::string(1048576 - 5, 'x')));
  EXPECT_FALSE(SendAll(fd.Get(), "x") && !tests::IsAtEnd(fd.Get()));
  EXPECT_THAT(Errors(), ElementsAre(NoConnection("the broker sends a packet above 1 MiB")));
  EXPECT_TRUE(unit.topics.heard.WaitFor("publish failed r 1"));
}

/// The broker would send it again on every connection, and nothing behind it would ever arrive.
TEST_F(HostileBroker, PacketAboveLimit_SessionBegunAnew) {
  {
    const support::UniqueFd fd = AcceptUnit();
    // What has arrived when the acceptance is read does not count: more than the limit follows it.
    EXPECT_FALSE(SendAll(fd.Get(), "\x32\xFF\xFF\xFF\x7F" + std::string(4 * 1048576, 'x')) &&
                 !tests::IsAtEnd(fd.Get()));
  }
  {
    const support::UniqueFd fd = peer.Accept();
    EXPECT_EQ(ReadPacket(fd.Get()), "\x10\x12\x00\x04MQTT\x04\x02\x00\x3C\x00\x06unit-1"sv);
    EXPECT_TRUE(SendAll(fd.Get(), kAccepted));
    EXPECT_EQ(tests::ReadToEnd(fd.Get()), "\xE0\x00"sv);
  }
  const support::UniqueFd fd = peer.Accept();
  EXPECT_EQ(ReadPacket(fd.Get()), "\x10\x12\x00\x04MQTT\x04\x00\x00\x3C\x00\x06unit-1"sv);
  EXPECT_TRUE(SendAll(fd.Get(), kAccepted));
  EXPECT_THAT(unit.topics.heard.WaitForCount(2), ElementsAre("connection 1", "connection 0"));
}

TEST_F(HostileBroker, UnaskedQualityOfService_ClosedAndGoesOn) {
  {
    const support::UniqueFd fd = AcceptUnit();
    EXPECT_TRUE(SendAll(fd.Get(), "\x34\x06\x00\x01t\x00\x07x"sv));
    EXPECT_EQ(tests::ReadToEnd(fd.Get()), "\x50\x02\x00\x07"sv);
  }
  EXPECT_THAT(Errors(),
              ElementsAre(NoConnection(
                  "the broker sends a message at a quality of service that nobody asked for")));
  const support::UniqueFd fd = peer.Accept();
  EXPECT_THAT(ReadPacket(fd.Get()), StartsWith("\x10"));
}

TEST_F(HostileBroker, SaysNothing_StopsAtOnce) {
  const support::UniqueFd fd = TakeUnit();
  EXPECT_TRUE(unit.StopsAtOnce());
  EXPECT_TRUE(tests::IsAtEnd(fd.Get()));
  EXPECT_THAT(log.Lines(LogLevel::kInfo), IsEmpty());
}

TEST_F(HostileBroker, SendsWithoutEnd_StopsAtOnce) {
  const support::UniqueFd fd = AcceptUnit();
  std::string messages;
  while (messages.size() < 1000000) messages += "\x30\x04\x00\x01tx"sv;
  std::thread sender([&] {
    while (SendAll(fd.Get(), messages)) {
    }
  });
  EXPECT_THAT(unit.topics.heard.WaitForCount(1), Contains("message t x"));
  EXPECT_TRUE(unit.StopsAtOnce());
  ::shutdown(fd.Get(), SHUT_RDWR);
  sender.join();
}

TEST(HostileTlsBroker, AnswersNoHandshake_StopsAtOnce) {
  const platform_host::CapturedLog log;
  const tests::LoopbackPeer peer;
  BrokerUnit unit(peer.Port(), "ca_file = \"" + tests::PkiPath("tls/ca.pem") + "\"\n");
  unit.Start();
  const support::UniqueFd fd = peer.Accept();
  EXPECT_EQ(tests::ReadUpTo(fd.Get(), 1), "\x16") << "a handshake record";
  EXPECT_TRUE(unit.StopsAtOnce());
  EXPECT_THAT(log.Lines(LogLevel::kInfo), IsEmpty());
}

TEST_F(HostileBroker, AcceptsNoConnection_StopsAtOnce) {
  // A queue of one place, taken by the first of these; the next connection waits for ever.
  support::UniqueFd silent(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(::bind(silent.Get(), generic, size), 0);
  ASSERT_EQ(::listen(silent.Get(), 0), 0);
  ASSERT_EQ(::getsockname(silent.Get(), generic, &size), 0);
  const support::UniqueFd first(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(::connect(first.Get(), generic, size), 0);
  BrokerUnit other(ntohs(address.sin_port));
  other.Start();
  EXPECT_TRUE(tests::Eventually([&] { return IsConnectingTo(ntohs(address.sin_port)); }));
  EXPECT_EQ(other.connector.PubSubConnect(&other.topics), 1);
  EXPECT_TRUE(other.StopsAtOnce());
  EXPECT_THAT(log.Lines(LogLevel::kInfo), IsEmpty());
}

}  // namespace
}  // namespace lumo_connector
