#include "platform/host/lumo_connector/MosquittoClient.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "tests/support/Files.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/TemporaryDirectory.h"

namespace lumo_connector {
namespace {

using Outcome = MqttClientIf::Sent::Outcome;

/// Writes down nothing; what brokers say is shown in tests/integration.
class DeafListener : public MqttListenerIf {
 public:
  void Accepted() override { isAccepted = true; }
  void CredentialsRefused(const std::string&) override {}
  void SubscribeAnswered(int, bool) override {}
  void PublishAcknowledged(int) override {}
  void PublicationsForgotten() override {}
  void MessageArrived(const std::string&, std::vector<std::uint8_t>, std::uint16_t) override {}
  void OversizedMessageArrived() override {}

  bool isAccepted = false;
};

/// A client for a broker that the test plays.
class Client : public ::testing::Test {
 protected:
  std::unique_ptr<MqttClientIf> Make(std::uint64_t packetLimit = MosquittoClient::kPacketLimit) {
    auto made = MosquittoClient::Make(config, 65536, packetLimit);
    EXPECT_TRUE(made.Ok());
    return std::move(made).Take();
  }

  /// Why Connect fails with a password file that holds `text`; empty when it does not.
  std::string ReasonOf(const std::string& text) {
    config.username = "unit";
    config.passwordFile = passwordFile;
    tests::WriteText(passwordFile, text);
    const auto error = Make()->Connect();
    return error ? error->Text() : "";
  }

  /// Serves until the broker has accepted.
  void ServeUntilAccepted(MqttClientIf& client) {
    DeafListener listener;
    while (!listener.isAccepted) {
      const auto interest = client.WaitsFor();
      ASSERT_TRUE(tests::WaitFor(interest.descriptor, interest.events));
      ASSERT_EQ(client.Serve(interest.events, listener), std::nullopt);
    }
  }

  Client() {
    config.host = "127.0.0.1";
    config.port = peer.Port();
    config.clientId = "unit-1";
  }

  const tests::TemporaryDirectory directory;
  const std::string passwordFile = directory.Path() + "/password";
  const tests::LoopbackPeer peer;
  platform_host::BrokerConfig config;
};

TEST_F(Client, ClientIdThatIsNoUtf8_Fails) {
  config.clientId = "\xFF";
  EXPECT_FALSE(MosquittoClient::Make(config, 65536).Ok());
}

TEST_F(Client, PasswordFileAtAndAboveLimit_TakenAndRefused) {
  EXPECT_EQ(ReasonOf(std::string(MosquittoClient::kPasswordFileLimit, 'x')), "");
  EXPECT_EQ(ReasonOf(std::string(MosquittoClient::kPasswordFileLimit + 1, 'x')),
            passwordFile + ": File too large");
}

TEST_F(Client, PasswordWithNul_Refused) {
  EXPECT_EQ(ReasonOf(std::string("se\0cret", 7)), passwordFile + ": holds a NUL");
}

TEST_F(Client, NameThatNobodyKnows_SaidSo) {
  config.host = std::string(300, 'x');  // too long to be asked for
  const auto error = Make()->Connect();
  ASSERT_NE(error, std::nullopt);
  EXPECT_EQ(error->Text().substr(0, 29), "the name cannot be resolved: ");
}

TEST_F(Client, TopicsThatMqttDoesNotKnow_Impossible) {
  const auto client = Make();
  ASSERT_EQ(client->Connect(), std::nullopt);
  EXPECT_EQ(client->Subscribe("a#").outcome, Outcome::kImpossible);
  EXPECT_EQ(client->Subscribe("").outcome, Outcome::kImpossible);
  EXPECT_EQ(client->Publish("a/+", {}).outcome, Outcome::kImpossible);
  EXPECT_EQ(client->Publish(std::string(65536, 'x'), {}).outcome, Outcome::kImpossible);
}

TEST_F(Client, WithoutConnection_SubscriptionNotTakenAndPublicationSentLater) {
  const auto client = Make();
  EXPECT_EQ(client->Subscribe("job").outcome, Outcome::kNoConnection);
  EXPECT_EQ(client->Publish("r", {'x'}).outcome, Outcome::kSent);
  ASSERT_EQ(client->Connect(), std::nullopt);
  const auto fd = peer.Accept();
  ASSERT_TRUE(tests::SendAll(fd.Get(), std::string("\x20\x02\0\0", 4)));
  ServeUntilAccepted(*client);
  client->Close();
  const std::string said = tests::ReadToEnd(fd.Get());
  const std::string publication("\x06\x00\x01r\x00\x01x", 7);
  const auto first = said.find(publication);
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(said.find(publication, first + 1), std::string::npos) << "sent twice";
}

/// A quiet broker sends nothing else for months.
TEST_F(Client, AnswersToPings_CountAsCompletePackets) {
  const auto client = Make(/*packetLimit=*/16);
  ASSERT_EQ(client->Connect(), std::nullopt);
  const auto fd = peer.Accept();
  ASSERT_TRUE(tests::SendAll(fd.Get(), std::string("\x20\x02\0\0", 4)));
  ServeUntilAccepted(*client);
  DeafListener listener;
  for (int count = 0; count < 20; ++count) {
    ASSERT_TRUE(tests::SendAll(fd.Get(), std::string("\xD0\x00", 2)));
    ASSERT_TRUE(tests::WaitFor(client->WaitsFor().descriptor, POLLIN));
    ASSERT_EQ(client->Serve(POLLIN, listener), std::nullopt);
  }
}

TEST_F(Client, Closed_ConnectsAgain) {
  const auto client = Make();
  ASSERT_EQ(client->Connect(), std::nullopt);
  const auto first = peer.Accept();
  client->Close();
  client->Close();
  EXPECT_EQ(client->WaitsFor().descriptor, -1);
  ASSERT_EQ(client->Connect(), std::nullopt);
  const auto second = peer.Accept();
  EXPECT_GE(client->WaitsFor().descriptor, 0);
}

}  // namespace
}  // namespace lumo_connector
