#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "tests/support/Files.h"
#include "tests/support/FreshUnit.h"
#include "tests/support/HSMOcspTest.h"

namespace truststore_update_client {
namespace {

using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Texts = std::vector<std::string>;
using Bytes = ::tests::Bytes;

class HSMOcspValidationTest : public ::tests::HSMOcspTest {};

Bytes Der(const Botan::X509_Certificate& certificate) {
  return certificate.BER_encode();
}

TEST_F(HSMOcspValidationTest, EveryCertificate_IsAskedForFromTheTopToTheLeaf) {
  EXPECT_THAT(Validate("p256-3", 0),
              ElementsAre("info: Got URL for '"s + kTop + "'", "info: OCSP Check 1 Passed.",
                          "info: Got URL for '"s + kBelow + "'", "info: OCSP Check 2 Passed.",
                          "info: Got URL for '"s + kBelow + "'", "info: OCSP Check 3 Passed.",
                          "info: All OCSP checks Passed"));
  const auto chain = ::tests::Chain("p256-3");
  const Bytes root = Der(::tests::Certificate("p256-3/root.pem"));
  const Bytes issuers[] = {root, Der(chain[2]), Der(chain[1])};
  ASSERT_EQ(3U, responder->questions.size());
  for (std::size_t i = 0; i < 3; ++i) {
    const auto& question = responder->questions[i];
    EXPECT_EQ(Der(chain[2 - i]), question.certificate) << i;
    EXPECT_EQ(issuers[i], question.issuer) << i;
    EXPECT_EQ(i == 0 ? kTop : kBelow, question.operationTypeId) << i;
    EXPECT_EQ("http://" + question.operationTypeId, question.url) << i;
  }
}

TEST_F(HSMOcspValidationTest, ChainOfOne_IsAskedForOnceAgainstTheRoot) {
  EXPECT_THAT(Validate("p256-1", 0),
              ElementsAre("info: Got URL for '"s + kTop + "'", "info: OCSP Check 1 Passed.",
                          "info: All OCSP checks Passed"));
  ASSERT_EQ(1U, responder->questions.size());
  EXPECT_EQ(Der(::tests::Certificate("p256-1/root.pem")), responder->questions[0].issuer);
}

TEST_F(HSMOcspValidationTest, FailureOfTheSecondCheck_EndsTheWalk) {
  responder->results = {0, 1};
  EXPECT_THAT(Validate("p256-3", 1),
              ElementsAre("info: Got URL for '"s + kTop + "'", "info: OCSP Check 1 Passed.",
                          "info: Got URL for '"s + kBelow + "'", "info: OCSP Check 2 Failed.",
                          "error: OCSP check FAILED"));
  EXPECT_EQ(2U, responder->questions.size());
}

TEST_F(HSMOcspValidationTest, ResultsOtherThanThree_AreFinal) {
  for (const int result : {1, 2, 4, -1, 255}) {
    responder->questions.clear();
    responder->results = {result};
    (void)Validate("p256-1", 1);
    EXPECT_EQ(1U, responder->questions.size()) << result;
  }
}

TEST_F(HSMOcspValidationTest, ExchangeThatIsNotCompleted_IsTriedAgainUntilThatChanges) {
  responder->results = {3, 3, 0, 3, 1};
  const std::string url = "info: Got URL for '"s + kTop + "'";
  const std::string below = "info: Got URL for '"s + kBelow + "'";
  EXPECT_THAT(Validate("p256-2", 1),
              ElementsAre(url, "info: OCSP Check 1 Failed.", "error: Retrying in 0 seconds...",  //
                          url, "info: OCSP Check 1 Failed.", "error: Retrying in 0 seconds...",  //
                          url, "info: OCSP Check 1 Passed.",                                     //
                          below, "info: OCSP Check 2 Failed.", "error: Retrying in 0 seconds...",
                          below, "info: OCSP Check 2 Failed.", "error: OCSP check FAILED"));
}

TEST_F(HSMOcspValidationTest, ExchangeThatIsNotCompleted_IsTriedWithoutLimit) {
  responder->results.assign(1000, 3);
  EXPECT_EQ("info: All OCSP checks Passed", Validate("p256-1", 0).back());
  EXPECT_EQ(1001U, responder->questions.size());
}

TEST_F(HSMOcspValidationTest, RetryInterval_IsThirtySeconds) {
  HSM hsm(FieldCollaborators());
  hsm.StopRetryTimer();  // the first wait ends at once
  responder->results = {3, 0};
  EXPECT_THAT(Validate(hsm, "p256-1", 0), ::testing::Contains("error: Retrying in 30 seconds..."));
}

TEST_F(HSMOcspValidationTest, AddressThatIsNotConfigured_LeavesTheCheckAnEmptyOne) {
  urlStatus = 2;
  EXPECT_THAT(Validate("p256-1", 0),
              ElementsAre("error: Failed to get the URL for '"s + kTop + "', status=2",
                          "info: OCSP Check 1 Passed.", "info: All OCSP checks Passed"));
  EXPECT_EQ("", responder->questions.at(0).url);
}

TEST_F(HSMOcspValidationTest, RootsThatCannotBeRead_FailTheValidation) {
  trustStore->FailRead(1);
  EXPECT_THAT(Validate("p256-1", 1), ElementsAre("error: ERROR: Unable to get Root Certificate!",
                                                 "error: OCSP check FAILED"));
  EXPECT_THAT(responder->questions, IsEmpty());
}

TEST_F(HSMOcspValidationTest, BundleThatIsNotOfCertificates_FailsTheValidation) {
  trustStore->Provision("ZORA", "-----BEGIN CERTIFICATE-----\nAA\n-----END CERTIFICATE-----\n");
  const Texts lines = Validate("p256-1", 1);
  ASSERT_EQ(2U, lines.size());
  EXPECT_EQ(0U, lines[0].rfind("error: ERROR: OCSP check ended: ", 0)) << lines[0];
  EXPECT_EQ("error: OCSP check FAILED", lines[1]);
}

TEST_F(HSMOcspValidationTest, IssuerOfTheTop_IsTheFirstRootWhoseNameAndKeyFit) {
  const std::string root = ::tests::PkiText("p256-3/root.pem");
  const std::string sameName = ::tests::PkiText("other-root/same-name.pem");
  const std::string otherName = ::tests::PkiText("other-root/other-name.pem");
  trustStore->Provision("ZORA", otherName + sameName + root + sameName);
  (void)Validate("p256-1", 0);
  EXPECT_EQ(Der(::tests::Certificate("p256-3/root.pem")), responder->questions.at(0).issuer);
}

// What a unit finds beside the root that it knows, when the next one has a key of another age.
TEST_F(HSMOcspValidationTest, RootWhoseKeyCannotBeUsed_IsNotTheIssuer) {
  const std::string root = ::tests::PkiText("p256-3/root.pem");
  Bytes encoding = Der(::tests::Certificate("p256-3/root.pem"));
  const Bytes ecPublicKey = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x02, 0x01};
  const auto at =
      std::search(encoding.begin(), encoding.end(), ecPublicKey.begin(), ecPublicKey.end());
  ASSERT_NE(encoding.end(), at);
  at[6] = 0x7F;  // an algorithm that nobody knows
  trustStore->Provision("ZORA", Botan::X509_Certificate(encoding).PEM_encode() + root);
  (void)Validate("p256-1", 0);
  EXPECT_EQ(Der(::tests::Certificate("p256-3/root.pem")), responder->questions.at(0).issuer);
}

TEST_F(HSMOcspValidationTest, TopThatNoRootIssued_FailsWithoutAQuestion) {
  trustStore->Provision("ZORA", ::tests::PkiText("other-root/same-name.pem"));
  EXPECT_THAT(
      Validate("p256-1", 1),
      ElementsAre("error: ERROR: No Root Certificate issued the top of the certificate chain!",
                  "error: OCSP check FAILED"));
  EXPECT_THAT(responder->questions, IsEmpty());
}

TEST_F(HSMOcspValidationTest, EmptyChain_Fails) {
  HSM hsm(Collaborators());
  log.Clear();
  EXPECT_EQ(1, hsm.X5COcspValidation({}));
  EXPECT_THAT(log.Lines(), ElementsAre("error: OCSP check FAILED"));
}

TEST_F(HSMOcspValidationTest, ExceptionOfACheck_FailsTheValidation) {
  responder->onCheck = [] { throw std::runtime_error("out of order"); };
  EXPECT_THAT(Validate("p256-1", 1), ElementsAre("info: Got URL for '"s + kTop + "'",
                                                 "error: ERROR: OCSP check ended: out of order",
                                                 "error: OCSP check FAILED"));
}

TEST_F(HSMOcspValidationTest, WithoutAnybodyToAsk_Fails) {
  HSM::Collaborators collaborators = Collaborators();
  collaborators.ocspConnection = nullptr;
  HSM hsm(std::move(collaborators));
  EXPECT_THAT(Validate(hsm, "p256-1", 1), ElementsAre("error: ERROR: There is no OCSP connection!",
                                                      "error: OCSP check FAILED"));
}

// The lines of a validation by what the constructor for units puts together; one attempt is made.
Texts LinesOnAUnit(const std::shared_ptr<lumo_connector::LumoConnector>& connector) {
  const std::string factory = "/var/lib/truststore-update-client/trust-store/factory";
  ::setenv("TSUC_HOST_CONFIG", "/run/absent.toml", 1);
  std::filesystem::create_directories(factory);
  ::tests::WriteText(factory + "/ZORA.pem", ::tests::PkiText("ocsp/responder/issuer.pem"));
  HSM hsm(connector);
  hsm.DisableUpdateRetries(true);
  const platform_host::CapturedLog log;
  EXPECT_EQ(1, hsm.X5COcspValidation({::tests::Certificate("ocsp/good.der")}));
  return log.Lines();
}

using HSMOcspOnAUnit = ::tests::HSMOcspTest;

TEST_F(HSMOcspOnAUnit, Checks_GoOverTheConnector) {
  ::tests::RunOnFreshUnit([] {
    EXPECT_THAT(LinesOnAUnit(std::make_shared<lumo_connector::LumoConnector>(nullptr)),
                ElementsAre("error: Failed to get the URL for '"s + kTop + "', status=2",
                            "info: OCSP Responder URL: http://ocsp.invalid/ask",
                            "info: HttpConnection: Connecting to :0",
                            "error: libLumoConnectorShared: cannot connect to :0 for "s + kTop +
                                ": there is no session",
                            "error: HttpConnection: Connection not established. Status: 107",
                            "error: HttpConnection: Connection failed!",
                            "info: OCSP Check 1 Failed.", "error: OCSP check FAILED"));
  });
}

TEST_F(HSMOcspOnAUnit, WithoutAConnector_NoCertificateIsGood) {
  ::tests::RunOnFreshUnit([] {
    EXPECT_THAT(LinesOnAUnit(nullptr), ElementsAre("error: ERROR: There is no OCSP connection!",
                                                   "error: OCSP check FAILED"));
  });
}

}  // namespace
}  // namespace truststore_update_client
