// The base64 decoder against one that works bit by bit, from two positions; what encodes must
// decode to itself.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base64_utils/Base64Utils.h"
#include "fuzz/Require.h"

namespace {

using base64_utils::Base64Utils;

int ValueOf(char character) {
  if (character >= 'A' && character <= 'Z') return character - 'A';
  if (character >= 'a' && character <= 'z') return character - 'a' + 26;
  if (character >= '0' && character <= '9') return character - '0' + 52;
  if (character == '+' || character == '-') return 62;
  return character == '/' || character == '_' ? 63 : -1;
}

bool IsBlank(char character) {
  return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

struct Decoded {
  std::size_t result = 0;
  std::string bytes;
};

Decoded DecodeNaively(std::string_view in, std::size_t position) {
  Decoded decoded;
  if (position >= in.size()) return decoded;
  std::size_t at = position;
  std::size_t bitCount = 0;
  unsigned byte = 0;
  for (; at < in.size(); ++at) {
    if (IsBlank(in[at])) continue;
    const int value = ValueOf(in[at]);
    if (value < 0) break;
    for (int shift = 5; shift >= 0; --shift) {
      byte = (byte << 1U | (static_cast<unsigned>(value) >> static_cast<unsigned>(shift) & 1U)) &
             0xFFU;
      if (++bitCount % 8 == 0) decoded.bytes += static_cast<char>(byte);
    }
  }
  const std::size_t collected = bitCount / 6 % 4;
  if (collected == 3 && in.substr(at, 1) == "=") at += 1;
  if (collected == 2 && in.substr(at, 2) == "==") at += 2;
  decoded.result = at == position ? 0 : at;
  if (collected == 1) decoded.result = base64_utils::kLeftOverCharacter;
  return decoded;
}

void CompareWithNaive(std::string_view text, std::size_t position) {
  std::string bytes;
  const std::size_t result = Base64Utils::Base64Decode(text, bytes, position);
  const Decoded naive = DecodeNaively(text, position);
  fuzz::Require(result == naive.result, "result as the naive decoder");
  fuzz::Require(bytes == naive.bytes, "bytes as the naive decoder");
}

void CompareOperations(std::string_view text) {
  const Decoded naive = DecodeNaively(text, 0);
  const bool failed = naive.result == 0 || naive.result == base64_utils::kLeftOverCharacter;
  const std::string expected = failed ? "" : naive.bytes;
  const std::vector<std::uint8_t> vector = Base64Utils::Base64UrlDecodeToBinaryVector(text);
  fuzz::Require(Base64Utils::Base64Decode(text) == expected, "Base64Decode");
  fuzz::Require(Base64Utils::Base64UrlDecode(text) == expected, "Base64UrlDecode");
  fuzz::Require(std::string(vector.begin(), vector.end()) == expected, "as bytes");
  if (Base64Utils::Base64Validate(text))
    fuzz::Require(text.empty() || naive.result == text.size(),
                  "what is well-formed is consumed whole");
}

void RoundTrip(std::string_view bytes) {
  const std::string text = Base64Utils::Base64Encode(bytes);
  std::string urlText = Base64Utils::Base64UrlEncode(bytes);
  fuzz::Require(Base64Utils::Base64Validate(text), "an encoding is well-formed");
  fuzz::Require(Base64Utils::Base64Decode(text) == bytes, "an encoding decodes to itself");
  fuzz::Require(Base64Utils::Base64UrlDecode(urlText) == bytes, "a URL-safe one as well");
  std::replace(urlText.begin(), urlText.end(), '-', '+');
  std::replace(urlText.begin(), urlText.end(), '_', '/');
  fuzz::Require(urlText == text, "the alphabets differ in two characters");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  CompareWithNaive(input, 0);
  CompareWithNaive(input, size == 0 ? 1 : data[0]);
  CompareOperations(input);
  RoundTrip(input);
  return 0;
}
