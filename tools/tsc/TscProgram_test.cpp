#include "tools/tsc/TscProgram.h"

#include <gmock/gmock.h>

#include "tests/support/CommandTest.h"
#include "tools/tsc/ExitCode.h"

namespace tsc {
namespace {

using ::testing::HasSubstr;

class TscProgram : public tests::CommandTest {
 protected:
  int Run(const std::vector<std::string>& arguments) { return RunTsc(arguments, out, err); }
  int Create() {
    return Run({"create", "--key", Pki("p256-3/leaf.key.pem"), "--chain", Pki("p256-3/chain.pem"),
                "--id", "id-1", "--bundle", "WEB=" + Pki("payload/00.der"), "--bundle",
                "NONE=", "-o", Path("out.tsc")});
  }
};

TEST_F(TscProgram, CreateInspectVerify_EachDone) {
  ASSERT_EQ(Create(), kDone) << err.str();
  EXPECT_EQ(Run({"inspect", Path("out.tsc")}), kDone);
  EXPECT_EQ(Run({"verify", "--root", Pki("root.pem"), "--ocsp", "good", Path("out.tsc")}), kDone);
  EXPECT_EQ(err.str(), "");
}

TEST_F(TscProgram, FileBehindARepeatableOption_IsTheContainer) {
  ASSERT_EQ(Create(), kDone) << err.str();
  EXPECT_EQ(Run({"verify", "--ocsp", "good", "--root", Pki("root.pem"), Path("out.tsc")}), kDone)
      << err.str();
  EXPECT_EQ(Run({"verify", "--root", Pki("root.pem"), "--switch", "OcspDisable", Path("out.tsc")}),
            kDone)
      << err.str();
}

TEST_F(TscProgram, OcspAnswerBesideAResponder_Refused) {
  EXPECT_EQ(Run({"verify", "--root", Pki("root.pem"), "--ocsp", "good", "--ocsp-url", "http://r/",
                 Path("out.tsc")}),
            kUsage);
  EXPECT_THAT(err.str(), HasSubstr("--ocsp excludes --ocsp-url"));
}

TEST_F(TscProgram, OcspCaWithoutResponder_Refused) {
  EXPECT_EQ(Run({"verify", "--root", Pki("root.pem"), "--ocsp-ca", "ca.pem", Path("out.tsc")}),
            kUsage);
  EXPECT_THAT(err.str(), HasSubstr("--ocsp-ca requires --ocsp-url"));
}

TEST_F(TscProgram, OcspUrl_Asked) {
  ASSERT_EQ(Create(), kDone) << err.str();
  EXPECT_EQ(Run({"verify", "--root", Pki("root.pem"), "--ocsp-url", "http://127.0.0.1:1/",
                 Path("out.tsc")}),
            kRefused);
  EXPECT_THAT(out.str(), HasSubstr("OCSP Check 1 Failed."));
}

TEST_F(TscProgram, SecondFileBehindOneRoot_NeverTrusted) {
  ASSERT_EQ(Create(), kDone) << err.str();
  EXPECT_EQ(Run({"verify", Path("out.tsc"), "--ocsp", "good", "--root",
                 Pki("other-root/other-name.pem"), Pki("root.pem")}),
            kUsage);
}

TEST_F(TscProgram, RepeatedRootAndSwitch_AllCount) {
  ASSERT_EQ(Create(), kDone) << err.str();
  EXPECT_EQ(Run({"verify", "--switch", "TestModeEnabled", "--switch", "OcspDisable", "--root",
                 Pki("other-root/other-name.pem"), "--root", Pki("root.pem"), Path("out.tsc")}),
            kDone)
      << err.str();
}

TEST_F(TscProgram, ChainOfSeveralFilesBeforeOtherOptions_AllTaken) {
  EXPECT_EQ(Run({"create", "--chain", Pki("p256-3/chain/0.der"), Pki("p256-3/chain/1.der"),
                 Pki("p256-3/chain/2.der"), "--key", Pki("p256-3/leaf.key.pem"), "--id", "id-1",
                 "--bundle", "NONE=", "-o", Path("out.tsc")}),
            kDone)
      << err.str();
}

TEST_F(TscProgram, SecondBundleBehindOneOption_Refused) {
  EXPECT_EQ(Run({"create", "--key", "k", "--chain", "c", "--id", "i", "-o", Path("out.tsc"),
                 "--bundle", "A=", "B="}),
            kUsage);
}

TEST_F(TscProgram, Switches_Shown) {
  EXPECT_EQ(Run({"switches", "--init", "--file", Path("config.cfg")}), kDone);
  EXPECT_EQ(Run({"switches", "--json", "--file", Path("config.cfg")}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("\"TestModeEnabled\": true"));
}

TEST_F(TscProgram, JobAndReport_EachDone) {
  EXPECT_EQ(Run({"job", "--id", "id-1"}), kDone);
  EXPECT_EQ(out.str(), "\x0A\x04id-1");
  EXPECT_EQ(Run({"job", "--id", "id-1", "--json", "-o", Path("job.bin")}), kDone);
  EXPECT_EQ(Run({"report", "--json", Write("report", "\x08\x06")}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("\"name\": \"STATUS_CODE_TSC_ROLLBACK\""));
  EXPECT_EQ(err.str(), "");
}

TEST_F(TscProgram, Help_OnStandardOutputWithExitCodes) {
  EXPECT_EQ(Run({"--help"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("Exit codes: 0 done;"));
  EXPECT_EQ(err.str(), "");
}

TEST_F(TscProgram, WrongUsage_Two) {
  const std::vector<std::string> cases[] = {
      {},
      {"burn"},
      {"inspect"},
      {"inspect", "--burn", "file"},
      {"create", "--key", "k"},
      {"verify", "file"},
      {"switches", "--force"},
      {"inspect", "a", "b"},
      {"job"},
      {"job", "--id", "a", "--id", "b"},
      {"report", "a", "b"},
  };
  for (const auto& arguments : cases) {
    err.str("");
    EXPECT_EQ(Run(arguments), kUsage) << (arguments.empty() ? "nothing" : arguments[0]);
    EXPECT_NE(err.str(), "");
  }
}

// A stream that takes nothing, as a full disk.
class FullDisk : public std::streambuf {};

TEST_F(TscProgram, AnswerThatCannotBeWritten_Three) {
  FullDisk disk;
  for (const auto& arguments :
       std::vector<std::vector<std::string>>{{"--help"}, {"switches", "--file", Path("missing")}}) {
    std::ostream full(&disk);
    err.str("");
    EXPECT_EQ(RunTsc(arguments, full, err), kFileFailed);
    EXPECT_THAT(err.str(), HasSubstr("tsc: standard output: cannot be written\n"));
  }
}

TEST_F(TscProgram, UnknownCommand_Named) {
  EXPECT_EQ(Run({"burn", "--help"}), kUsage);
  EXPECT_EQ(err.str(),
            "tsc: burn: no such command; there are create, inspect, verify, job, report and "
            "switches\n");
}

TEST_F(TscProgram, CommandsOwnCode_PassedOn) {
  EXPECT_EQ(Run({"inspect", Path("missing")}), kFileFailed);
  EXPECT_EQ(Run({"inspect", Write("text", "text")}), kRefused);
}

}  // namespace
}  // namespace tsc
