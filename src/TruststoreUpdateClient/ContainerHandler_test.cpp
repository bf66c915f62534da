#include "TruststoreUpdateClient/ContainerHandler.h"

#include <gmock/gmock.h>

#include <functional>
#include <utility>

#include "platform/host/csc_logging/CapturedLog.h"
#include "support/FileContents.h"
#include "tests/doubles/FakeHSM.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestContainer.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::tests::TestContainer;

constexpr std::uint32_t kContainerTime = TestContainer::kContainerTime;

// The order of the checks and what each failure does, with a facade that answers as the test says.
class ContainerHandlerTest : public ::testing::Test {
 protected:
  ContainerHandlerTest() {
    setenv("TZ", "UTC", 1);
    tzset();
  }

  void Switch(const std::string& name) { switches += name + "=true\n"; }

  ContainerHandler Handler() {
    EXPECT_EQ(0, support::ReplaceFile(directory.Path() + "/config.cfg", switches, 0644));
    return ContainerHandler(hsm,
                            development_tools::DevelopmentTools(directory.Path() + "/config.cfg"),
                            [this] { return std::chrono::system_clock::from_time_t(now); });
  }

  ResponseStatus Install(const TestContainer& container) {
    ContainerHandler handler = Handler();
    log.Clear();
    return handler.VerifyAndInstallContainer(container.Build());
  }

  const ::tests::TemporaryDirectory directory;
  const std::shared_ptr<::tests::FakeHSM> hsm = std::make_shared<::tests::FakeHSM>();
  std::string switches;
  std::time_t now = kContainerTime;
  platform_host::CapturedLog log;
};

const std::vector<std::string> kLinesOfASuccess = {
    "info: X5C certificate chain parsed successfully.",
    "info: Verifying the Common Name passed.",
    "info: Checking the Timestamp passed.",
    "info: Timestamp in the installed container: 1970-01-01T00:00:00",
    "info: Timestamp in the new container: 2026-01-02T03:04:05",
    "info: Verifying the Signature passed."};

TEST_F(ContainerHandlerTest, GoodContainer_IsCheckedInOrderThenInstalledThenRecorded) {
  EXPECT_EQ(kInstalled, Install(TestContainer()));
  EXPECT_THAT(hsm->calls, ElementsAre("validate path", "check revocation", "verify signature",
                                      "remove all", "install A", "install B",
                                      "set timestamp 1767323045", "set id container-1"));
  EXPECT_EQ(kLinesOfASuccess, log.Lines());
}

TEST_F(ContainerHandlerTest, SameTimestampAsInstalled_Returns1AndTouchesNothing) {
  hsm->timestamp = kContainerTime;
  EXPECT_EQ(kAlreadyInstalled, Install(TestContainer()));
  EXPECT_THAT(hsm->calls, IsEmpty());
  EXPECT_EQ("info: Timestamps in the installed container and in the new container are the same.",
            log.Lines().back());
}

TEST_F(ContainerHandlerTest, OneSecondOlderThanInstalled_Returns6) {
  hsm->timestamp = kContainerTime + 1;
  EXPECT_EQ(kOlderThanInstalled, Install(TestContainer()));
  EXPECT_THAT(hsm->calls, IsEmpty());
  EXPECT_EQ(
      "error: ERROR: Timestamp in the new container is older than the timestamp in the installed "
      "container!",
      log.Lines().back());
}

TEST_F(ContainerHandlerTest, OneSecondNewerThanInstalled_IsInstalled) {
  hsm->timestamp = kContainerTime - 1;
  EXPECT_EQ(kInstalled, Install(TestContainer()));
}

TEST_F(ContainerHandlerTest, ExactlyADayAhead_Passes) {
  now = std::time_t{kContainerTime} - 86400;
  EXPECT_EQ(kInstalled, Install(TestContainer()));
}

TEST_F(ContainerHandlerTest, ADayAndASecondAhead_Returns4) {
  now = std::time_t{kContainerTime} - 86401;
  EXPECT_EQ(kTimestampInFuture, Install(TestContainer()));
  EXPECT_EQ("error: ERROR: Container timestamp more than 24h in future: 2026-01-02T03:04:05",
            log.Lines().back());
}

