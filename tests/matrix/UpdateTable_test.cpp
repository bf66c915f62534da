#include "tests/matrix/UpdateTable.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "tests/support/Files.h"

namespace tests {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// A whole table of four cells: two triggers by two endings.
const std::string kWords =
    "[triggers]\n"
    "job     a job\n"
    "alert   an alert\n"
    "        of some kind\n"
    "[outages]\n"
    "lost    no connection\n"
    "[phases]\n"
    "before  from the start\n"
    "[then]\n"
    "ends    it ends\n"
    "stays   it stays\n"
    "[at]\n"
    "-       nowhere\n"
    "retry   at the wait\n";
const std::string kLines =
    "# what is logged\n"
    "[lines]\n"
    "begins/job\n"
    "    info: a job\n"
    "begins\n"
    "    info: an alert\n"
    "ends\n"
    "    @fails\n"
    "    warning: late\n"
    "fails\n"
    "    error: failed\n"
    "stays/stays\n"
    "[anywhere]\n"
    "    info: read * bytes\n";
const std::string kRows =
    "[cells]\n"
    "any | lost | before | ends  | -     | 0 | 0 5/installed | new  | job | begins ends\n"
    "any | lost | before | stays | retry | - | -             | kept | -   | begins stays\n";

std::string Refusal(const std::string& text) {
  try {
    const UpdateTable table(text);
    return "";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

TEST(UpdateTable, RowForSeveralCells_IsEachOfThem) {
  const UpdateTable table(kWords + kLines + kRows);
  std::vector<std::string> names;
  for (const auto& cell : table.Cells()) names.push_back(cell.Name());
  EXPECT_THAT(names, ElementsAre("job-lost-before-ends", "alert-lost-before-ends",
                                 "job-lost-before-stays", "alert-lost-before-stays"));
}

TEST(UpdateTable, Row_TellsWhatComesOfTheCell) {
  const UpdateTable table(kWords + kLines + kRows);
  const UpdateCell& cell = table.Cells().front();
  EXPECT_EQ("0", cell.status);
  EXPECT_EQ("-", cell.at);
  EXPECT_EQ("new", cell.store);
  ASSERT_THAT(cell.reports, SizeIs(2));
  EXPECT_EQ(0, cell.reports[0].status);
  EXPECT_FALSE(cell.reports[0].namesInstalled);
  EXPECT_EQ(5, cell.reports[1].status);
  EXPECT_TRUE(cell.reports[1].namesInstalled);
  EXPECT_THAT(table.Cells().back().reports, IsEmpty());
  EXPECT_EQ("retry", table.Cells().back().at);
}

TEST(UpdateTable, Lines_AreThoseOfTheCellsVariants) {
  const UpdateTable table(kWords + kLines + kRows);
  EXPECT_THAT(table.Cells()[0].log, ElementsAre("info: a job", "error: failed", "warning: late"));
  EXPECT_THAT(table.Cells()[1].log,
              ElementsAre("info: an alert", "error: failed", "warning: late"));
  EXPECT_THAT(table.Cells()[3].log, ElementsAre("info: an alert"));
  EXPECT_THAT(table.Anywhere(), ElementsAre("info: read * bytes"));
}

TEST(UpdateTable, Daemon_IsTheCellThatHasAllItsWords) {
  std::string rows = kRows;
  rows.replace(rows.rfind("-   |"), 5, "alert stays |");
  const UpdateTable table(kWords + kLines + rows);
  std::vector<std::string> names;
  for (const auto& cell : table.Cells()) {
    if (cell.runsAsDaemon) names.push_back(cell.Name());
  }
  EXPECT_THAT(names, ElementsAre("job-lost-before-ends", "alert-lost-before-stays"));
}

struct Refused {
  const char* from;
  const char* to;
  const char* reason;
};

// What a good table turns into when `from` becomes `to`.
class RefusedTable : public ::testing::TestWithParam<Refused> {};

TEST_P(RefusedTable, TellsTheLineAndWhatIsWrong) {
  std::string text = kWords + kLines + kRows;
  const std::string from = GetParam().from;
  const auto found = text.rfind(from);
  ASSERT_NE(std::string::npos, found);
  text.replace(found, from.size(), GetParam().to);
  EXPECT_EQ(GetParam().reason, Refusal(text));
}

INSTANTIATE_TEST_SUITE_P(
    Reasons, RefusedTable,
    ::testing::Values(
        Refused{"[at]", "[of]", "line 13: no such section: 'of'"},
        Refused{"retry   at the wait", "retry", "line 14: 'retry' is not explained"},
        Refused{"stays   it stays", "ends    again", "line 11: 'ends' is explained twice"},
        Refused{"ends\n    @fails", "begins\n", "line 21: there is a block 'begins' already"},
        Refused{"begins/job\n", "", "line 17: no log line of a block"},
        Refused{"    warning: late", "    late", "line 23: no log line of a block"},
        Refused{"    info: an alert", "    info: ", "line 20: no log line of a block"},
        Refused{"    info: read * bytes", "    read * bytes", "line 28: no log line"},
        Refused{"| new  |", "|", "line 30: not 10 columns"},
        Refused{"| job | begins", "| job | | begins", "line 30: not 10 columns"},
        Refused{"any | lost | before | ends", "alarm | lost | before | ends",
                "line 30: 'alarm' is not among the triggers"},
        Refused{"before | ends", "later | ends", "line 30: 'later' is not among the phases"},
        Refused{"| retry |", "| soon |", "line 31: 'soon' is not among the at"},
        Refused{"| 0 | 0 5", "| x | 0 5", "line 30: no status: x"},
        Refused{"| 0 | 0 5", "| 100 | 0 5", "line 30: no status: 100"},
        Refused{"5/installed", "5/offered", "line 30: no report: 5/offered"},
        Refused{"5/installed", "/installed", "line 30: no report: "},
        Refused{"| 0 5/installed |", "| |", "line 30: an empty column of reports"},
        Refused{"| kept |", "| gone |", "line 31: no store: gone"},
        Refused{"| job | begins", "| alarm | begins", "line 30: 'alarm' tells no daemon"},
        Refused{"| job | begins", "| ends | begins", "line 30: a daemon without a trigger"},
        Refused{"begins ends\n", "begins later\n",
                "line 30: no block 'later' for job-lost-before-ends"},
        Refused{"    error: failed", "    @ends", "line 30: block 'ends' lies within itself"},
        Refused{"stays/stays\n", "stays/stays\nnever\n",
                "line 32: block 'never' is used by no row"},
        Refused{"any | lost | before | stays", "job,job | lost | before | stays",
                "line 31: line 31 is about job-lost-before-stays too"},
        Refused{"any | lost | before | stays", "job | lost | before | stays",
                "line 31: no row is about alert-lost-before-stays"}));

TEST(UpdateTable, FileOfTheMatrix_IsAboutEveryCombination) {
  const UpdateTable table(ReadText(TSUC_UPDATES));
  EXPECT_THAT(table.Words("triggers"), ElementsAre("job", "empty", "alert46", "alert48"));
  EXPECT_THAT(table.Words("outages"), SizeIs(13));
  EXPECT_THAT(table.Words("phases"), ElementsAre("before", "during", "after"));
  EXPECT_THAT(table.Words("then"), ElementsAre("recovers", "kPrepSD", "kPrepSD+kOn", "SIGTERM"));
  EXPECT_THAT(table.Cells(), SizeIs(4 * 13 * 3 * 4));
}

TEST(MatchesLine, Pattern_StandsForTheLinesThatItTells) {
  EXPECT_TRUE(MatchesLine("info: all", "info: all"));
  EXPECT_TRUE(MatchesLine("read * bytes", "read 12 bytes"));
  EXPECT_TRUE(MatchesLine("read *", "read "));
  EXPECT_TRUE(MatchesLine("*", ""));
  EXPECT_TRUE(MatchesLine("a*b*c", "a b c b c"));
  EXPECT_TRUE(MatchesLine("a*b*b", "abb"));
}

TEST(MatchesLine, OtherLine_IsNone) {
  EXPECT_FALSE(MatchesLine("info: all", "info: all of it"));
  EXPECT_FALSE(MatchesLine("info: all", "info: al"));
  EXPECT_FALSE(MatchesLine("read * bytes", "read 12 bytes."));
  EXPECT_FALSE(MatchesLine("read * bytes", "Read 12 bytes"));
  EXPECT_FALSE(MatchesLine("a*b*b", "ab"));
  EXPECT_FALSE(MatchesLine("aba*aba", "abaab"));
  EXPECT_FALSE(MatchesLine("", "a"));
}

}  // namespace
}  // namespace tests
