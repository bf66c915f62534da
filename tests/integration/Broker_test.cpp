// The connector's topics against a real broker.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "platform/host/control/ControlBoard.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/integration/BrokerUnit.h"
#include "tests/support/Files.h"
#include "tests/support/MosquittoBroker.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/TestPki.h"

namespace lumo_connector {
namespace {

using platform_host::LogLevel;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using tests::BrokerUnit;
using tests::ConnectorLine;

class Broker : public ::testing::Test {
 protected:
  [[nodiscard]] std::string Connected() const {
    return ConnectorLine("info", "connected to the broker " + Peer());
  }

  [[nodiscard]] std::string NoConnection(const std::string& reason) const {
    return ConnectorLine("error", "no connection to the broker " + Peer() + ": " + reason);
  }

  [[nodiscard]] std::string Peer() const { return "127.0.0.1:" + std::to_string(broker.Port()); }

  /// What the control socket shows of the broker.
  [[nodiscard]] static std::string Shown() {
    using platform_host::ControlBoard;
    std::string answer;
    ControlBoard::OfProcess().Serve(
        R"({"command": "status"})",
        platform_host::ControlReply([&answer](const std::string& line) { answer = line; }));
    return nlohmann::json::parse(answer)["status"]["broker"].dump();
  }

  const platform_host::CapturedLog log;
  tests::MosquittoBroker broker;
};

TEST_F(Broker, GrantedSubscription_MessagesArriveInOrder) {
  broker.Start();
  BrokerUnit unit(broker.Port());
  unit.ConnectAndSubscribe();
  EXPECT_TRUE(broker.Publish("job", "first"));
  EXPECT_TRUE(broker.Publish("job", "second"));
  EXPECT_THAT(unit.topics.heard.WaitForCount(3),
              ElementsAre("subscribed job 0 1", "message job first", "message job second"));
  unit.connector.Stop();
  EXPECT_THAT(log.Lines(LogLevel::kInfo), ElementsAre(Connected()));
}

TEST_F(Broker, Publication_AcknowledgedAndDelivered) {
  broker.Start();
  BrokerUnit unit(broker.Port());
  unit.ConnectAndSubscribe();
  EXPECT_EQ(unit.connector.PubSubPublish("job", {'x'}, 10, 20, 0, "none", true), 0);
  EXPECT_TRUE(unit.topics.heard.WaitFor("published job 2"));
  EXPECT_TRUE(unit.topics.heard.WaitFor("message job x"));
}

TEST_F(Broker, JobWhileUnitWasOff_DeliveredOnce) {
  broker.Start();
  {
    BrokerUnit unit(broker.Port());
    unit.ConnectAndSubscribe();
  }
  EXPECT_TRUE(broker.Publish("job", "while off"));
  broker.Stop();
  broker.Start();
  {
    BrokerUnit unit(broker.Port());
    unit.Connect();
    EXPECT_TRUE(unit.topics.heard.WaitFor("message job while off"));
    EXPECT_TRUE(broker.Publish("job", "end"));
    EXPECT_TRUE(unit.topics.heard.WaitFor("message job end"));
    EXPECT_THAT(unit.topics.heard.Texts(), ElementsAre("message job while off", "message job end"));
  }
  BrokerUnit unit(broker.Port());
  unit.Connect();
  EXPECT_TRUE(broker.Publish("job", "end"));
  EXPECT_THAT(unit.topics.heard.WaitForCount(1), ElementsAre("message job end"));
}

// As a process that installs a container file beside the daemon, or before it starts.
TEST_F(Broker, NobodyListensOrSends_UnitsPlaceAndMessagesLeftAlone) {
  broker.Start();
  BrokerUnit unit(broker.Port());
  unit.ConnectAndSubscribe();
  tests::RecordingSession session;
  lumo_connector::LumoConnector other(&session);
  const auto threads = tests::RunningThreads();
  other.Start();
  ASSERT_TRUE(session.heard.WaitFor("session 2"));
  EXPECT_TRUE(tests::ThreadsSince(threads).empty());
  other.Stop();
  EXPECT_TRUE(broker.Publish("job", "for the listener"));
  EXPECT_TRUE(unit.topics.heard.WaitFor("message job for the listener"));
  EXPECT_THAT(log.Lines(LogLevel::kInfo), ElementsAre(Connected()));
}

TEST_F(Broker, PublicationWithoutListener_ConnectedForIt) {
  broker.Start();
  BrokerUnit unit(broker.Port());
  unit.connector.Start();
  ASSERT_TRUE(unit.session.heard.WaitFor("session 2"));
  EXPECT_EQ(unit.connector.PubSubPublish("job", {'x'}, 10, 20, 0, "none", true), 0);
  EXPECT_TRUE(tests::Eventually(
      [&] { return log.Lines(LogLevel::kInfo) == std::vector<std::string>{Connected()}; }));
}

TEST_F(Broker, KilledAndRestarted_LossAndReturnToldAndResubscribed) {
  broker.Start();
  BrokerUnit unit(broker.Port());
  unit.ConnectAndSubscribe();
  broker.Stop(SIGKILL);
  ASSERT_TRUE(unit.topics.heard.WaitFor("connection 1"));
  const auto queued = unit.connector.PubSubSubscribe("job", true);
  EXPECT_EQ(queued.status, 3);
  EXPECT_EQ(unit.connector.PubSubPublish("job", {'x'}, 0, 0, 0, "", false), 0);
  broker.Start();
  EXPECT_THAT(
      unit.topics.heard.WaitForCount(6),
      ::testing::UnorderedElementsAre("subscribed job 0 1", "connection 1", "connection 0",
                                      "subscribed job 0 2", "published job 3", "message job x"));
  EXPECT_TRUE(unit.states.heard.WaitFor("T 2", 2));
  // The broker may have accepted before the unit asked for states.
  EXPECT_THAT(unit.states.heard.Texts(),
              AnyOf(ElementsAre("T 1", "T 2", "T 1", "T 2"), ElementsAre("T 2", "T 1", "T 2")));
  EXPECT_THAT(
      log.Lines(LogLevel::kInfo),
      ElementsAre(Connected(), NoConnection("the broker closed the connection"), Connected()));
}

TEST_F(Broker, ControlSocketAsked_BrokerAndTopicsShown) {
  broker.Start();
  BrokerUnit unit(broker.Port());
  unit.ConnectAndSubscribe();
  const std::string topics = R"("topics":[{"state":"subscribed","topic":"job"}])";
  EXPECT_EQ(Shown(), R"({"address":")" + Peer() + R"(","connected":true,)" + topics + "}");
  broker.Stop();
  const std::string lost = R"({"address":")" + Peer() + R"(","connected":false,)" + topics + "}";
  EXPECT_TRUE(tests::Eventually([&] { return Shown() == lost; })) << Shown();
}

TEST_F(Broker, NobodyThere_OneLineAndSubscriptionWaits) {
  BrokerUnit unit(broker.Port());
  unit.Start();
  EXPECT_EQ(unit.connector.PubSubConnect(&unit.topics), 1);
  EXPECT_EQ(unit.connector.PubSubSubscribe("job", true).status, 3);
  EXPECT_TRUE(tests::Eventually([&] { return !log.Lines(LogLevel::kError).empty(); }));
  broker.Start();
  EXPECT_THAT(unit.topics.heard.WaitForCount(2), ElementsAre("connection 0", "subscribed job 0 1"));
  EXPECT_THAT(log.Lines(LogLevel::kError), ElementsAre(NoConnection("Connection refused")));
}

TEST_F(Broker, FloodBeforeListening_OldestKeptAndOneLine) {
  broker.Start();
  BrokerUnit(broker.Port()).ConnectAndSubscribe();
  EXPECT_TRUE(broker.Publish("job", "1", {"--repeat", "1000"}));
  BrokerUnit unit(broker.Port());
  unit.Start();
  const auto isLastTaken = [&] {
    return broker.Log().find("Received PUBACK from unit-1 (Mid: 1000,") != std::string::npos;
  };
  EXPECT_TRUE(tests::Eventually(isLastTaken));
  unit.ListenOnceAccepted();
  EXPECT_TRUE(broker.Publish("job", "end"));
  EXPECT_TRUE(unit.topics.heard.WaitFor("message job end"));
  EXPECT_EQ(unit.topics.heard.Texts().size(), 257U);
  EXPECT_EQ(log.Lines(LogLevel::kWarning).size(), 1U);
}

TEST_F(Broker, PayloadAboveLimit_DroppedWithOneLine) {
  broker.Start();
  BrokerUnit unit(broker.Port());
  unit.ConnectAndSubscribe();
  EXPECT_TRUE(broker.Publish("job", std::string(65537, 'x')));
  EXPECT_TRUE(broker.Publish("job", std::string(65536, 'y')));
  EXPECT_TRUE(unit.topics.heard.WaitFor("message job " + std::string(65536, 'y')));
  EXPECT_EQ(unit.topics.heard.Texts().size(), 2U);
  EXPECT_THAT(log.Lines(LogLevel::kWarning),
              ElementsAre(ConnectorLine(
                  "warning", "messages dropped because they have more than 65536 bytes: 1")));
}

TEST_F(Broker, FrozenWithMuchToSend_StopsAtOnce) {
  broker.Start();
  BrokerUnit unit(broker.Port());
  unit.Connect();
  broker.Signal(SIGSTOP);
  const std::vector<std::uint8_t> payload(65536);
  for (int count = 0; count < 200; ++count) {
    EXPECT_EQ(unit.connector.PubSubPublish("report", payload, 0, 0, 0, "", false), 0);
  }
  EXPECT_TRUE(unit.StopsAtOnce());
  broker.Signal(SIGCONT);
}

TEST_F(Broker, FrozenForTwoKeepAlives_LossNoticed) {
  broker.Start();
  BrokerUnit unit(broker.Port(), "keep_alive_s = 5\n");
  unit.Connect();
  broker.Signal(SIGSTOP);
  EXPECT_TRUE(unit.topics.heard.WaitFor("connection 1"));
  EXPECT_THAT(log.Lines(LogLevel::kError),
              ElementsAre(NoConnection("the broker no longer answers")));
  broker.Signal(SIGCONT);
  EXPECT_TRUE(unit.topics.heard.WaitFor("connection 0"));
}

TEST_F(Broker, SecondUnitWithTheSameId_BothGoOnWithPauses) {
  broker.Start();
  BrokerUnit first(broker.Port());
  first.Connect();
  {
    BrokerUnit second(broker.Port());
    second.Connect();
    EXPECT_TRUE(first.topics.heard.WaitFor("connection 1"));
    EXPECT_TRUE(second.topics.heard.WaitFor("connection 1"));
  }
  EXPECT_TRUE(first.topics.heard.WaitFor("connection 0"));
}

/// A broker that demands user name and password: "unit" and "secret".
class BrokerWithPasswords : public ::testing::Test {
 protected:
  BrokerWithPasswords() {
    tests::Command made({"/usr/bin/mosquitto_passwd", "-b", "-c", File("users"), "unit", "secret"},
                        File("made"));
    EXPECT_EQ(made.Wait(), 0);
  }