TEST_F(ContainerHandlerTest, CommonNamesThatMatch_Pass) {
  for (const char* chain : {"cn-exact", "cn-two-parts", "cn-two-split-prefix", "cn-3000"}) {
    hsm->timestamp = 0;
    EXPECT_EQ(kInstalled, Install(TestContainer(chain))) << chain;
  }
}

TEST_F(ContainerHandlerTest, CommonNamesThatDoNotMatch_Return9) {
  for (const char* chain : {"cn-wrong", "cn-prefix-not-first", "cn-lower-case", "cn-prefix-cut",
                            "cn-two-second-matches", "cn-missing", "cn-line-feed",
                            "cn-carriage-return", "cn-line-separator"}) {
    EXPECT_EQ(kCommonNameWrong, Install(TestContainer(chain))) << chain;
    EXPECT_THAT(hsm->calls, IsEmpty());
  }
}

TEST_F(ContainerHandlerTest, WrongCommonName_IsNamedInTheLog) {
  EXPECT_EQ(kCommonNameWrong, Install(TestContainer("cn-prefix-not-first")));
  EXPECT_THAT(log.Lines(),
              ElementsAre("info: X5C certificate chain parsed successfully.",
                          "error: ERROR: Certificate CommonName 'xKALVIRON TSC Signer 1' is not "
                          "valid! "));
}

struct FacadeFailure {
  const char* call;
  ResponseStatus status;
  std::vector<std::string> calls;
};

TEST_F(ContainerHandlerTest, FacadeFailure_EndsTheInstallationWithItsStatus) {
  const std::vector<std::string> checks = {"validate path", "check revocation", "verify signature"};
  for (const FacadeFailure& failure :
       {FacadeFailure{"validate path", kPathNotValid, {}},
        FacadeFailure{"check revocation", kRevokedOrSignatureWrong, {}},
        FacadeFailure{"verify signature", kRevokedOrSignatureWrong, {}},
        FacadeFailure{"remove all", kStoresNotRemoved, {}},
        FacadeFailure{"install A", kBundleNotInstalled, {"remove all"}},
        FacadeFailure{"install B", kBundleNotInstalled, {"remove all"}},
        FacadeFailure{"set timestamp 1767323045", kRecordsNotStored, {}},
        FacadeFailure{"set id container-1", kRecordsNotStored, {}}}) {
    hsm->calls.clear();
    hsm->timestamp = 0;
    hsm->failing = {{failure.call, 1}};
    EXPECT_EQ(failure.status, Install(TestContainer())) << failure.call;
    std::vector<std::string> expectedEnd{failure.call};
    expectedEnd.insert(expectedEnd.end(), failure.calls.begin(), failure.calls.end());
    const std::vector<std::string> end(
        hsm->calls.end() - static_cast<std::ptrdiff_t>(expectedEnd.size()), hsm->calls.end());
    EXPECT_EQ(expectedEnd, end) << failure.call;
  }
}

TEST_F(ContainerHandlerTest, SecondOfThreeBundlesFails_RemovesAllAgainAndStoresNoRecord) {
  hsm->failing = {{"install B", 1}};
  EXPECT_EQ(kBundleNotInstalled, Install(TestContainer().PayloadJson(R"({"C":[],"A":[],"B":[]})")));
  EXPECT_THAT(hsm->calls, ElementsAre("validate path", "check revocation", "verify signature",
                                      "remove all", "install A", "install B", "remove all"));
  EXPECT_THAT(hsm->bundles, IsEmpty());
  EXPECT_EQ("error: ERROR: Certificate group update failed!", log.Lines().back());
}

TEST_F(ContainerHandlerTest, RemovalAfterAFailedBundleFailsToo_Returns14) {
  // The first removal passes; the one after the failed bundle does not.
  class SecondRemovalFails : public ::tests::FakeHSM {
   public:
    bool RemoveAllTrustStores() override { return ++removals > 1; }
    int removals = 0;
  };
  const auto facade = std::make_shared<SecondRemovalFails>();
  facade->failing = {{"install A", 1}};
  ContainerHandler failing(facade, development_tools::DevelopmentTools("/nonexistent"),
                           [this] { return std::chrono::system_clock::from_time_t(now); });
  EXPECT_EQ(kStoresNotRemoved, failing.VerifyAndInstallContainer(TestContainer().Build()));
  EXPECT_EQ(2, facade->removals);
}

