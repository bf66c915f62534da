// Every cell of the table on a unit in memory: what it reports, what the backend gets, what is
// installed, and every line of its log.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "tests/matrix/MatrixUnit.h"
#include "tests/matrix/UpdateTable.h"
#include "tests/support/Files.h"

namespace tests {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Key;
using Lines = std::vector<std::string>;

const std::string kTerminated = "info: Truststore Update Client Terminated.";
const std::string kReportLine = "info: Send Update Status to the Device Platform: ";

const UpdateTable& Table() {
  static const UpdateTable table(ReadText(TSUC_UPDATES));
  return table;
}

Lines WithoutThoseAnywhere(Lines lines) {
  const auto isAnywhere = [](const std::string& line) {
    const auto& patterns = Table().Anywhere();
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const std::string& pattern) { return MatchesLine(pattern, line); });
  };
  lines.erase(std::remove_if(lines.begin(), lines.end(), isAnywhere), lines.end());
  return lines;
}

std::string InFull(const Lines& lines) {
  std::string text;
  for (const auto& line : lines) text += "\n  " + line;
  return text;
}

void ExpectLog(const UpdateCell& cell, const Lines& log) {
  Lines expected = FilledInLog(cell);
  expected.push_back(kTerminated);
  const Lines lines = WithoutThoseAnywhere(log);
  const bool matches =
      std::equal(expected.begin(), expected.end(), lines.begin(), lines.end(),
                 [](const auto& pattern, const auto& line) { return MatchesLine(pattern, line); });
  EXPECT_TRUE(matches) << "expected:" << InFull(expected) << "\nlogged:" << InFull(lines);
}

// The status that the unit says that it reports, by its name.
std::string LoggedStatus(const Lines& log) {
  std::string status = "-";
  for (const auto& line : log) {
    if (line.compare(0, kReportLine.size(), kReportLine) == 0) {
      status = line.substr(kReportLine.size());
    }
  }
  return status;
}

void ExpectReports(const UpdateCell& cell, const OutageBackend& backend) {
  const auto reports = backend.Reports();
  ASSERT_EQ(cell.reports.size(), reports.size());
  const std::string installed = cell.trigger == "empty" ? "" : kInstalledId;
  for (std::size_t i = 0; i < reports.size(); ++i) {
    EXPECT_EQ(cell.reports[i].status, reports[i].number);
    EXPECT_EQ(cell.reports[i].namesInstalled ? installed : "", reports[i].containerId);
  }
}

// Every request for a container says why, and what is installed.
void ExpectDownloads(const UpdateCell& cell, const OutageBackend& backend) {
  const bool isAlert = cell.trigger == "alert46" || cell.trigger == "alert48";
  const unsigned reason = cell.trigger == "job" ? 0 : isAlert ? 3 : 2;
  for (const auto& download : backend.Downloads()) {
    EXPECT_EQ(reason, download.number);
    EXPECT_EQ(isAlert ? kAlertOperation : "", download.operation);
    EXPECT_EQ(cell.trigger == "empty" ? "" : kInstalledId, download.containerId);
  }
}

void ExpectStore(const UpdateCell& cell, const MatrixUnit& unit) {
  const bool beganEmpty = cell.trigger == "empty";
  if (cell.store == "new") {
    EXPECT_THAT(unit.TrustStore().Installed(), ElementsAre(Key("A"), Key("B")));
    EXPECT_EQ(kOfferedId, unit.RecordedId());
    EXPECT_EQ("1", unit.Marker());
    return;
  }
  EXPECT_EQ(beganEmpty ? 0U : 1U, unit.TrustStore().Installed().size());
  EXPECT_EQ(beganEmpty ? 0U : 1U, unit.TrustStore().Installed().count("OLD"));
  EXPECT_EQ(beganEmpty ? "" : kInstalledId, unit.RecordedId());
  EXPECT_EQ("0", unit.Marker());
}

void ExpectLifecycle(const UpdateCell& cell, const FakeAra& platform) {
  Lines confirmed;
  if (cell.then == "kPrepSD" || cell.then == "kPrepSD+kOn")
    confirmed.push_back("confirm 1 kPrepSD");
  if (cell.then == "kPrepSD+kOn") confirmed.push_back("confirm 2 kOn");
  EXPECT_EQ(confirmed, platform.Calls("confirm"));
  EXPECT_THAT(platform.Calls("report"), ElementsAre("report running", "report terminating"));
}

void Play(const UpdateCell& cell, MatrixUnit& unit) {
  unit.Trigger();
  if (cell.then == "recovers") {
    unit.Recover();
  } else {
    unit.WaitForPoint();
  }
  if (cell.then == "kPrepSD" || cell.then == "kPrepSD+kOn") unit.Suspend();
  if (cell.then == "kPrepSD+kOn") unit.Resume();
  unit.End();
}

class Updates : public ::testing::TestWithParam<UpdateCell> {
 protected:
  Updates() {
    ::setenv("TZ", "UTC", 1);  // NOLINT(concurrency-mt-unsafe): no other thread yet
    ::tzset();
  }
};

TEST_P(Updates, UnderOutage_EndAsTheTableTells) {
  const UpdateCell& cell = GetParam();
  SCOPED_TRACE("updates.txt:" + std::to_string(cell.line));
  MatrixUnit unit(cell);
  Play(cell, unit);
  EXPECT_EQ(StatusNameOf(cell), LoggedStatus(unit.Log()));
  ExpectLog(cell, unit.Log());
  ExpectReports(cell, unit.Backend());
  ExpectDownloads(cell, unit.Backend());
  ExpectStore(cell, unit);
  ExpectLifecycle(cell, unit.Platform());
}

std::string TestName(const ::testing::TestParamInfo<UpdateCell>& parameter) {
  std::string name = parameter.param.Name();
  for (char& character : name) {
    if (character == '-' || character == '+') character = '_';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Of, Updates, ::testing::ValuesIn(Table().Cells()), TestName);

}  // namespace
}  // namespace tests