  [[nodiscard]] std::string File(const std::string& name) const {
    return broker.Directory() + "/" + name;
  }

  /// Lines of [mqtt] for a password file that holds `text`.
  [[nodiscard]] std::string Credentials(const std::string& text) const {
    tests::WriteText(File("password"), text);
    return "username = \"unit\"\npassword_file = \"" + File("password") + "\"\n";
  }

  const platform_host::CapturedLog log;
  tests::MosquittoBroker broker{"allow_anonymous false\npassword_file DIRECTORY/users\n"};
};

TEST_F(BrokerWithPasswords, RightPassword_LineBreakIsNoPartOfIt) {
  broker.Start();
  BrokerUnit unit(broker.Port(), Credentials("secret\r\n"));
  unit.ConnectAndSubscribe();
}

TEST_F(BrokerWithPasswords, WrongPassword_RejectedWithOneLineAndNoFurtherTry) {
  broker.Start();
  BrokerUnit unit(broker.Port(), Credentials("secret\n\n"));
  unit.Start();
  EXPECT_THAT(unit.session.heard.WaitForCount(2), ElementsAre("session 2", "session 3"));
  EXPECT_EQ(unit.connector.GetSessionStatus(), SessionStatus::kRejected);
  EXPECT_EQ(unit.connector.PubSubConnect(&unit.topics), 2);
  EXPECT_EQ(unit.connector.PubSubSubscribe("job", true).status, 2);
  EXPECT_EQ(unit.connector.PubSubPublish("job", {}, 0, 0, 0, "", false), 2);
  EXPECT_TRUE(unit.StopsAtOnce());
  EXPECT_THAT(
      log.Lines(LogLevel::kInfo),
      ElementsAre(ConnectorLine(
          "error",
          "the broker 127.0.0.1:" + std::to_string(broker.Port()) +
              " refuses the credentials of this unit: Connection Refused: not authorised")));
}

TEST_F(BrokerWithPasswords, PasswordFileMissing_OneLineAndReadAgainAtTheNextTry) {
  broker.Start();
  const std::string credentials = Credentials("secret");
  std::filesystem::rename(File("password"), File("password.away"));
  BrokerUnit unit(broker.Port(), credentials);
  unit.Start();
  EXPECT_TRUE(tests::Eventually([&] { return !log.Lines(LogLevel::kError).empty(); }));
  std::filesystem::rename(File("password.away"), File("password"));
  EXPECT_TRUE(unit.states.heard.WaitFor("T 2"));
  EXPECT_THAT(
      log.Lines(LogLevel::kError),
      ElementsAre(ConnectorLine(
          "error", "no connection to the broker 127.0.0.1:" + std::to_string(broker.Port()) + ": " +
                       File("password") + ": No such file or directory")));
}

/// A broker that speaks TLS with a certificate of the test's.
class TlsBroker : public ::testing::Test {
 protected:
  static std::string Pki(const std::string& name) { return tests::PkiPath("tls/" + name); }