struct BadContainer {
  const char* what;
  TestContainer container;
  ResponseStatus status;
  std::string lastLine;
};

TEST_F(ContainerHandlerTest, BadHeaderOrPayload_ReturnsItsStatusAndLeavesTheStoreAlone) {
  const auto truncated =
      TestContainer::BundleArray({::tests::PkiBytes("payload/refused/truncated.der")});
  for (const BadContainer& bad :
       {BadContainer{"no ts", TestContainer().Timestamp(""), kNotParsed,
                     "Error: Unable to find data with key 'ts'!"},
        BadContainer{"bad ts", TestContainer().Timestamp("\"2026-01-02 03:04:05\""), kNotParsed,
                     "Error: Cannot convert Timestamp!"},
        BadContainer{"no alg", TestContainer().Algorithm(""), kNotParsed,
                     "Error: Unable to find data with key 'alg'!"},
        BadContainer{"other alg", TestContainer().Algorithm("\"RS256\""), kNotParsed,
                     "Error: Unknown Algorithm: RS256"},
        BadContainer{"no id", TestContainer().Id(""), kNotParsed,
                     "Error: Unable to find data with key 'ContainerId'!"},
        BadContainer{"empty id", TestContainer().Id("\"\""), kNotParsed,
                     "Error: Empty ContainerId"},
        BadContainer{"no x5c", TestContainer().X5c(""), kNotParsed,
                     "Error: Unable to find data with key 'x5c'!"},
        BadContainer{"empty x5c", TestContainer().X5c("[]"), kNotParsed,
                     "Error: X5C certificate chain is empty!"},
        BadContainer{"payload no JSON", TestContainer().PayloadJson("{"), kNotParsed,
                     "ERROR: Unable to parse the certificates!"},
        BadContainer{"payload without bundles", TestContainer().PayloadJson("{}"), kNotParsed,
                     "ERROR: Unable to parse the certificates!"},
        BadContainer{"certificate no base64", TestContainer().PayloadJson(R"({"A":["!"]})"),
                     kNotParsed, "ERROR: Base64 decoding error when parsing certificate!"},
        BadContainer{"bad certificate", TestContainer().PayloadJson("{\"A\":" + truncated + "}"),
                     kPayloadCertificateInvalid,
                     "ERROR: Certificate group update failed! Invalid certificate format!"}}) {
    hsm->calls.clear();
    EXPECT_EQ(bad.status, Install(bad.container)) << bad.what;
    EXPECT_EQ("error: " + bad.lastLine, log.Lines().back()) << bad.what;
    EXPECT_THAT(hsm->calls, ::testing::Not(::testing::Contains("remove all"))) << bad.what;
  }
}

struct Bypass {
  const char* name;
  const char* failingCall;  // "" when the container itself fails the check
  const char* chain;
  std::time_t clockOffset;
  std::uint32_t installedTimestamp;
};

TEST_F(ContainerHandlerTest, EachBypassAlone_LetsItsOwnCheckFailAndNoOther) {
  const std::vector<Bypass> bypasses = {
      {"no-check-signcertcn", "", "cn-wrong", 0, 0},
      {"no-check-timestampfuture", "", "p256-3", -86401, 0},
      {"no-check-replayprotection", "", "p256-3", 0, kContainerTime + 1},
      {"no-check-signcertpath", "validate path", "p256-3", 0, 0},
      {"no-check-ocsp", "check revocation", "p256-3", 0, 0},
      {"no-check-tscsignature", "verify signature", "p256-3", 0, 0}};
  for (const Bypass& set : bypasses) {
    for (const Bypass& failing : bypasses) {
      switches = std::string(set.name) + "=true\n";
      now = std::time_t{kContainerTime} + failing.clockOffset;
      hsm->timestamp = failing.installedTimestamp;
      hsm->failing.clear();
      if (*failing.failingCall != '\0') hsm->failing = {{failing.failingCall, -1}};
      const bool installed = Install(TestContainer(failing.chain)) == kInstalled;
      EXPECT_EQ(set.name == failing.name, installed) << set.name << " / " << failing.name;
    }
  }
}

