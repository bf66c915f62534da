#include "tools/tsc/SwitchesCommand.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "TruststoreUpdateClient/DevelopmentTools.h"
#include "tests/support/CommandTest.h"
#include "tools/tsc/ExitCode.h"

namespace tsc {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class SwitchesCommand : public tests::CommandTest {
 protected:
  int Run(const std::string& file) {
    options.file = file;
    return RunSwitches(options, out, err);
  }

  SwitchesOptions options;
};

TEST_F(SwitchesCommand, File_EachSwitchWithItsValue) {
  ASSERT_EQ(Run(Write("config.cfg", "OcspDisable = true ; why\nno-check-all=True\n")), kDone);
  EXPECT_EQ(out.str(),
            "TestModeEnabled             false\n"
            "ConnectionRetryTestMode     false\n"
            "OcspDisable                 true\n"
            "no-check-replayprotection   false\n"
            "no-check-timestampfuture    false\n"
            "no-check-signcertpath       false\n"
            "no-check-signcertcn         false\n"
            "no-check-tscsignature       false\n"
            "no-check-ocsp               false\n"
            "no-check-all                false\n");
  EXPECT_EQ(err.str(), "");
}

TEST_F(SwitchesCommand, Json_IsOneObject) {
  options.json = true;
  ASSERT_EQ(Run(Write("config.cfg", "OcspDisable = true\n")), kDone);
  const auto told = nlohmann::json::parse(out.str());
  EXPECT_EQ(told.size(), 10U);
  EXPECT_EQ(told["OcspDisable"], true);
  EXPECT_EQ(told["no-check-all"], false);
}

TEST_F(SwitchesCommand, MissingFile_AllOffAndReported) {
  ASSERT_EQ(Run(Path("missing")), kDone);
  EXPECT_THAT(out.str(), StartsWith("TestModeEnabled             false\n"));
  EXPECT_EQ(err.str(), ">>> No configuration file found: " + Path("missing") + "\n");
}

TEST_F(SwitchesCommand, MalformedLines_Reported) {
  ASSERT_EQ(Run(Write("config.cfg", "OcspDisable true\n")), kDone);
  EXPECT_THAT(err.str(), HasSubstr("Couldn't find separator on line: 1"));
}

TEST_F(SwitchesCommand, Init_WritesTheDefaults) {
  options.init = true;
  ASSERT_EQ(Run(Path("config.cfg")), kDone);
  EXPECT_EQ(out.str(), Path("config.cfg") + ": default switches written\n");
  options.init = false;
  out.str("");
  ASSERT_EQ(Run(Path("config.cfg")), kDone);
  EXPECT_THAT(out.str(), StartsWith("TestModeEnabled             true\n"
                                    "ConnectionRetryTestMode     false\n"));
}

TEST_F(SwitchesCommand, InitInJson_IsOneObject) {
  options.init = true;
  options.json = true;
  ASSERT_EQ(Run(Path("config.cfg")), kDone);
  EXPECT_EQ(nlohmann::json::parse(out.str()),
            (nlohmann::json{{"file", Path("config.cfg")}, {"written", true}}));
}

TEST_F(SwitchesCommand, InitOverAFile_OnlyWithForce) {
  options.init = true;
  EXPECT_EQ(Run(Write("config.cfg", "mine")), kRefused);
  EXPECT_EQ(err.str(),
            "tsc switches: " + Path("config.cfg") + ": exists already; --force replaces it\n");
  EXPECT_EQ(Read(Path("config.cfg")), "mine");
  options.force = true;
  EXPECT_EQ(Run(Path("config.cfg")), kDone);
  EXPECT_THAT(Read(Path("config.cfg")), HasSubstr("OcspDisable                 = false"));
}

TEST_F(SwitchesCommand, InitInMissingFolder_Told) {
  options.init = true;
  EXPECT_EQ(Run(Path("no/config.cfg")), kFileFailed);
  EXPECT_EQ(err.str(), "tsc switches: " + Path("no/config.cfg") + ": No such file or directory\n");
}

TEST_F(SwitchesCommand, InitOverAFolder_Told) {
  options.init = true;
  options.force = true;
  EXPECT_EQ(Run(directory.Path()), kFileFailed);
  EXPECT_EQ(err.str(), "tsc switches: " + directory.Path() + ": Is a directory\n");
}

TEST_F(SwitchesCommand, FolderInPlaceOfTheFile_CauseAndNoSwitches) {
  EXPECT_EQ(Run(directory.Path()), kFileFailed);
  EXPECT_EQ(err.str(), "tsc switches: " + directory.Path() + ": Is a directory\n");
  EXPECT_EQ(out.str(), "");
}

TEST_F(SwitchesCommand, FileAtTheReadersBound_Shown) {
  std::filesystem::resize_file(Write("config.cfg", ""), development_tools::kMaxConfigFileBytes);
  EXPECT_EQ(Run(Path("config.cfg")), kDone);
}

TEST_F(SwitchesCommand, FileAboveTheReadersBound_CauseAndNoSwitches) {
  std::filesystem::resize_file(Write("config.cfg", ""), development_tools::kMaxConfigFileBytes + 1);
  EXPECT_EQ(Run(Path("config.cfg")), kFileFailed);
  EXPECT_EQ(err.str(), "tsc switches: " + Path("config.cfg") + ": File too large\n");
}

}  // namespace
}  // namespace tsc
