#include "json_parser/NestingCheck.h"

#include <cstddef>

namespace json_parser {
namespace {

// Returns the position of the quote that ends the string whose opening quote is at `open`, or the
// end of the text. What jsmn refuses inside a string (a bad escape) may be passed over: nothing
// behind it is ever tokenized.
std::size_t EndOfString(std::string_view text, std::size_t open) {
  std::size_t at = open + 1;
  while (at < text.size() && text[at] != '"') at += text[at] == '\\' ? 2U : 1U;
  return at;
}

bool EndsUnquotedValue(char character) {
  switch (character) {
    case ':':
    case ',':
    case ']':
    case '}':
    case ' ':
    case '\t':
    case '\r':
    case '\n':
      return true;
    default:
      return false;
  }
}

// Returns the position of the last character of the unquoted value that begins at `first`.
std::size_t LastOfUnquotedValue(std::string_view text, std::size_t first) {
  std::size_t at = first;
  while (at + 1 < text.size() && !EndsUnquotedValue(text[at + 1])) ++at;
  return at;
}

}  // namespace

bool IsNestingAcceptable(std::string_view text, int maxDepth) noexcept {
  text = text.substr(0, text.find('\0'));
  int depth = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    switch (text[at]) {
      case '{':
      case '[':
        if (++depth > maxDepth) return false;
        break;
      case '}':
      case ']':
        if (--depth < 0) return false;
        break;
      case '"':
        at = EndOfString(text, at);
        break;
      default:
        if (!EndsUnquotedValue(text[at])) at = LastOfUnquotedValue(text, at);
        break;
    }
  }
  return true;
}

}  // namespace json_parser