TEST_F(ContainerHandlerTest, ReplayProtectionOff_InstallsAnOlderContainerWithItsTimestamp) {
  Switch("no-check-replayprotection");
  hsm->timestamp = kContainerTime + 1000;
  EXPECT_EQ(kInstalled, Install(TestContainer()));
  EXPECT_EQ(kContainerTime, hsm->timestamp);
}

TEST_F(ContainerHandlerTest, OcspDisabled_NeverAsksForRevocation) {
  Switch("OcspDisable");
  EXPECT_EQ(kInstalled, Install(TestContainer()));
  EXPECT_THAT(hsm->calls, ::testing::Not(::testing::Contains("check revocation")));
}

TEST_F(ContainerHandlerTest, OcspCheckIgnored_IsStillMade) {
  Switch("no-check-ocsp");
  EXPECT_EQ(kInstalled, Install(TestContainer()));
  EXPECT_THAT(hsm->calls, ::testing::Contains("check revocation"));
}

TEST_F(ContainerHandlerTest, AllChecksOff_InstallsAWrongSignatureButNoOtherAlgorithm) {
  Switch("no-check-all");
  hsm->failing = {{"verify signature", -1}};
  EXPECT_EQ(kInstalled, Install(TestContainer()));
  EXPECT_EQ(kNotParsed, Install(TestContainer().Algorithm("\"ES384\"")));
}

TEST_F(ContainerHandlerTest, Stopped_Returns16AndRemovesNothingUntilResumed) {
  ContainerHandler handler = Handler();
  log.Clear();
  handler.StopProcessing(true);
  EXPECT_EQ(kProcessingStopped, handler.VerifyAndInstallContainer(TestContainer().Build()));
  EXPECT_EQ("error: Processing stopped!", log.Lines().back());
  EXPECT_THAT(hsm->calls, ElementsAre("disable retries", "validate path", "check revocation",
                                      "verify signature"));
  handler.StopProcessing(false);
  EXPECT_EQ(kInstalled, handler.VerifyAndInstallContainer(TestContainer().Build()));
}

TEST_F(ContainerHandlerTest, Terminated_Returns16ForGood) {
  ContainerHandler handler = Handler();
  log.Clear();
  handler.TerminateProcessing();
  EXPECT_THAT(log.Lines(), ElementsAre("debug: ContainerHandler: Processing terminated"));
  handler.StopProcessing(false);
  EXPECT_EQ(kProcessingStopped, handler.VerifyAndInstallContainer(TestContainer().Build()));
}

TEST_F(ContainerHandlerTest, StopAndRetryRequests_TellTheFacade) {
  ContainerHandler handler = Handler();
  log.Clear();
  handler.StopProcessing(true);
  handler.StopProcessing(false);
  handler.DisableUpdateRetries(true);
  handler.DisableUpdateRetries(false);
  EXPECT_THAT(hsm->calls, ElementsAre("disable retries", "enable retries", "disable retries",
                                      "enable retries"));
  EXPECT_THAT(log.Lines(), ElementsAre("debug: ContainerHandler: Processing stopped",
                                       "debug: ContainerHandler: Processing stopped",
                                       "debug: ContainerHandler: Retries disabled",
                                       "debug: ContainerHandler: Retries disabled"));
}

TEST_F(ContainerHandlerTest, Resume_EnablesNoRetriesThatOthersHaveDisabled) {
  ContainerHandler handler = Handler();
  handler.DisableUpdateRetries(true);
  handler.StopProcessing(false);
  handler.DisableUpdateRetries(false);
  handler.TerminateProcessing();
  handler.StopProcessing(false);
  EXPECT_THAT(hsm->calls, ElementsAre("disable retries", "disable retries", "enable retries",
                                      "disable retries", "disable retries"));
}

