#include "platform/host/config/KeyDepth.h"

#include <algorithm>

namespace platform_host {
namespace {

/// Walks over one text.
class Scanner {
 public:
  explicit Scanner(std::string_view toml) : text(toml) {}

  std::optional<std::size_t> FindDeepKey() {
    while (position < text.size()) {
      const char byte = text[position];
      if (byte == '#') {
        position = std::min(text.find('\n', position), text.size());
      } else if (byte == '"' || byte == '\'') {
        SkipString(byte);
      } else {
        TakeSyntax(byte);
        if (dots > kMaxDots) return line;
        ++position;
      }
    }
    return std::nullopt;
  }

 private:
  /// A statement ends with its line, unless a bracket is open: only values span lines.
  void TakeSyntax(char byte) {
    if (byte == '.') ++dots;
    if (byte == '[' || byte == '{') ++openBrackets;
    if ((byte == ']' || byte == '}') && openBrackets > 0) --openBrackets;
    if (byte != '\n') return;
    ++line;
    if (openBrackets == 0) dots = 0;
  }

  void SkipString(char quote) {
    const char delimiter[] = {quote, quote, quote};
    const std::string_view triple(delimiter, sizeof delimiter);
    if (StartsWith(triple)) return SkipLines(triple);
    ++position;
    while (position < text.size() && text[position] != quote && text[position] != '\n') {
      SkipCharacter(quote);
    }
    if (StartsWith(std::string_view(&quote, 1))) ++position;
  }

  void SkipLines(std::string_view triple) {
    position += triple.size();
    while (position < text.size() && !StartsWith(triple)) SkipCharacter(triple.front());
    position += triple.size();
    // Up to two quotes of the content may stand before the end.
    for (int count = 0; count < 2 && StartsWith(triple.substr(0, 1)); ++count) ++position;
  }

  /// Skips one character of a string in `quote`, with its escape.
  void SkipCharacter(char quote) {
    if (quote == '"' && text[position] == '\\') ++position;
    if (position < text.size() && text[position] == '\n') ++line;
    ++position;
  }

  [[nodiscard]] bool StartsWith(std::string_view start) const {
    return position < text.size() && text.compare(position, start.size(), start) == 0;
  }

  const std::string_view text;
  std::size_t position = 0;
  std::size_t line = 1;
  std::size_t dots = 0;  ///< of the present statement
  std::size_t openBrackets = 0;
};

}  // namespace

std::optional<std::size_t> FindDeepKey(std::string_view text) {
  return Scanner(text).FindDeepKey();
}

}  // namespace platform_host
