#include "platform/host/csc_logging/LineFormat.h"

#include <array>
#include <ctime>

namespace platform_host {
namespace {

std::size_t ByteAt(std::string_view text, std::size_t index) {
  return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
}

bool Continues(std::string_view text, std::size_t from, std::size_t to) {
  for (std::size_t index = from; index < to; ++index) {
    if ((ByteAt(text, index) & 0xC0U) != 0x80U) return false;
  }
  return true;
}

/// Length of the printable character at the front of `text`, 0 when the first byte is to be
/// escaped. The bounds of the second byte are those of RFC 3629 section 4; the one after 0xC2 also
/// leaves out the C1 controls.
std::size_t PrintableLength(std::string_view text) {
  const std::size_t lead = ByteAt(text, 0);
  const std::size_t second = ByteAt(text, 1);
  if (lead < 0x80) return lead >= 0x20 && lead != 0x7F ? 1 : 0;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  if (lead < 0xE0) return Continues(text, 1, 2) && !(lead == 0xC2 && second < 0xA0) ? 2 : 0;
  if (lead < 0xF0) {
    const bool overlong = lead == 0xE0 && second < 0xA0;
    const bool surrogate = lead == 0xED && second > 0x9F;
    return Continues(text, 1, 3) && !overlong && !surrogate ? 3 : 0;
  }
  const bool overlong = lead == 0xF0 && second < 0x90;
  const bool beyond = lead == 0xF4 && second > 0x8F;
  return Continues(text, 1, 4) && !overlong && !beyond ? 4 : 0;
}

void AppendEscapedByte(std::string& line, char byte) {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  const auto value = static_cast<unsigned char>(byte);
  line += "\\x";
  line += kDigits[value >> 4U];
  line += kDigits[value & 0x0FU];
}

std::string FormatTime(std::chrono::system_clock::time_point time) {
  const auto sinceEpoch =
      std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  const std::time_t seconds = sinceEpoch / 1000;
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 64> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
  const std::string milliseconds = std::to_string(1000 + sinceEpoch % 1000).substr(1);
  return std::string(text.data(), length) + "." + milliseconds + "Z";
}

char PriorityOf(LogLevel level) {
  switch (level) {
    case LogLevel::kError:
      return '3';
    case LogLevel::kWarning:
      return '4';
    case LogLevel::kInfo:
      return '6';
    default:
      return '7';
  }
}

std::string CompleteLine(std::string line, std::string_view applicationId, std::string_view text) {
  line += applicationId;
  line += ' ';
  line += EscapeLine(text, kLineLimit - line.size() - 1);
  line += '\n';
  return line;
}

}  // namespace

std::string EscapeLine(std::string_view text, std::size_t limit) {
  std::string line;
  std::size_t lastCut = 0;
  while (!text.empty()) {
    const std::size_t length = PrintableLength(text);
    if (length == 0) {
      AppendEscapedByte(line, text.front());
    } else {
      line += text.substr(0, length);
    }
    if (line.size() > limit) {
      line.resize(lastCut);
      line += kCutMark;
      return line;
    }
    if (line.size() + kCutMark.size() <= limit) lastCut = line.size();
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return line;
}

std::string FormatLine(LogLevel level, std::string_view applicationId, std::string_view text,
                       std::chrono::system_clock::time_point time) {
  return CompleteLine(FormatTime(time) + " " + std::string(NameOf(level)) + " ", applicationId,
                      text);
}

std::string FormatJournalLine(LogLevel level, std::string_view applicationId,
                              std::string_view text) {
  return CompleteLine(std::string("<") + PriorityOf(level) + ">", applicationId, text);
}

}  // namespace platform_host
