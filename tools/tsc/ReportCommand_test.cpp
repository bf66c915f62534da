#include "tools/tsc/ReportCommand.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/support/CommandTest.h"
#include "tools/tsc/ExitCode.h"

namespace tsc {
namespace {

class ReportCommand : public tests::CommandTest {
 protected:
  int Report(const std::string& message) {
    options.file = Write("report.bin", message);
    return RunReport(options, out, err);
  }

  ReportOptions options;
};

// Field 1, a number; field 2, a text of 4 bytes.
const std::string kRollback = "\x08\x06\x12\x04id-1";

TEST_F(ReportCommand, Report_Shown) {
  EXPECT_EQ(Report(kRollback), kDone);
  EXPECT_EQ(out.str(), "status    6 STATUS_CODE_TSC_ROLLBACK\ncontainer id-1\n");
  EXPECT_EQ(err.str(), "");
}

TEST_F(ReportCommand, Json_IsOneObject) {
  options.json = true;
  EXPECT_EQ(Report(kRollback), kDone);
  const nlohmann::json expected = {
      {"status", 6}, {"name", "STATUS_CODE_TSC_ROLLBACK"}, {"container_id", "id-1"}};
  EXPECT_EQ(nlohmann::json::parse(out.str()), expected);
}

TEST_F(ReportCommand, NumbersAndTheirNames) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "0 STATUS_CODE_SUCCESS"},
      {"\x08\x09", "9 STATUS_CODE_UNEXPECTED_ERROR"},
      {"\x08\x0A", "10 unknown"},
      {"\x08\x10", "16 unknown"},
      {"\x08\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01", "-1 unknown"},
  };
  for (const auto& [message, line] : cases) {
    out.str("");
    EXPECT_EQ(Report(message), kDone);
    EXPECT_EQ(out.str(), "status    " + line + "\ncontainer \n");
  }
}

TEST_F(ReportCommand, UnknownFields_Ignored) {
  EXPECT_EQ(Report(kRollback + "\x18\x01"), kDone);
  EXPECT_EQ(out.str(), "status    6 STATUS_CODE_TSC_ROLLBACK\ncontainer id-1\n");
}

TEST_F(ReportCommand, ControlCharactersInId_Escaped) {
  EXPECT_EQ(Report("\x12\x04\033[2J"), kDone);
  EXPECT_EQ(out.str(), "status    0 STATUS_CODE_SUCCESS\ncontainer \\x1b[2J\n");
}

TEST_F(ReportCommand, NoReport_ErrorNamesFile) {
  for (const std::string& message :
       {std::string("\xFF"), std::string("\x12\x05id-1"), std::string("\x12\x01\xFF"),
        std::string("plain text"), std::string("\x08")}) {
    err.str("");
    EXPECT_EQ(Report(message), kRefused);
    EXPECT_EQ(err.str(), "tsc report: " + Path("report.bin") + ": no status report\n");
  }
  EXPECT_EQ(out.str(), "");
}

// One field of unknown number that fills the rest.
std::string ReportOf(std::size_t bytes) {
  std::string message("\x1A\xFC\xFF\x03", 4);
  message.resize(bytes, 'x');
  return message;
}

TEST_F(ReportCommand, ReportAtTheBound_Read) {
  EXPECT_EQ(Report(ReportOf(65536)), kDone);
}

TEST_F(ReportCommand, ReportAboveTheBound_Refused) {
  EXPECT_EQ(Report(ReportOf(65537)), kFileFailed);
  EXPECT_EQ(err.str(), "tsc report: " + Path("report.bin") + ": File too large\n");
}

TEST_F(ReportCommand, MissingFile_ErrorNamesIt) {
  options.file = Path("missing");
  EXPECT_EQ(RunReport(options, out, err), kFileFailed);
  EXPECT_EQ(err.str(), "tsc report: " + Path("missing") + ": No such file or directory\n");
}

}  // namespace
}  // namespace tsc
