#include "ini_file_reader/IniParser.h"

#include <algorithm>
#include <cctype>

namespace ini_file_reader {
namespace {

bool IsWhiteSpace(char character) {
  return std::isspace(static_cast<unsigned char>(character)) != 0;
}

bool IsNotAscii(char character) {
  return static_cast<unsigned char>(character) > 0x7F;
}

}  // namespace

IniParser::Fault IniParser::Feed(std::string_view bytes) {
  const std::size_t room = kMaxFileBytes - taken;
  for (const char byte : bytes.substr(0, room)) {
    if (byte != '\n') {
      if (line.size() == kMaxLineLength) return Fault::kLineTooLong;
      line += byte;
    } else if (const Fault fault = EndLine(); fault != Fault::kNone) {
      return fault;
    }
  }
  taken += std::min(bytes.size(), room);
  return bytes.size() > room ? Fault::kTooLarge : Fault::kNone;
}

IniParser::Fault IniParser::Finish() {
  return line.empty() ? Fault::kNone : EndLine();
}

IniParser::Fault IniParser::EndLine() {
  if (std::any_of(line.begin(), line.end(), IsNotAscii)) return Fault::kNotAscii;
  line.erase(std::remove_if(line.begin(), line.end(), IsWhiteSpace), line.end());
  TakeContent(line);
  line.clear();
  ++lines;
  return Fault::kNone;
}

void IniParser::TakeContent(std::string_view content) {
  if (content.empty() || content.front() == '#') return;
  if (content.front() == '[' && content.back() == ']') return;
  const auto separator = content.find('=');
  const std::string key(content.substr(0, separator));
  if (wanted.count(key) == 0) return;
  // Without a separator the value begins where the line does.
  const auto valueBegin = separator == std::string_view::npos ? 0 : separator + 1;
  values.emplace(key, content.substr(valueBegin));
}

}  // namespace ini_file_reader