  /// Runs a broker with the certificate in folder `server`; `more` are further settings.
  void Start(const std::string& server, const std::string& more = "") {
    broker = std::make_unique<tests::MosquittoBroker>("allow_anonymous true\ncertfile " +
                                                      Pki(server + "/cert.pem") + "\nkeyfile " +
                                                      Pki(server + "/key.pem") + "\n" + more);
    broker->Start();
  }

  /// Why a unit that trusts `caFile` does not connect.
  std::string ReasonOfRefusal(const std::string& caFile, const std::string& more = "") {
    BrokerUnit unit(broker->Port(), "ca_file = \"" + caFile + "\"\n" + more);
    unit.Start();
    EXPECT_TRUE(tests::Eventually([&] { return !log.Lines(LogLevel::kError).empty(); }));
    EXPECT_TRUE(unit.states.heard.WaitFor("T 1"));
    EXPECT_TRUE(unit.StopsAtOnce());
    EXPECT_THAT(unit.states.heard.Texts(), ElementsAre("T 1"));
    const auto lines = log.Lines(LogLevel::kInfo);
    EXPECT_EQ(lines.size(), 1U);
    const std::string start = ConnectorLine(
        "error", "no connection to the broker 127.0.0.1:" + std::to_string(broker->Port()) + ": ");
    EXPECT_EQ(lines.front().substr(0, start.size()), start);
    return lines.front().substr(start.size());
  }

