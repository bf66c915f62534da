#include "tools/tsc/JobCommand.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/support/CommandTest.h"
#include "tools/tsc/ExitCode.h"

namespace tsc {
namespace {

class JobCommand : public tests::CommandTest {
 protected:
  int Job(const std::string& id, const std::string& file = kStandardStream) {
    options.id = id;
    options.outputFile = file;
    return RunJob(options, out, err);
  }

  JobOptions options;
};

// Field 1, a text of 5 bytes.
constexpr const char* kMessage = "\x0A\x05TSC-1";

TEST_F(JobCommand, StandardOutput_IsTheMessageAndNothingElse) {
  EXPECT_EQ(Job("TSC-1"), kDone);
  EXPECT_EQ(out.str(), kMessage);
  EXPECT_EQ(err.str(), "");
}

TEST_F(JobCommand, File_HoldsTheMessageAndIsToldOf) {
  EXPECT_EQ(Job("TSC-1", Path("job.bin")), kDone);
  EXPECT_EQ(Read(Path("job.bin")), kMessage);
  EXPECT_EQ(out.str(), Path("job.bin") + ": job for container TSC-1, 7 bytes\n");
}

TEST_F(JobCommand, Json_TellsFileIdAndSize) {
  options.json = true;
  EXPECT_EQ(Job("T\xC3\xBC", Path("job.bin")), kDone);
  const nlohmann::json expected = {
      {"file", Path("job.bin")}, {"container_id", "T\xC3\xBC"}, {"bytes", 5}};
  EXPECT_EQ(nlohmann::json::parse(out.str()), expected);
}

TEST_F(JobCommand, JsonWithoutAFile_WrongUsage) {
  options.json = true;
  EXPECT_EQ(Job("TSC-1"), kUsage);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(err.str(), "tsc job: --json: needs -o FILE\n");
}

TEST_F(JobCommand, IdAtTheBound_Written) {
  EXPECT_EQ(Job(std::string(100, 'x')), kDone);
  EXPECT_EQ(out.str(), "\x0A\x64" + std::string(100, 'x'));
}

TEST_F(JobCommand, IdThatNoContainerHas_RefusedAndNothingWritten) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "tsc job: --id: empty\n"},
      {std::string(101, 'x'), "tsc job: --id: more than 100 bytes\n"},
      {"a\"b", "tsc job: --id: has a character that JSON must escape\n"},
      {"\xFF", "tsc job: --id: no UTF-8\n"},
      {"\n\xC3",
       "tsc job: --id: has a character that JSON must escape\n"
       "tsc job: --id: no UTF-8\n"},
  };
  for (const auto& [id, error] : cases) {
    err.str("");
    EXPECT_EQ(Job(id, Path("job.bin")), kRefused) << error;
    EXPECT_EQ(err.str(), error);
    EXPECT_FALSE(std::filesystem::exists(Path("job.bin")));
  }
  EXPECT_EQ(out.str(), "");
}

TEST_F(JobCommand, FileThatCannotBeWritten_ErrorNamesIt) {
  EXPECT_EQ(Job("TSC-1", Path("no/job.bin")), kFileFailed);
  EXPECT_EQ(err.str(), "tsc job: " + Path("no/job.bin") + ": No such file or directory\n");
  EXPECT_EQ(out.str(), "");
}

}  // namespace
}  // namespace tsc
