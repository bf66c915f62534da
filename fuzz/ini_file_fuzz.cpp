// Settings files: any text is read without harm, success counts its lines, only keys that were
// registered have values, and a refusal changes none.
#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/Require.h"
#include "ini_file_reader/IniFileReader.h"
#include "ini_file_reader/IniParser.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "support/FileContents.h"
#include "support/UniqueFd.h"

namespace {

using ini_file_reader::Settings;

const Settings kRegistered{{"a", "old"}, {"b", "old"}, {"[a]b", "old"}, {"", "old"}};

int LinesOf(std::string_view text) {
  const auto ends = std::count(text.begin(), text.end(), '\n');
  return static_cast<int>(ends) + (text.empty() || text.back() == '\n' ? 0 : 1);
}

bool IsAscii(std::string_view text) {
  return std::none_of(text.begin(), text.end(), [](char byte) { return (byte & 0x80) != 0; });
}

std::size_t LongestLine(std::string_view text) {
  std::size_t longest = 0;
  while (!text.empty()) {
    const auto length = std::min(text.find('\n'), text.size());
    longest = std::max(longest, length);
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  return longest;
}

void CheckAccepted(std::string_view text, int lines, const Settings& settings) {
  fuzz::Require(lines == LinesOf(text), "the result is the number of lines");
  fuzz::Require(settings.size() == kRegistered.size(), "no key is added or lost");
  for (const auto& [key, value] : settings) {
    fuzz::Require(kRegistered.count(key) == 1, "a key is a registered one");
    fuzz::Require(value.find_first_of(" \t\n\v\f\r") == std::string::npos,
                  "no white space is left");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const platform_host::CapturedLog log;
  const std::string_view text(size == 0 ? "" : reinterpret_cast<const char*>(data), size);
  const support::UniqueFd file(::memfd_create("settings", MFD_CLOEXEC));
  fuzz::Require(support::WriteAll(file.Get(), text) == 0, "memory holds the file");

  const auto settings = std::make_shared<Settings>(kRegistered);
  const int lines = ini_file_reader::IniFileReader().ReadIniFile(
      "/proc/self/fd/" + std::to_string(file.Get()), settings);
  const bool acceptable = IsAscii(text) && LongestLine(text) <= ini_file_reader::kMaxLineLength &&
                          size <= ini_file_reader::kMaxFileBytes;
  fuzz::Require((lines >= 0) == acceptable, "what keeps the rules is accepted, and nothing else");
  if (lines >= 0) {
    CheckAccepted(text, lines, *settings);
  } else {
    fuzz::Require(*settings == kRegistered, "a refusal changes nothing");
  }
  fuzz::Require(log.Lines().size() == (acceptable ? 1 : 2), "one line for success, two otherwise");
  return 0;
}
