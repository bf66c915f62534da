#include <gmock/gmock.h>

#include <fstream>
#include <future>
#include <stdexcept>

#include "TruststoreUpdateClient/ContainerHandler.h"
#include "TruststoreUpdateClient/HSM.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeOcspConnection.h"
#include "tests/doubles/FakeRecords.h"
#include "tests/doubles/FakeTrustStore.h"
#include "tests/support/Deadline.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestPki.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using Texts = std::vector<std::string>;
using Bytes = ::tests::Bytes;

const std::string kTop = "RUNA-TruststoreOCSP.COOCSPRequest";
const std::string kBelow = "RUNA-TruststoreOCSP.COModOCSPRequest";

class HSMOcspValidationTest : public ::testing::Test {
 protected:
  HSMOcspValidationTest() { trustStore->Provision("ZORA", ::tests::PkiText("p256-3/root.pem")); }

  // As on a unit in the field.
  HSM::Collaborators FieldCollaborators() {
    HSM::Collaborators collaborators{
        trustStore, PersistentFileStorage(std::make_shared<::tests::FakeRecords>())};
    collaborators.containerIdFile = directory.Path() + "/id";
    collaborators.timestampFile = directory.Path() + "/timestamp";
    collaborators.ocspConnection = responder;
    collaborators.invocationUrl = [this](const std::string& operationTypeId) {
      if (onUrl) onUrl();
      return lumo_connector::SCUrlResult{urlStatus, operationTypeId, "http://" + operationTypeId};
    };
    return collaborators;
  }

  // With waits that no test outlives.
  HSM::Collaborators Collaborators() {
    HSM::Collaborators collaborators = FieldCollaborators();
    collaborators.ocspRetryInterval = std::chrono::hours(1);
    collaborators.testabilityPause = std::chrono::hours(1);
    return collaborators;
  }

  // The lines of one validation.
  Texts Validate(HSM& hsm, const std::string& chain, int expected) {
    log.Clear();
    EXPECT_EQ(expected, hsm.X5COcspValidation(::tests::Chain(chain)));
    return log.Lines();
  }

  Texts Validate(const std::string& chain, int expected) {
    HSM::Collaborators collaborators = Collaborators();
    collaborators.ocspRetryInterval = std::chrono::seconds(0);
    HSM hsm(std::move(collaborators));
    return Validate(hsm, chain, expected);
  }

  // Switches as a tester sets them.
  development_tools::DevelopmentTools RetryTestMode() const {
    const std::string file = directory.Path() + "/config.cfg";
    std::ofstream(file) << "ConnectionRetryTestMode = true\n";
    return development_tools::DevelopmentTools(file);
  }

  const ::tests::TemporaryDirectory directory;
  const std::shared_ptr<::tests::FakeTrustStore> trustStore =
      std::make_shared<::tests::FakeTrustStore>();
  const std::shared_ptr<::tests::FakeOcspConnection> responder =
      std::make_shared<::tests::FakeOcspConnection>();
  std::int32_t urlStatus = 1;
  std::function<void()> onUrl;
  platform_host::CapturedLog log;
};

Bytes Der(const Botan::X509_Certificate& certificate) {
  return certificate.BER_encode();
}

