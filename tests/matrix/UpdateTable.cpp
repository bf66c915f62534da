#include "tests/matrix/UpdateTable.h"

#include <algorithm>
#include <ostream>
#include <sstream>
#include <stdexcept>

namespace tests {
namespace {

constexpr std::size_t kColumns = 10;
constexpr unsigned kDeepestBlock = 5;
const std::string kAny = "any";
const std::string kNone = "-";
const std::string kInstalledId = "/installed";
const std::vector<std::string> kWordSections = {"triggers", "outages", "phases", "then", "at"};

bool Contains(const std::vector<std::string>& list, const std::string& text) {
  return std::find(list.begin(), list.end(), text) != list.end();
}

std::string Trimmed(const std::string& text) {
  const auto begin = text.find_first_not_of(' ');
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(Trimmed(part));
  return parts;
}

std::vector<std::string> SplitAtBlanks(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> parts;
  for (std::string part; stream >> part;) parts.push_back(part);
  return parts;
}

// What stands between the "*" of a pattern.
std::vector<std::string> PiecesOf(const std::string& pattern) {
  std::vector<std::string> pieces(1);
  for (const char character : pattern) {
    if (character == '*') {
      pieces.emplace_back();
    } else {
      pieces.back() += character;
    }
  }
  return pieces;
}

bool IsLogLine(const std::string& text) {
  static const std::vector<std::string> levels = {"info: ", "warning: ", "error: "};
  return std::any_of(levels.begin(), levels.end(), [&](const std::string& level) {
    return text.size() > level.size() && text.compare(0, level.size(), level) == 0;
  });
}

bool RunsAsDaemon(const UpdateCell& cell, const std::vector<std::string>& daemon) {
  const std::vector<std::string> own = {cell.trigger, cell.phase, cell.then};
  return !daemon.empty() && std::all_of(daemon.begin(), daemon.end(),
                                        [&](const auto& word) { return Contains(own, word); });
}

bool IsStatus(const std::string& text) {
  return !text.empty() && text.size() < 3 &&
         text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

std::string UpdateCell::Name() const {
  return trigger + "-" + outage + "-" + phase + "-" + then;
}

void PrintTo(const UpdateCell& cell, std::ostream* stream) {
  *stream << cell.Name();
}

UpdateTable::UpdateTable(const std::string& text) {
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    ++lineNumber;
    const auto begin = line.find_first_not_of(' ');
    if (begin != std::string::npos && line[begin] != '#') ReadLine(line);
  }
  CheckWhole();
}

const std::vector<std::string>& UpdateTable::Words(const std::string& kind) const {
  return words.at(kind);
}

void UpdateTable::ReadLine(const std::string& line) {
  if (line.front() == '[' && line.back() == ']') {
    section = line.substr(1, line.size() - 2);
    block.clear();
  } else if (Contains(kWordSections, section)) {
    ReadWord(line);
  } else if (section == "lines") {
    ReadBlockLine(line);
  } else if (section == "anywhere") {
    if (!IsLogLine(Trimmed(line))) Refuse("no log line");
    anywhere.push_back(Trimmed(line));
  } else if (section == "cells") {
    ReadRow(line);
  } else {
    Refuse("no such section: '" + section + "'");
  }
}

void UpdateTable::ReadWord(const std::string& line) {
  if (line.front() == ' ') return;  // the explanation goes on
  const std::string word = line.substr(0, line.find(' '));
  if (Trimmed(line.substr(word.size())).empty()) Refuse("'" + word + "' is not explained");
  if (Contains(words[section], word)) Refuse("'" + word + "' is explained twice");
  words[section].push_back(word);
}

void UpdateTable::ReadBlockLine(const std::string& line) {
  if (line.front() != ' ') {
    block = Trimmed(line);
    if (!blocks.emplace(block, std::vector<std::string>()).second) {
      Refuse("there is a block '" + block + "' already");
    }
    blockUses[block] = 0;
    return;
  }
  const std::string text = Trimmed(line);
  if (block.empty() || (text.front() != '@' && !IsLogLine(text))) Refuse("no log line of a block");
  blocks[block].push_back(text);
}

void UpdateTable::ReadRow(const std::string& line) {
  const Columns columns = Split(line, '|');
  if (columns.size() != kColumns) Refuse("not " + std::to_string(kColumns) + " columns");
  UpdateCell cell;
  cell.line = lineNumber;
  cell.at = ReadChoice("at", columns[4]).front();
  cell.status = columns[5];
  if (cell.status != kNone && !IsStatus(cell.status)) Refuse("no status: " + cell.status);
  cell.reports = ReadReports(columns[6]);
  cell.store = columns[7];
  if (cell.store != "new" && cell.store != "kept") Refuse("no store: " + cell.store);
  const std::vector<std::string> daemon = ReadDaemon(columns[8]);
  for (const auto& trigger : ReadChoice("triggers", columns[0])) {
    for (const auto& outage : ReadChoice("outages", columns[1])) {
      for (const auto& phase : ReadChoice("phases", columns[2])) {
        for (const auto& then : ReadChoice("then", columns[3])) {
          cell.trigger = trigger;
          cell.outage = outage;
          cell.phase = phase;
          cell.then = then;
          cell.runsAsDaemon = RunsAsDaemon(cell, daemon);
          AddCell(cell, SplitAtBlanks(columns[9]));
        }
      }
    }
  }
}

std::vector<std::string> UpdateTable::ReadDaemon(const std::string& column) const {
  if (column == kNone) return {};
  std::vector<std::string> chosen = SplitAtBlanks(column);
  if (chosen.empty()) Refuse("an empty column of the daemon");
  for (const auto& word : chosen) {
    const auto isKnown = [&](const char* kind) { return Contains(ReadChoice(kind, kAny), word); };
    if (!isKnown("triggers") && !isKnown("phases") && !isKnown("then")) {
      Refuse("'" + word + "' tells no daemon");
    }
  }
  if (!Contains(ReadChoice("triggers", kAny), chosen.front())) Refuse("a daemon without a trigger");
  return chosen;
}

std::vector<std::string> UpdateTable::ReadChoice(const std::string& kind,
                                                 const std::string& column) const {
  const auto known = words.find(kind);
  if (known == words.end()) Refuse("nothing says which " + kind + " there are");
  if (column == kAny) return known->second;
  std::vector<std::string> chosen = Split(column, ',');
  for (const auto& word : chosen) {
    if (!Contains(known->second, word)) Refuse("'" + word + "' is not among the " + kind);
  }
  if (chosen.empty()) Refuse("an empty column of " + kind);
  return chosen;
}

std::vector<ExpectedReport> UpdateTable::ReadReports(const std::string& column) const {
  std::vector<ExpectedReport> reports;
  if (column == kNone) return reports;
  for (std::string text : SplitAtBlanks(column)) {
    ExpectedReport report;
    const auto slash = text.find('/');
    if (slash != std::string::npos) {
      if (text.substr(slash) != kInstalledId) Refuse("no report: " + text);
      report.namesInstalled = true;
      text.resize(slash);
    }
    if (!IsStatus(text)) Refuse("no report: " + text);
    report.status = static_cast<std::uint8_t>(std::stoi(text));
    reports.push_back(report);
  }
  if (reports.empty()) Refuse("an empty column of reports");
  return reports;
}

void UpdateTable::AddCell(UpdateCell cell, const std::vector<std::string>& blockNames) {
  for (const auto& name : blockNames) AddBlock(cell, name, 0);
  const auto [row, isNew] = rows.emplace(cell.Name(), lineNumber);
  if (!isNew) Refuse("line " + std::to_string(row->second) + " is about " + cell.Name() + " too");
  cells.push_back(std::move(cell));
}

void UpdateTable::AddBlock(UpdateCell& cell, const std::string& name, unsigned depth) {
  const std::string variant = Variant(cell, name);
  if (depth > kDeepestBlock) Refuse("block '" + name + "' lies within itself");
  ++blockUses[variant];
  for (const auto& line : blocks.at(variant)) {
    if (line.front() == '@') {
      AddBlock(cell, line.substr(1), depth + 1);
    } else {
      cell.log.push_back(line);
    }
  }
}

std::string UpdateTable::Variant(const UpdateCell& cell, const std::string& name) const {
  for (const auto& kind : {"/" + cell.then, "/" + cell.store, "/" + cell.trigger, std::string()}) {
    if (blocks.count(name + kind) == 1) return name + kind;
  }
  Refuse("no block '" + name + "' for " + cell.Name());
}

void UpdateTable::CheckWhole() const {
  for (const auto& [name, uses] : blockUses) {
    if (uses == 0) Refuse("block '" + name + "' is used by no row");
  }
  UpdateCell cell;
  for (const auto& trigger : ReadChoice("triggers", kAny)) {
    for (const auto& outage : ReadChoice("outages", kAny)) {
      for (const auto& phase : ReadChoice("phases", kAny)) {
        for (const auto& then : ReadChoice("then", kAny)) {
          cell.trigger = trigger;
          cell.outage = outage;
          cell.phase = phase;
          cell.then = then;
          if (rows.count(cell.Name()) == 0) Refuse("no row is about " + cell.Name());
        }
      }
    }
  }
}

void UpdateTable::Refuse(const std::string& reason) const {
  throw std::runtime_error("line " + std::to_string(lineNumber) + ": " + reason);
}

bool MatchesLine(const std::string& pattern, const std::string& line) {
  const std::vector<std::string> pieces = PiecesOf(pattern);
  if (pieces.size() == 1) return pattern == line;
  if (line.compare(0, pieces.front().size(), pieces.front()) != 0) return false;
  std::size_t position = pieces.front().size();
  for (std::size_t i = 1; i + 1 < pieces.size(); ++i) {
    const auto found = line.find(pieces[i], position);
    if (found == std::string::npos) return false;
    position = found + pieces[i].size();
  }
  const std::string& last = pieces.back();
  return line.size() >= position + last.size() &&
         line.compare(line.size() - last.size(), last.size(), last) == 0;
}

}  // namespace tests