  platform_host::CapturedLog log;
  std::unique_ptr<tests::MosquittoBroker> broker;
};

TEST_F(TlsBroker, GoodCertificate_MessagesArrive) {
  Start("good");
  BrokerUnit unit(broker->Port(), "ca_file = \"" + Pki("ca.pem") + "\"\n");
  unit.ConnectAndSubscribe();
  for (int count = 0; count < 100; ++count) {
    EXPECT_EQ(unit.connector.PubSubPublish("job", std::vector<std::uint8_t>(20000, 'x'), 0, 0, 0,
                                           "", false),
              0);
  }
  EXPECT_TRUE(unit.topics.heard.WaitFor("message job " + std::string(20000, 'x'), 100));
}

TEST_F(TlsBroker, KilledAndRestarted_ConnectsAgain) {
  Start("good");
  BrokerUnit unit(broker->Port(), "ca_file = \"" + Pki("ca.pem") + "\"\n");
  unit.ConnectAndSubscribe();
  broker->Stop(SIGKILL);
  ASSERT_TRUE(unit.topics.heard.WaitFor("connection 1"));
  broker->Start();
  EXPECT_TRUE(unit.topics.heard.WaitFor("connection 0"));
}

TEST_F(TlsBroker, CaFileReplacedAfterwards_NewOneCounts) {
  Start("good");
  const std::string caFile = broker->Directory() + "/ca.pem";
  tests::WriteText(caFile, tests::ReadText(Pki("other-ca.pem")));
  BrokerUnit unit(broker->Port(), "ca_file = \"" + caFile + "\"\n");
  unit.Start();
  EXPECT_TRUE(tests::Eventually([&] { return !log.Lines(LogLevel::kError).empty(); }));
  tests::WriteText(caFile, tests::ReadText(Pki("ca.pem")));
  unit.ListenOnceAccepted();
  tests::WriteText(caFile, tests::ReadText(Pki("other-ca.pem")));
  log.Clear();
  broker->Stop(SIGKILL);
  broker->Start();
  EXPECT_TRUE(
      tests::Eventually([&] { return broker->Log().find("unknown ca") != std::string::npos; }));
}

TEST_F(TlsBroker, ClientCertificateDemandedAndGiven_Connects) {
  Start("good", "require_certificate true\ncafile " + Pki("ca.pem") + "\n");
  BrokerUnit unit(broker->Port(), "ca_file = \"" + Pki("ca.pem") + "\"\ncert_file = \"" +
                                      Pki("client/cert.pem") + "\"\nkey_file = \"" +
                                      Pki("client/key.pem") + "\"\n");
  unit.ConnectAndSubscribe();
}

TEST_F(TlsBroker, UnknownCa_RefusedWithALineThatSaysSo) {
  Start("unknown-ca");
  EXPECT_EQ(ReasonOfRefusal(Pki("ca.pem")),
            "TLS: its certificate was issued by no CA of " + Pki("ca.pem"));
}

TEST_F(TlsBroker, WrongName_RefusedWithALineThatSaysSo) {
  Start("wrong-name");
  EXPECT_EQ(ReasonOfRefusal(Pki("ca.pem")), "TLS: its certificate is for another address");
}

TEST_F(TlsBroker, Expired_RefusedWithALineThatSaysSo) {
  Start("expired");
  EXPECT_EQ(ReasonOfRefusal(Pki("ca.pem")), "TLS: a certificate of its chain has expired");
}

TEST_F(TlsBroker, CaFileMissing_NoConnection) {
  Start("good");
  EXPECT_EQ(ReasonOfRefusal("/nowhere/ca.pem"),
            "cannot read /nowhere/ca.pem: No such file or directory");
}

TEST_F(TlsBroker, CaFileWithoutCertificate_NoConnection) {
  Start("good");
  EXPECT_EQ(ReasonOfRefusal(Pki("empty.pem")), "no certificate in " + Pki("empty.pem"));
}

TEST_F(TlsBroker, ClientCertificateDemandedAndMissing_Refused) {
  Start("good", "require_certificate true\ncafile " + Pki("ca.pem") + "\n");
  // Its word of why is lost when the connection is reset behind it.
  EXPECT_THAT(ReasonOfRefusal(Pki("ca.pem")),
              AnyOf("the broker closed the connection (TLS: tlsv13 alert certificate required)",
                    "TLS: tlsv13 alert certificate required", "TLS: the broker broke it off",
                    "Connection reset by peer", "Broken pipe"));
}

TEST_F(Broker, TlsTowardsAPlainBroker_Refused) {
  broker.Start();
  BrokerUnit unit(broker.Port(), "ca_file = \"" + tests::PkiPath("tls/ca.pem") + "\"\n");
  unit.Start();
  EXPECT_TRUE(tests::Eventually([&] { return !log.Lines(LogLevel::kError).empty(); }));
  EXPECT_THAT(log.Lines(LogLevel::kError),
              ElementsAre(AnyOf(NoConnection("TLS: unexpected eof while reading"),
                                NoConnection("Connection reset by peer"))));
}

}  // namespace
}  // namespace lumo_connector