TEST_F(HSMOcspValidationTest, EveryCertificate_IsAskedForFromTheTopToTheLeaf) {
  EXPECT_THAT(Validate("p256-3", 0),
              ElementsAre("info: Got URL for '" + kTop + "'", "info: OCSP Check 1 Passed.",
                          "info: Got URL for '" + kBelow + "'", "info: OCSP Check 2 Passed.",
                          "info: Got URL for '" + kBelow + "'", "info: OCSP Check 3 Passed.",
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
              ElementsAre("info: Got URL for '" + kTop + "'", "info: OCSP Check 1 Passed.",
                          "info: All OCSP checks Passed"));
  ASSERT_EQ(1U, responder->questions.size());
  EXPECT_EQ(Der(::tests::Certificate("p256-1/root.pem")), responder->questions[0].issuer);
}

TEST_F(HSMOcspValidationTest, FailureOfTheSecondCheck_EndsTheWalk) {
  responder->results = {0, 1};
  EXPECT_THAT(Validate("p256-3", 1),
              ElementsAre("info: Got URL for '" + kTop + "'", "info: OCSP Check 1 Passed.",
                          "info: Got URL for '" + kBelow + "'", "info: OCSP Check 2 Failed.",
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
  const std::string url = "info: Got URL for '" + kTop + "'";
  const std::string below = "info: Got URL for '" + kBelow + "'";
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
              ElementsAre("error: Failed to get the URL for '" + kTop + "', status=2",
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
  EXPECT_THAT(Validate("p256-1", 1), ElementsAre("info: Got URL for '" + kTop + "'",
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

// What main does to a validation at work on another thread, and when.
class HSMOcspStopTest : public HSMOcspValidationTest {
 protected:
  // Runs a validation of "p256-1" on a thread of its own; `request` runs here as soon as the first
  // check is over, which is when the wait for the next begins. Returns the validation's result.
  int ValidateAndThen(const std::function<void()>& request) {
    std::promise<void> checked;
    bool isFirst = true;
    responder->onCheck = [&checked, &isFirst] {
      if (isFirst) checked.set_value();
      isFirst = false;
    };
    int result = -1;
    log.Clear();
    auto ended = std::async(std::launch::async, [this, &result] {
      result = hsm.X5COcspValidation(::tests::Chain("p256-1"));
    });
    checked.get_future().wait();
    request();
    const bool inTime = ended.wait_for(::tests::kDeadline) == std::future_status::ready;
    EXPECT_TRUE(inTime) << "the wait went on";
    if (!inTime) hsm.DisableUpdateRetries(true);
    ended.wait();
    return result;
  }

  HSM hsm{Collaborators()};
};

TEST_F(HSMOcspStopTest, DisabledBefore_MakesOneAttemptOnly) {
  hsm.DisableUpdateRetries(true);
  responder->results = {3, 0};
  EXPECT_THAT(Validate(hsm, "p256-1", 1),
              ElementsAre("info: Got URL for '" + kTop + "'", "info: OCSP Check 1 Failed.",
                          "error: OCSP check FAILED"));
  EXPECT_EQ(1U, responder->questions.size());
}

TEST_F(HSMOcspStopTest, DisabledDuringACheck_EndsTheLoopAfterIt) {
  responder->onCheck = [this] { hsm.DisableUpdateRetries(true); };
  responder->results = {3, 0};
  (void)Validate(hsm, "p256-1", 1);
  EXPECT_EQ(1U, responder->questions.size());
}

TEST_F(HSMOcspStopTest, DisabledDuringAGoodCheck_LetsTheNextCertificateBeAskedFor) {
  responder->onCheck = [this] { hsm.DisableUpdateRetries(true); };
  (void)Validate(hsm, "p256-2", 0);
  EXPECT_EQ(2U, responder->questions.size());
}

TEST_F(HSMOcspStopTest, DisabledDuringAWait_EndsItWithoutAnotherAttempt) {
  responder->results = {3, 0};
  EXPECT_EQ(1, ValidateAndThen([this] { hsm.DisableUpdateRetries(true); }));
  EXPECT_EQ(1U, responder->questions.size());
  EXPECT_EQ("error: OCSP check FAILED", log.Lines().back());
}

TEST_F(HSMOcspStopTest, WaitCutShortWithoutDisabling_GoesOnWithTheNextAttempt) {
  responder->results = {3, 0};
  EXPECT_EQ(0, ValidateAndThen([this] { hsm.StopRetryTimer(); }));
  EXPECT_EQ(2U, responder->questions.size());
}

TEST_F(HSMOcspStopTest, EnabledDuringAWait_LeavesTheCheckWaiting) {
  responder->results = {3, 0};
  EXPECT_EQ(0, ValidateAndThen([this] {
              hsm.DisableUpdateRetries(false);
              hsm.StopRetryTimer();
            }));
  EXPECT_EQ(2U, responder->questions.size());
}

TEST_F(HSMOcspStopTest, DisabledAndEnabledDuringACheck_GoesOnWithTheNextAttempt) {
  responder->onCheck = [this] {
    hsm.DisableUpdateRetries(true);
    hsm.DisableUpdateRetries(false);
  };
  responder->results = {3, 0};
  (void)Validate(hsm, "p256-1", 0);
  EXPECT_EQ(2U, responder->questions.size());
}

// The same as the update handler asks for it, whatever the handler in between makes of it.
class HSMOcspHandlerTest : public HSMOcspStopTest {
 protected:
  // Outlived by the fixture's facade.
  ContainerHandler handler{std::shared_ptr<HSM>(&hsm, [](HSM*) {}),
                           development_tools::DevelopmentTools("/nonexistent")};
};

TEST_F(HSMOcspHandlerTest, StopDuringAWait_EndsIt) {
  responder->results = {3, 0};
  EXPECT_EQ(1, ValidateAndThen([this] { handler.StopProcessing(true); }));
  EXPECT_EQ(1U, responder->questions.size());
}

TEST_F(HSMOcspHandlerTest, TerminationDuringAWait_EndsIt) {
  responder->results = {3, 0};
  EXPECT_EQ(1, ValidateAndThen([this] { handler.TerminateProcessing(); }));
  EXPECT_EQ(1U, responder->questions.size());
}

TEST_F(HSMOcspHandlerTest, ResumeDuringAWait_LeavesTheCheckToBeTriedAgain) {
  responder->results = {3, 0};
  EXPECT_EQ(0, ValidateAndThen([this] {
              handler.StopProcessing(false);
              hsm.StopRetryTimer();
            }));
  EXPECT_EQ(2U, responder->questions.size());
}

TEST_F(HSMOcspHandlerTest, StopBeforeAndResumeDuringACheck_LeaveItToBeTriedAgain) {
  handler.StopProcessing(true);
  responder->onCheck = [this] { handler.StopProcessing(false); };
  responder->results = {3, 0};
  (void)Validate(hsm, "p256-1", 0);  // the stop's flag on the timer ends the wait at once
  EXPECT_EQ(2U, responder->questions.size());
}

TEST_F(HSMOcspHandlerTest, DisabledThenResumedDuringACheck_EndsTheLoopAfterIt) {
  responder->onCheck = [this] {
    handler.DisableUpdateRetries(true);
    handler.StopProcessing(false);
  };
  responder->results = {3, 0};
  (void)Validate(hsm, "p256-1", 1);
  EXPECT_EQ(1U, responder->questions.size());
}

class HSMOcspTestabilityTest : public HSMOcspValidationTest {
 protected:
  HSM::Collaborators WithTestMode() {
    HSM::Collaborators collaborators = Collaborators();
    collaborators.switches = RetryTestMode();
    collaborators.ocspRetryInterval = std::chrono::seconds(0);
    collaborators.testabilityPause = std::chrono::milliseconds(0);
    return collaborators;
  }
};

TEST_F(HSMOcspTestabilityTest, FirstTwoPassesOfEachCheck_TellTheTesterWhatToDo) {
  HSM hsm(WithTestMode());
  responder->results = {3, 3, 0, 3, 0};
  const auto tell = [](const std::string& check, const std::string& action) {
    return "error: ***** Testability Option: OCSP " + check + " Retry: " + action +
           " socks-sandbox now";
  };
  EXPECT_THAT(Validate(hsm, "p256-2", 0),
              ElementsAre("info: Got URL for '" + kTop + "'", tell("1", "Kill"),
                          "info: OCSP Check 1 Failed.", "error: Retrying in 0 seconds...",
                          "info: Got URL for '" + kTop + "'", tell("1", "Re-start"),
                          "info: OCSP Check 1 Failed.", "error: Retrying in 0 seconds...",
                          "info: Got URL for '" + kTop + "'", "info: OCSP Check 1 Passed.",
                          "info: Got URL for '" + kBelow + "'", tell("2", "Kill"),
                          "info: OCSP Check 2 Failed.", "error: Retrying in 0 seconds...",
                          "info: Got URL for '" + kBelow + "'", tell("2", "Re-start"),
                          "info: OCSP Check 2 Passed.", "info: All OCSP checks Passed"));
}

TEST_F(HSMOcspTestabilityTest, Pause_IsFiveSeconds) {
  EXPECT_EQ(std::chrono::seconds(5), FieldCollaborators().testabilityPause);
}

TEST_F(HSMOcspTestabilityTest, PauseOfAStoppedUpdate_IsNone) {
  HSM::Collaborators collaborators = WithTestMode();
  collaborators.testabilityPause = std::chrono::hours(1);
  HSM hsm(std::move(collaborators));
  onUrl = [&hsm] { hsm.DisableUpdateRetries(true); };
  (void)Validate(hsm, "p256-1", 0);  // returns at once: the test's own time limit is far shorter
}

TEST_F(HSMOcspTestabilityTest, StopDuringThePause_EndsIt) {
  HSM::Collaborators collaborators = WithTestMode();
  collaborators.testabilityPause = std::chrono::hours(1);
  HSM hsm(std::move(collaborators));
  std::promise<void> begun;
  onUrl = [&begun] { begun.set_value(); };
  auto ended = std::async(std::launch::async,
                          [&hsm] { return hsm.X5COcspValidation(::tests::Chain("p256-1")); });
  begun.get_future().wait();
  hsm.StopRetryTimer();  // what an earlier stop has left behind: the pause goes on
  hsm.DisableUpdateRetries(true);
  ASSERT_EQ(std::future_status::ready, ended.wait_for(::tests::kDeadline));
  EXPECT_EQ(0, ended.get());
}

}  // namespace
}  // namespace truststore_update_client
