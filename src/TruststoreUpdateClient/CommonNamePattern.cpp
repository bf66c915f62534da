#include "TruststoreUpdateClient/CommonNamePattern.h"

namespace truststore_update_client {

namespace {

constexpr std::string_view kAnyCharacters = ".*";

bool HoldsLineTerminator(std::string_view text) {
  return text.find_first_of("\n\r") != std::string_view::npos ||
         text.find("\u2028") != std::string_view::npos ||
         text.find("\u2029") != std::string_view::npos;
}

}  // namespace

bool MatchesPrefixPattern(std::string_view commonName, std::string_view pattern) {
  const std::string_view prefix = pattern.substr(0, pattern.size() - kAnyCharacters.size());
  return commonName.substr(0, prefix.size()) == prefix &&
         !HoldsLineTerminator(commonName.substr(prefix.size()));
}

}  // namespace truststore_update_client
