#include "tools/tsc/InspectCommand.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/support/CommandTest.h"
#include "tests/support/TestContainer.h"
#include "tools/tsc/ExitCode.h"

namespace tsc {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using tests::TestContainer;

class InspectCommand : public tests::CommandTest {
 protected:
  int Inspect(const std::string& container) {
    options.file = Write("in.tsc", container);
    return RunInspect(options, out, err);
  }

  InspectOptions options;
};

TEST_F(InspectCommand, GoodContainer_Shown) {
  ASSERT_EQ(Inspect(TestContainer("p256-2").Id("\"id-7\"").Build()), kDone);
  EXPECT_THAT(out.str(), StartsWith("container    id-7\n"
                                    "timestamp    2026-01-02T03:04:05\n"
                                    "algorithm    ES256\n"
                                    "signature    64 bytes, not verified\n"
                                    "signer chain 2 certificates\n"
                                    "  [0] "));
  EXPECT_THAT(out.str(), HasSubstr("KALVIRON TSC Signer 1"));
  EXPECT_THAT(out.str(), HasSubstr("bundle       A, 1 certificate\n"));
  EXPECT_THAT(out.str(), HasSubstr("bundle       B, 2 certificates\n"));
  EXPECT_EQ(err.str(), "");
}

TEST_F(InspectCommand, Json_IsOneObject) {
  options.json = true;
  ASSERT_EQ(Inspect(TestContainer("p256-2").Build()), kDone);
  EXPECT_EQ(nlohmann::json::parse(out.str())["algorithm"], "ES256");
}

TEST_F(InspectCommand, JsonWithForeignBytes_StaysJson) {
  options.json = true;
  ASSERT_EQ(Inspect(TestContainer("p256-2").Id("\"\xFF\"").Build()), kDone);
  EXPECT_EQ(nlohmann::json::parse(out.str())["container_id"], "\xEF\xBF\xBD");
}

TEST_F(InspectCommand, ControlCharactersInNames_Escaped) {
  ASSERT_EQ(Inspect(TestContainer("p256-2").Id("\"\033[2J\"").Build()), kDone);
  EXPECT_THAT(out.str(), StartsWith("container    \\x1b[2J\n"));
}

TEST_F(InspectCommand, NoContainer_ErrorNamesFile) {
  EXPECT_EQ(Inspect("plain text"), kRefused);
  EXPECT_EQ(err.str(), "tsc inspect: " + Path("in.tsc") + ": no container: 0 dots in place of 2\n");
  EXPECT_EQ(out.str(), "");
}

TEST_F(InspectCommand, MissingFile_ErrorNamesIt) {
  options.file = Path("missing");
  EXPECT_EQ(RunInspect(options, out, err), kFileFailed);
  EXPECT_EQ(err.str(), "tsc inspect: " + Path("missing") + ": No such file or directory\n");
}

}  // namespace
}  // namespace tsc
