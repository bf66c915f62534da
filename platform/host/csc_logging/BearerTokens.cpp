#include "platform/host/csc_logging/BearerTokens.h"

#include <algorithm>

namespace platform_host {
namespace {

/// In lower case, with the blank that ends it.
constexpr std::string_view kScheme = "bearer ";

char LowerCase(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// Whether a scheme ends with the blank at `index`.
bool IsEndOfScheme(std::string_view text, std::size_t index) {
  if (index + 1 < kScheme.size()) return false;
  const std::string_view word = text.substr(index + 1 - kScheme.size(), kScheme.size());
  return std::equal(word.begin(), word.end(), kScheme.begin(),
                    [](char one, char other) { return LowerCase(one) == other; });
}

bool EndsToken(char byte) {
  return static_cast<unsigned char>(byte) <= ' ' || byte == '\x7F';
}

/// A part of the text: from `begin`, up to `end`, which is not part of it.
struct Range {
  std::size_t begin;
  std::size_t end;
};

/// The next token from `from` on; empty, at the end of the text, when there is none.
Range NextToken(std::string_view text, std::size_t from) {
  // Most lines have a few blanks and no scheme before any of them.
  for (auto blank = text.find(' ', from); blank < text.size(); blank = text.find(' ', blank + 1)) {
    if (!IsEndOfScheme(text, blank)) continue;
    const std::size_t begin = std::min(text.find_first_not_of(' ', blank), text.size());
    const auto* end = std::find_if(text.begin() + begin, text.end(), EndsToken);
    if (end != text.begin() + begin) return {begin, static_cast<std::size_t>(end - text.begin())};
  }
  return {text.size(), text.size()};
}

}  // namespace

std::string_view HideBearerTokens(std::string_view text, std::string& storage) {
  Range token = NextToken(text, 0);
  if (token.begin == text.size()) return text;
  storage.clear();
  std::size_t copied = 0;
  while (token.begin < text.size()) {
    storage.append(text.substr(copied, token.begin - copied)).append(kHiddenToken);
    copied = token.end;
    token = NextToken(text, token.end);
  }
  storage.append(text.substr(copied));
  return storage;
}

}  // namespace platform_host