/// Is told that retries are enabled only after `meanwhile` has run, as by another thread.
class FacadeToldLate : public ::tests::FakeHSM {
 public:
  void DisableUpdateRetries(bool disable) override {
    if (!disable && meanwhile) std::exchange(meanwhile, nullptr)();
    retriesDisabled = disable;
  }
  std::function<void()> meanwhile;
  bool retriesDisabled = false;
};

TEST_F(ContainerHandlerTest, StopWhileAnUpdateEnds_HasTheLastWord) {
  const auto facade = std::make_shared<FacadeToldLate>();
  ContainerHandler handler(facade, development_tools::DevelopmentTools("/nonexistent"));
  facade->meanwhile = [&handler] { handler.StopProcessing(true); };
  handler.DisableUpdateRetries(false);
  EXPECT_TRUE(facade->retriesDisabled);
}

TEST_F(ContainerHandlerTest, InstallingId_IsThatOfTheLastHeaderReadAndSurvivesAFailure) {
  ContainerHandler handler = Handler();
  std::string id = "x";
  handler.GetInstallingContainerId(id);
  EXPECT_EQ("", id);
  hsm->failing = {{"validate path", -1}};
  EXPECT_EQ(kPathNotValid, handler.VerifyAndInstallContainer(TestContainer().Build()));
  handler.GetInstallingContainerId(id);
  EXPECT_EQ("container-1", id);
  EXPECT_EQ(kNotParsed, handler.VerifyAndInstallContainer("no container"));
  handler.GetInstallingContainerId(id);
  EXPECT_EQ("", id);
}

TEST_F(ContainerHandlerTest, InstalledRecords_ComeFromTheFacade) {
  ContainerHandler handler = Handler();
  hsm->id = "installed";
  hsm->timestamp = 7;
  std::string id;
  handler.GetInstalledContainerId(id);
  EXPECT_EQ("installed", id);
  EXPECT_EQ(7U, handler.GetInstalledContainerTimestamp());
  hsm->id.clear();
  handler.GetInstalledContainerId(id);
  EXPECT_EQ("", id);
}

TEST_F(ContainerHandlerTest, RemoveAll_Returns14WhenTheFacadeFails) {
  const ContainerHandler handler = Handler();
  EXPECT_EQ(kInstalled, handler.RemoveAllTrustStores());
  hsm->failing = {{"remove all", 1}};
  EXPECT_EQ(kStoresNotRemoved, handler.RemoveAllTrustStores());
}

TEST_F(ContainerHandlerTest, WithoutAFacade_EveryOperationFailsOrDoesNothing) {
  ContainerHandler handler(nullptr, development_tools::DevelopmentTools("/nonexistent"));
  EXPECT_THAT(log.Lines(), ElementsAre("error: Cannot create Hsm!"));
  EXPECT_EQ(STATUS_CODE_UNEXPECTED_ERROR,
            handler.VerifyAndInstallContainer(TestContainer().Build()));
  EXPECT_EQ(kStoresNotRemoved, handler.RemoveAllTrustStores());
  EXPECT_EQ(0U, handler.GetInstalledContainerTimestamp());
  std::string id = "x";
  handler.GetInstalledContainerId(id);
  EXPECT_EQ("", id);
  handler.StopProcessing(true);
  handler.TerminateProcessing();
  handler.DisableUpdateRetries(true);
}

TEST_F(ContainerHandlerTest, ExceptionOfTheFacade_EndsAsUnexpectedError) {
  class Throwing : public ::tests::FakeHSM {
   public:
    std::uint32_t GetInstalledContainerTimestamp() override {
      throw std::runtime_error("out of order");
    }
  };
  ContainerHandler handler(std::make_shared<Throwing>(),
                           development_tools::DevelopmentTools("/nonexistent"));
  EXPECT_EQ(STATUS_CODE_UNEXPECTED_ERROR,
            handler.VerifyAndInstallContainer(TestContainer().Build()));
  EXPECT_EQ("error: ERROR: Container processing failed! out of order", log.Lines().back());
}

TEST_F(ContainerHandlerTest, DateTime_IsFormattedForTheLog) {
  std::string text;
  Handler().ConvertEpochTimestampToDatetime(kContainerTime, text);
  EXPECT_EQ("2026-01-02T03:04:05", text);
}

}  // namespace
}  // namespace truststore_update_client
