// Revocation checks over the host platform's connector, answered by `openssl ocsp`.
#include <gmock/gmock.h>

#include <memory>

#include "TruststoreUpdateClient/HSM.h"
#include "TruststoreUpdateClient/OcspConnection.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeRecords.h"
#include "tests/doubles/FakeTrustStore.h"
#include "tests/support/Command.h"
#include "tests/support/EventLog.h"
#include "tests/support/Files.h"
#include "tests/support/HostConfiguration.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestPki.h"

namespace truststore_update_client {
namespace {

using ::testing::Contains;
using ::tests::Eventually;
using ::tests::ReadText;

const std::string kOperation = "RUNA-TruststoreOCSP.COOCSPRequest";

std::string ResponderFile(const std::string& name) {
  return ::tests::PkiPath("ocsp/responder/" + name);
}

// A responder for the issuer of the set, which signs as `signer`.
class Responder {
 public:
  explicit Responder(const std::string& signer)
      : process({TSUC_OCSP_RESPONDER, "-index", ResponderFile("index.txt"), "-CA",
                 ResponderFile("issuer.pem"), "-rsigner", ResponderFile(signer + ".pem"), "-rkey",
                 ResponderFile(signer + ".key"), "-nmin", "60"},
                directory.Path() + "/output") {}

  // Its address, which it writes as soon as it answers.
  [[nodiscard]] std::string Url() const {
    std::string text;
    EXPECT_TRUE(Eventually([&] {
      text = ReadText(directory.Path() + "/output");
      return !text.empty() && text.back() == '\n';
    }));
    return "http://127.0.0.1:" + text.substr(0, text.find('\n')) + "/";
  }

 private:
  const ::tests::TemporaryDirectory directory;
  ::tests::Command process;
};

// The connector of a unit whose responder is at `url`.
class Unit : public lumo_connector::LumoSessionCallbackIf {
 public:
  explicit Unit(const std::string& url)
      : configuration("[service.\"" + kOperation + "\"]\nurl = \"" + url + "\"\n") {
    connector->Start();
    EXPECT_TRUE(session.WaitFor("2"));
  }
  ~Unit() override { connector->Stop(); }

  void LumoConnectorStatus(lumo_connector::SessionStatus status) override {
    session.Add(std::to_string(static_cast<unsigned>(status)));
  }

  // What the connection says about a certificate of the set.
  [[nodiscard]] int Check(const std::string& certificate) {
    return OcspConnection(connector).CheckCertificate(
        ::tests::PkiBytes("ocsp/" + certificate + ".der"), ::tests::PkiBytes("ocsp/issuer.der"),
        kOperation, connector->GetInvocationUrl(kOperation).url);
  }

 private:
  const ::tests::HostConfiguration configuration;
  ::tests::EventLog session;

 public:
  const std::shared_ptr<lumo_connector::LumoConnector> connector =
      std::make_shared<lumo_connector::LumoConnector>(this);
};

class OcspResponderTest : public ::testing::Test {
 protected:
  platform_host::CapturedLog log;
};

class OcspSignerTest : public OcspResponderTest,
                       public ::testing::WithParamInterface<const char*> {};

TEST_P(OcspSignerTest, GoodCertificate_Passes) {
  const Responder responder(GetParam());
  Unit unit(responder.Url());
  EXPECT_EQ(kOcspGood, unit.Check("good"));
  EXPECT_THAT(log.Lines(), Contains("info: OCSP response status: good for KALVIRON good"));
  EXPECT_THAT(log.Lines(), Contains("info: OCSP signature status: OK"));
}

TEST_P(OcspSignerTest, RevokedOrUnknownCertificate_Fails) {
  const Responder responder(GetParam());
  Unit unit(responder.Url());
  EXPECT_EQ(kOcspFailed, unit.Check("revoked"));
  EXPECT_THAT(log.Lines(), Contains("error: OCSP response status: revoked for KALVIRON revoked"));
  EXPECT_EQ(kOcspFailed, unit.Check("unknown"));
  EXPECT_THAT(log.Lines(), Contains("error: OCSP response status: unknown to the responder for "
                                    "KALVIRON unknown"));
  EXPECT_THAT(log.Lines(), Contains("info: OCSP signature status: OK").Times(2));
}

INSTANTIATE_TEST_SUITE_P(Signers, OcspSignerTest, ::testing::Values("issuer", "delegate"));

TEST_F(OcspResponderTest, ResponderWithoutTheRight_IsNotBelieved) {
  const Responder responder("delegate-no-usage");
  Unit unit(responder.Url());
  EXPECT_EQ(kOcspFailed, unit.Check("good"));
  EXPECT_THAT(log.Lines(), Contains("error: OCSP signature status: not signed by the issuer or its "
                                    "responder"));
}

TEST_F(OcspResponderTest, ResponderThatDoesNotRun_IsNotCompleted) {
  std::string url;
  {
    const Responder responder("issuer");
    url = responder.Url();
  }
  Unit unit(url);
  EXPECT_EQ(kOcspNotCompleted, unit.Check("good"));
}

TEST_F(OcspResponderTest, ChainOnAUnit_IsCheckedOverTheConnector) {
  const Responder responder("delegate");
  Unit unit(responder.Url());
  const auto trustStore = std::make_shared<::tests::FakeTrustStore>();
  trustStore->Provision("ZORA", ReadText(ResponderFile("issuer.pem")));
  const ::tests::TemporaryDirectory directory;
  HSM::Collaborators collaborators{trustStore,
                                   PersistentFileStorage(std::make_shared<::tests::FakeRecords>()),
                                   directory.Path() + "/id", directory.Path() + "/timestamp"};
  collaborators.ocspConnection = std::make_shared<OcspConnection>(unit.connector);
  collaborators.invocationUrl = [&unit](const std::string& operationTypeId) {
    return unit.connector->GetInvocationUrl(operationTypeId);
  };
  HSM hsm(std::move(collaborators));
  EXPECT_EQ(0, hsm.X5COcspValidation({::tests::Certificate("ocsp/good.der")}));
  EXPECT_NE(0, hsm.X5COcspValidation({::tests::Certificate("ocsp/revoked.der")}));
}

}  // namespace
}  // namespace truststore_update_client
