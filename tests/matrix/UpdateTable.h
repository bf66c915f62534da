/// The table of updates under outages: updates.txt, read into cells. Used by the runner of the
/// matrix; tests/e2e reads the same file for the cells that run as whole daemons. One thread.
#ifndef TESTS_MATRIX_UPDATETABLE_H
#define TESTS_MATRIX_UPDATETABLE_H

#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

namespace tests {

/// A status report as the backend gets it.
struct ExpectedReport {
  std::uint8_t status = 0;
  bool namesInstalled = false;  ///< carries the id of what was installed before; otherwise none
};

/// One update: what happens to it, and what comes of it.
struct UpdateCell {
  std::string trigger;
  std::string outage;
  std::string phase;
  std::string then;
  std::string at;
  std::string status;  ///< the number that the unit says that it reports, or "-"
  std::vector<ExpectedReport> reports;
  std::string store;             ///< "new" or "kept"
  bool runsAsDaemon = false;     ///< also in real time, as a whole
  std::vector<std::string> log;  ///< lines as "level: text"; "*" stands for anything
  std::size_t line = 0;          ///< of the file

  /// "job-lost-before-recovers".
  [[nodiscard]] std::string Name() const;
};

/// Names the cell in messages of GoogleTest, which calls it.
void PrintTo(const UpdateCell& cell, std::ostream* stream);

/// What a file says. The file itself tells its form.
class UpdateTable {
 public:
  /// Reads `text`. Throws std::runtime_error, which tells the line: for what is no table, a word
  /// that the file does not explain, a block of lines that is missing or used by no row, and a
  /// combination of trigger, outage, phase and then that two rows or no row is about.
  explicit UpdateTable(const std::string& text);

  /// One for each combination.
  [[nodiscard]] const std::vector<UpdateCell>& Cells() const { return cells; }

  /// Lines that may stand anywhere in a log, any number of times.
  [[nodiscard]] const std::vector<std::string>& Anywhere() const { return anywhere; }

  /// The words of one kind ("triggers", "outages", "phases", "then", "at"), in the file's order.
  [[nodiscard]] const std::vector<std::string>& Words(const std::string& kind) const;

 private:
  using Columns = std::vector<std::string>;

  void ReadLine(const std::string& line);
  void ReadWord(const std::string& line);
  void ReadBlockLine(const std::string& line);
  void ReadRow(const std::string& line);
  void AddCell(UpdateCell cell, const std::vector<std::string>& blockNames);
  void AddBlock(UpdateCell& cell, const std::string& name, unsigned depth);
  [[nodiscard]] std::string Variant(const UpdateCell& cell, const std::string& name) const;
  [[nodiscard]] std::vector<std::string> ReadChoice(const std::string& kind,
                                                    const std::string& column) const;
  [[nodiscard]] std::vector<std::string> ReadDaemon(const std::string& column) const;
  [[nodiscard]] std::vector<ExpectedReport> ReadReports(const std::string& column) const;
  void CheckWhole() const;
  [[noreturn]] void Refuse(const std::string& reason) const;

  std::map<std::string, std::vector<std::string>> words;
  std::map<std::string, std::vector<std::string>> blocks;
  std::map<std::string, std::size_t> blockUses;
  std::vector<std::string> anywhere;
  std::vector<UpdateCell> cells;
  std::map<std::string, std::size_t> rows;  ///< the line of each cell's, by its name
  std::string section;
  std::string block;
  std::size_t lineNumber = 0;
};

/// Whether `line` is what `pattern` says: "*" stands for any text, also for none.
[[nodiscard]] bool MatchesLine(const std::string& pattern, const std::string& line);

}  // namespace tests

#endif
