#include "tools/tsc/VerifyCommand.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/support/CommandTest.h"
#include "tests/support/TestContainer.h"
#include "tools/tsc/ExitCode.h"

namespace tsc {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using tests::TestContainer;

class VerifyCommand : public tests::CommandTest {
 protected:
  VerifyCommand() {
    options.rootFiles = {Pki("root.pem")};
    options.ocsp = "good";
  }

  int Verify(const std::string& container) {
    options.file = Write("in.tsc", container);
    return RunVerify(options, out, err);
  }

  VerifyOptions options;
};

TEST_F(VerifyCommand, GoodContainer_LinesOfAUnitAndStatusZero) {
  EXPECT_EQ(Verify(TestContainer().Build()), kDone);
  EXPECT_EQ(out.str(),
            "  info: X5C certificate chain parsed successfully.\n"
            "  info: Verifying the Common Name passed.\n"
            "  info: Checking the Timestamp passed.\n"
            "  info: Timestamp in the installed container: 1970-01-01T00:00:00\n"
            "  info: Timestamp in the new container: 2026-01-02T03:04:05\n"
            "  info: X5C certificates path validation succeeded!\n"
            "  info: Verifying the Signature passed.\n"
            "  info: Truststores cleared succesfully.\n"
            "  info: Certification bundle A updated succesfully.\n"
            "  info: Certification bundle B updated succesfully.\n"
            "status 0 (STATUS_CODE_SUCCESS): a unit would install it\n");
  EXPECT_EQ(err.str(), "");
}

TEST_F(VerifyCommand, StatesAndContainers_StatusOfEach) {
  const struct {
    const char* what;
    std::string container;
    VerifyOptions changed;
    const char* answer;
  } cases[] = {
      {"installed already",
       TestContainer().Build(),
       {"", {}, "id", "2026-01-02T03:04:05", "now", "good", {}, false},
       "status 1 (STATUS_CODE_DOWNLOAD_ERROR): already installed\n"},
      {"no container",
       "text",
       {"", {}, "", "0", "now", "good", {}, false},
       "status 3 (STATUS_CODE_SIGN_VALIDATION_ERROR): not parsed\n"},
      {"ahead of the clock",
       TestContainer().Build(),
       {"", {}, "", "0", "2026-01-01T03:04:04", "good", {}, false},
       "status 4 (STATUS_CODE_DOWNGRADE_ERROR): timestamp more than 24 hours in the future\n"},
      {"no OCSP answer",
       TestContainer().Build(),
       {"", {}, "", "0", "now", "none", {}, false},
       "status 5 (STATUS_CODE_CERT_DECODE_ERROR): signer revoked or revocation unknown, or "
       "signature wrong\n"},
      {"older",
       TestContainer().Build(),
       {"", {}, "id", "2026-01-02T03:04:06", "now", "good", {}, false},
       "status 6 (STATUS_CODE_TSC_ROLLBACK): older than the installed container\n"},
      {"other root",
       TestContainer("p384-3").Build(),
       {"", {}, "", "0", "now", "good", {}, false},
       "status 7 (STATUS_CODE_STORAGE_ERROR): signer chain leads to no root\n"},
      {"wrong name",
       TestContainer("cn-wrong").Build(),
       {"", {}, "", "0", "now", "good", {}, false},
       "status 9 (STATUS_CODE_UNEXPECTED_ERROR): signer has the wrong Common Name\n"},
      {"bad payload",
       TestContainer().PayloadJson(R"({"A":["AAAA"]})").Build(),
       {"", {}, "", "0", "now", "good", {}, false},
       "status 13 (STATUS_CODE_13): a payload certificate is not valid\n"},
  };
  for (const auto& entry : cases) {
    options = entry.changed;
    options.rootFiles = {Pki("root.pem")};
    out.str("");
    EXPECT_EQ(Verify(entry.container), kRefused) << entry.what;
    EXPECT_THAT(out.str(), EndsWith(entry.answer)) << entry.what;
  }
}

TEST_F(VerifyCommand, Switches_BypassTheirCheck) {
  const std::string container = TestContainer().SpoilSignature().Build();
  EXPECT_EQ(Verify(container), kRefused);
  options.switches = {"no-check-tscsignature"};
  EXPECT_EQ(Verify(container), kDone);
}

TEST_F(VerifyCommand, OcspDisabled_NeedsNoAnswer) {
  options.ocsp = "none";
  options.switches = {"OcspDisable"};
  EXPECT_EQ(Verify(TestContainer().Build()), kDone);
}

TEST_F(VerifyCommand, TwoRootFiles_BothTried) {
  options.rootFiles = {Pki("other-root/other-name.pem"), Pki("root.pem")};
  EXPECT_EQ(Verify(TestContainer().Build()), kDone);
  EXPECT_THAT(out.str(), HasSubstr("Certificate path cannot be validated against: Unrelated Root"));
}

TEST_F(VerifyCommand, Json_HasStatusIdAndLog) {
  options.json = true;
  EXPECT_EQ(Verify(TestContainer("cn-wrong").Id("\"id-7\"").Build()), kRefused);
  const auto told = nlohmann::json::parse(out.str());
  EXPECT_EQ(told["status"], 9);
  EXPECT_EQ(told["name"], "STATUS_CODE_UNEXPECTED_ERROR");
  EXPECT_EQ(told["container_id"], "id-7");
  EXPECT_EQ(told["log"].back(),
            "error: ERROR: Certificate CommonName 'OTHER Signer' is not valid! ");
}

TEST_F(VerifyCommand, WrongOptions_EachNamed) {
  const struct {
    VerifyOptions options;
    const char* error;
  } cases[] = {
      {{"", {}, "", "soon", "now", "good", {}, false},
       "--installed-timestamp soon: not now, YYYY-MM-DDThh:mm:ss in UTC, or seconds since the "
       "epoch"},
      {{"", {}, "", "0", "soon", "good", {}, false},
       "--at soon: not now, YYYY-MM-DDThh:mm:ss in UTC, or seconds since the epoch"},
      {{"", {}, "", "0", "now", "bad", {}, false}, "--ocsp bad: not none, good or revoked"},
      {{"", {}, "", "0", "now", "good", {"no-check"}, false},
       "--switch no-check: not TestModeEnabled, ConnectionRetryTestMode, OcspDisable, "
       "no-check-replayprotection, no-check-timestampfuture, no-check-signcertpath, "
       "no-check-signcertcn, no-check-tscsignature, no-check-ocsp, no-check-all"},
  };
  for (const auto& entry : cases) {
    err.str("");
    EXPECT_EQ(RunVerify(entry.options, out, err), kUsage);
    EXPECT_EQ(err.str(), std::string("tsc verify: ") + entry.error + "\n");
  }
}

TEST_F(VerifyCommand, WrongResponders_EachNamed) {
  const struct {
    const char* url;
    std::string ca;
    int code;
    std::string error;
  } cases[] = {
      {"", "", kUsage, "--ocsp-url : must begin with http:// or https://"},
      {"https://r/", "", kUsage, "--ocsp-url https://r/: https needs --ocsp-ca FILE"},
      {"http://r/", "ca.pem", kUsage, "--ocsp-ca ca.pem: only for an https --ocsp-url"},
      {"https://r/", Path("none.pem"), kFileFailed,
       "--ocsp-ca: cannot read " + Path("none.pem") + ": No such file or directory"},
      {"https://r/", Write("empty.pem", ""), kRefused,
       "--ocsp-ca: no certificate in " + Path("empty.pem")},
  };
  for (const auto& entry : cases) {
    err.str("");
    options.ocspUrl = entry.url;
    options.ocspCa = entry.ca;
    EXPECT_EQ(Verify(TestContainer().Build()), entry.code) << entry.error;
    EXPECT_EQ(err.str(), "tsc verify: " + entry.error + "\n");
    EXPECT_EQ(out.str(), "");
  }
}

TEST_F(VerifyCommand, SignerThatNamesNoResponder_RefusedByTheClientsOwnCheck) {
  options.ocspUrl = "http://127.0.0.1:1/";
  EXPECT_EQ(Verify(TestContainer().Build()), kRefused);
  EXPECT_THAT(out.str(), HasSubstr("  info: Got URL for 'RUNA-TruststoreOCSP.COOCSPRequest'\n"));
  EXPECT_THAT(out.str(), HasSubstr(" is missing OCSP responder.\n"
                                   "  info: OCSP Check 1 Failed.\n"
                                   "  error: OCSP check FAILED\n"));
  EXPECT_THAT(out.str(), EndsWith("status 5 (STATUS_CODE_CERT_DECODE_ERROR): signer revoked or "
                                  "revocation unknown, or signature wrong\n"));
}

TEST_F(VerifyCommand, MissingFiles_EachNamed) {
  options.file = Path("missing");
  EXPECT_EQ(RunVerify(options, out, err), kFileFailed);
  EXPECT_EQ(err.str(), "tsc verify: " + Path("missing") + ": No such file or directory\n");
  err.str("");
  options.rootFiles = {Path("none.pem")};
  EXPECT_EQ(Verify(TestContainer().Build()), kFileFailed);
  EXPECT_EQ(err.str(), "tsc verify: " + Path("none.pem") + ": No such file or directory\n");
}

TEST_F(VerifyCommand, EachCheckSwitch_BypassesItsCheckAlone) {
  const struct {
    const char* key;
    const char* chain;
    const char* installed;
    const char* at;
  } cases[] = {
      {"no-check-replayprotection", "p256-3", "2026-01-02T03:04:06", "now"},
      {"no-check-signcertpath", "p384-3", "0", "now"},
      {"no-check-signcertcn", "cn-wrong", "0", "now"},
      {"no-check-all", "p384-3", "2026-01-02T03:04:06", "now"},
  };
  for (const auto& entry : cases) {
    options.installedTimestamp = entry.installed;
    options.at = entry.at;
    const std::string container = TestContainer(entry.chain).Build();
    options.switches.clear();
    EXPECT_EQ(Verify(container), kRefused) << entry.key;
    options.switches = {"TestModeEnabled"};
    EXPECT_EQ(Verify(container), kRefused) << entry.key;
    options.switches = {entry.key};
    EXPECT_EQ(Verify(container), kDone) << entry.key << out.str();
  }
}

TEST_F(VerifyCommand, ClockBeforeTheSigner_ChainRefused) {
  options.at = "2026-01-02T03:04:05";
  EXPECT_EQ(Verify(TestContainer().Build()), kRefused);
  EXPECT_THAT(out.str(), EndsWith("status 7 (STATUS_CODE_STORAGE_ERROR): signer chain leads to no "
                                  "root\n"));
}

TEST_F(VerifyCommand, ControlCharactersOfTheContainer_EscapedInTheLines) {
  EXPECT_EQ(Verify(TestContainer("cn-line-feed").Build()), kRefused);
  EXPECT_THAT(out.str(), HasSubstr("'KALVIRON one\\x0atwo'"));
}

TEST_F(VerifyCommand, RootFileWithoutCertificate_Named) {
  options.rootFiles = {Write("empty.pem", "no certificate\n")};
  EXPECT_EQ(Verify(TestContainer().Build()), kRefused);
  EXPECT_EQ(err.str(),
            "tsc verify: no PEM certificate in " + Path("empty.pem") + ", nor one in DER\n");
  EXPECT_EQ(out.str(), "");
}

TEST_F(VerifyCommand, RootInDer_Taken) {
  const auto der = tests::Certificate("root.pem").BER_encode();
  options.rootFiles = {Write("root.der", {der.begin(), der.end()})};
  EXPECT_EQ(Verify(TestContainer().Build()), kDone) << out.str();
}

TEST_F(VerifyCommand, BundleNameTooLongForAUnit_StatusTen) {
  const std::string name(245, 'x');
  EXPECT_EQ(Verify(TestContainer().PayloadJson("{\"" + name + "\":[]}").Build()), kRefused);
  EXPECT_THAT(out.str(), HasSubstr(".pem: File name too long\n"
                                   "  error: ERROR: Certification bundle xxx"));
  EXPECT_THAT(out.str(), EndsWith("  error: ERROR: Certificate group update failed!\n"
                                  "  info: Truststores cleared succesfully.\n"
                                  "status 10 (STATUS_CODE_10): a bundle could not be installed\n"));
}

TEST_F(VerifyCommand, NothingOfTheRun_StaysOnDisk) {
  ASSERT_EQ(Verify(TestContainer().Build()), kDone);
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(directory.Path())) {
    EXPECT_EQ(entry.path().filename(), "in.tsc");
    ++files;
  }
  EXPECT_EQ(files, 1U);
}

}  // namespace
}  // namespace tsc
