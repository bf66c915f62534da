#include "base64_utils/Base64Utils.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace base64_utils {
namespace {

using namespace std::string_literals;

constexpr std::string_view kBothAlphabets =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/-_";

struct Decoded {
  std::size_t result;
  std::string bytes;
  bool operator==(const Decoded& other) const {
    return result == other.result && bytes == other.bytes;
  }
};

std::ostream& operator<<(std::ostream& stream, const Decoded& decoded) {
  return stream << static_cast<long long>(decoded.result) << " "
                << ::testing::PrintToString(decoded.bytes);
}

int NaiveValue(char character) {
  const std::size_t place = kBothAlphabets.find(character);
  if (place == std::string_view::npos) return -1;
  return static_cast<int>(place < 64 ? place : place - 2);
}

// The decoder as one would write it without a thought of speed: bit by bit.
Decoded DecodeNaively(const std::string& in, std::size_t position) {
  if (position >= in.size()) return {0, ""};
  std::string bits;
  std::size_t at = position;
  for (; at < in.size(); ++at) {
    if ("\t\n\r "s.find(in[at]) != std::string::npos) continue;
    const int value = NaiveValue(in[at]);
    if (value < 0) break;
    for (int bit = 5; bit >= 0; --bit) bits += (value >> bit & 1) != 0 ? '1' : '0';
  }
  std::string bytes;
  for (std::size_t i = 0; i + 8 <= bits.size(); i += 8)
    bytes += static_cast<char>(std::stoi(bits.substr(i, 8), nullptr, 2));
  switch (bits.size() / 6 % 4) {
    case 1:
      return {static_cast<std::size_t>(-1), bytes};
    case 2:
      if (in.compare(at, 2, "==") == 0) at += 2;
      break;
    case 3:
      if (in.compare(at, 1, "=") == 0) at += 1;
      break;
    default:
      break;
  }
  return {at == position ? 0 : at, bytes};
}

Decoded Decode(const std::string& in, std::size_t position = 0) {
  std::string out = "left from an earlier call";
  const std::size_t result = base64_decode(in, out, position);
  return {result, out};
}

std::string RandomText(std::mt19937& random, std::string_view characters, std::size_t length) {
  std::string text;
  for (std::size_t i = 0; i < length; ++i) text += characters[random() % characters.size()];
  return text;
}

TEST(Base64Decode, WellFormedText_BytesAndEndOfInput) {
  const struct {
    std::string text;
    Decoded decoded;
  } cases[] = {
      {"TWFu", {4, "Man"}},
      {"TW Fu", {5, "Man"}},
      {"T\tW\nF\ru ", {8, "Man"}},
      {"TWE", {3, "Ma"}},
      {"TWE=", {4, "Ma"}},
      {"TQ", {2, "M"}},
      {"TQ==", {4, "M"}},
      {"TWFuTWFuTWE=", {12, "ManManMa"}},
      {"AAAA", {4, "\0\0\0"s}},
      {"++//", {4, "\xFB\xEF\xFF"s}},
      {"--__", {4, "\xFB\xEF\xFF"s}},
      {"+-/_", {4, "\xFB\xEF\xFF"s}},
      {"\r\n", {2, ""}},
  };
  for (const auto& row : cases) EXPECT_EQ(Decode(row.text), row.decoded) << row.text;
}

TEST(Base64Decode, IllFormedText_EndsQuietlyWhereItStopsBeingBase64) {
  const struct {
    std::string text;
    Decoded decoded;
  } cases[] = {
      {"", {0, ""}},
      {"!", {0, ""}},
      {"=", {0, ""}},
      {"====", {0, ""}},
      {"!TWFu", {0, ""}},
      {"\0TWFu"s, {0, ""}},
      {"TW!u", {2, "M"}},
      {"TWFu!TWFu", {4, "Man"}},
      {"TWFu=", {4, "Man"}},
      {"TWFu====", {4, "Man"}},
      {"TWFu\0TWFu"s, {4, "Man"}},
      {"TWFu\xC3\xA9"s, {4, "Man"}},
      {"TWE==", {4, "Ma"}},
      {"TWE =", {5, "Ma"}},
      {"TWE= TWFu", {4, "Ma"}},
      {"TQ=", {2, "M"}},
      {"TQ=T", {2, "M"}},
      {"TQ= =", {2, "M"}},
      {"TQ ==", {5, "M"}},
      {"TQ===", {4, "M"}},
      {" !", {1, ""}},
  };
  for (const auto& row : cases) EXPECT_EQ(Decode(row.text), row.decoded) << row.text;
}

TEST(Base64Decode, LeftOverCharacter_AllOnesAndTheGroupsBefore) {
  for (const char* const text : {"T", "T=", "T==", " T ", "T!"})
    EXPECT_EQ(Decode(text), (Decoded{kLeftOverCharacter, ""})) << text;
  EXPECT_EQ(Decode("TWFuT"), (Decoded{kLeftOverCharacter, "Man"}));
  EXPECT_EQ(static_cast<long>(kLeftOverCharacter), -1L);
}

TEST(Base64Decode, Position_DecodesFromThere) {
  EXPECT_EQ(Decode("!!TWFu", 2), (Decoded{6, "Man"}));
  EXPECT_EQ(Decode("TWFuTQ==", 4), (Decoded{8, "M"}));
}

TEST(Base64Decode, PositionWithNothingToConsume_Zero) {
  EXPECT_EQ(Decode("TWFu!", 4), (Decoded{0, ""}));
  EXPECT_EQ(Decode("TWFu=", 4), (Decoded{0, ""}));
  EXPECT_EQ(Decode("TWFu", 4), (Decoded{0, ""}));
  EXPECT_EQ(Decode("TWFu", 5), (Decoded{0, ""}));
  EXPECT_EQ(Decode("TWFu", std::string::npos), (Decoded{0, ""}));
}

// Long enough for every way of reading whole blocks to begin, to be interrupted and to begin again.
TEST(Base64Decode, EveryByteAtEveryPosition_AsTheNaiveDecoder) {
  std::mt19937 random(20240607);
  const std::string text = RandomText(random, kBothAlphabets, 150);
  for (std::size_t position = 0; position < text.size(); ++position) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string changed = text;
      changed[position] = static_cast<char>(byte);
      ASSERT_EQ(Decode(changed), DecodeNaively(changed, 0))
          << "byte " << byte << " at " << position;
    }
  }
}

TEST(Base64Decode, EveryLengthAndPosition_AsTheNaiveDecoder) {
  std::mt19937 random(7);
  for (std::size_t length = 0; length < 200; ++length) {
    const std::string text = RandomText(random, kBothAlphabets, length);
    for (std::size_t position = 0; position <= length; ++position)
      ASSERT_EQ(Decode(text, position), DecodeNaively(text, position)) << length << " " << position;
  }
}

TEST(Base64Decode, RandomTexts_AsTheNaiveDecoder) {
  std::mt19937 random(42);
  const std::string mixtures[] = {
      std::string(kBothAlphabets) + "\t\n\r ", std::string(kBothAlphabets) + "=",
      std::string(kBothAlphabets) + std::string(kBothAlphabets) + "\n=!\x80"s, "AB \n=", "A="};
  for (int round = 0; round < 4000; ++round) {
    const std::string& mixture = mixtures[random() % std::size(mixtures)];
    const std::string text = RandomText(random, mixture, random() % 160);
    const std::size_t position = random() % 4;
    ASSERT_EQ(Decode(text, position), DecodeNaively(text, position))
        << ::testing::PrintToString(text) << " from " << position;
  }
}

TEST(Base64Decode, LinesOfEveryWidth_AsTheNaiveDecoder) {
  std::mt19937 random(3);
  const std::string plain = RandomText(random, kBothAlphabets, 400);
  for (std::size_t width = 1; width <= 130; ++width) {
    std::string text;
    for (std::size_t at = 0; at < plain.size(); at += width)
      text += plain.substr(at, width) + "\r\n";
    ASSERT_EQ(Decode(text), DecodeNaively(text, 0)) << width;
    ASSERT_EQ(Decode(text).bytes, Decode(plain).bytes) << width;
  }
}

TEST(Base64Decode, BytesBeforeTheFirstForeignCharacter_TheSameAsStringAndVector) {
  std::mt19937 random(11);
  const std::string plain = RandomText(random, kBothAlphabets, 400);
  for (std::size_t position = 0; position < plain.size(); ++position) {
    std::string text = plain;
    text[position] = '.';
    const std::vector<std::uint8_t> vector = Base64Utils::Base64DecodeToBinaryVector(text);
    ASSERT_EQ(std::string(vector.begin(), vector.end()), Base64Utils::Base64Decode(text));
    ASSERT_EQ(vector.size(), position % 4 == 1 ? 0 : position * 6 / 8) << position;
  }
}

// A view need not be followed by a NUL, and what stands behind it is not read into it.
TEST(Base64Decode, ViewInsideALongerText_EndsWithTheView) {
  const std::string text = "TWFuTWFuTWFuTWFuTWFuTWFuTWFuTWFuTWFu";
  for (std::size_t length = 0; length <= text.size(); ++length) {
    std::string out;
    const std::size_t result = base64_decode(std::string_view(text).substr(0, length), out, 0);
    ASSERT_EQ((Decoded{result, out}), DecodeNaively(text.substr(0, length), 0)) << length;
  }
}

TEST(Base64Encode, Rfc4648Vectors_Padded) {
  const struct {
    const char* bytes;
    const char* text;
  } cases[] = {{"", ""},
               {"f", "Zg=="},
               {"fo", "Zm8="},
               {"foo", "Zm9v"},
               {"foob", "Zm9vYg=="},
               {"fooba", "Zm9vYmE="},
               {"foobar", "Zm9vYmFy"}};
  for (const auto& row : cases) {
    EXPECT_EQ(Base64Utils::Base64Encode(row.bytes), row.text);
    EXPECT_EQ(Base64Utils::Base64Decode(row.text), row.bytes);
  }
}

TEST(Base64Encode, NoBytes_Empty) {
  EXPECT_EQ(base64_encode(nullptr, 0), "");
}

TEST(Base64Encode, EveryByteValue_DecodesToItself) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  for (std::size_t length = 0; length <= bytes.size(); ++length) {
    const std::string part = bytes.substr(bytes.size() - length);
    const std::vector<std::uint8_t> vector(part.begin(), part.end());
    ASSERT_EQ(Base64Utils::Base64Decode(Base64Utils::Base64Encode(part)), part);
    ASSERT_EQ(Base64Utils::Base64UrlDecode(Base64Utils::Base64UrlEncode(part)), part);
    ASSERT_EQ(Base64Utils::Base64EncodeFromBinaryVector(vector), Base64Utils::Base64Encode(part));
    ASSERT_TRUE(base64_validate(Base64Utils::Base64Encode(part)));
    ASSERT_TRUE(base64_validate(Base64Utils::Base64UrlEncode(part)));
  }
}

TEST(Base64UrlEncode, BytesOfBothSpecialCharacters_UrlSafeAndPadded) {
  const std::string bytes = "\xFB\xEF\xFF\xFB"s;
  EXPECT_EQ(Base64Utils::Base64Encode(bytes), "++//+w==");
  EXPECT_EQ(Base64Utils::Base64UrlEncode(bytes), "--__-w==");
  EXPECT_EQ(Base64Utils::Base64UrlEncodeFromBinaryVector({0xFB, 0xEF, 0xFF, 0xFB}), "--__-w==");
  EXPECT_EQ(Base64Utils::Base64UrlEncode("Ma"), "TWE=");
}

TEST(Base64Utils, EitherAlphabet_DecodesAlikeByEveryOperation) {
  const std::string bytes = "\xFB\xEF\xFF"s;
  const std::vector<std::uint8_t> vector = {0xFB, 0xEF, 0xFF};
  for (const char* const text : {"++//", "--__", "-+_/"}) {
    EXPECT_EQ(Base64Utils::Base64Decode(text), bytes) << text;
    EXPECT_EQ(Base64Utils::Base64UrlDecode(text), bytes) << text;
    EXPECT_EQ(Base64Utils::Base64DecodeToBinaryVector(text), vector) << text;
    EXPECT_EQ(Base64Utils::Base64UrlDecodeToBinaryVector(text), vector) << text;
  }
}

TEST(Base64Utils, NothingDecodableOrLeftOverCharacter_Empty) {
  for (const char* const text : {"", "!", "!TWFu", "=", "T", "TWFuT", "TWFuT!"}) {
    EXPECT_EQ(Base64Utils::Base64Decode(text), "") << text;
    EXPECT_EQ(Base64Utils::Base64UrlDecode(text), "") << text;
    EXPECT_TRUE(Base64Utils::Base64DecodeToBinaryVector(text).empty()) << text;
    EXPECT_TRUE(Base64Utils::Base64UrlDecodeToBinaryVector(text).empty()) << text;
  }
}

TEST(Base64Utils, ForeignCharacterBehindGroups_KeepsWhatStandsBefore) {
  EXPECT_EQ(Base64Utils::Base64Decode("TWFu.TWFu"), "Man");
  EXPECT_EQ(Base64Utils::Base64DecodeToBinaryVector("TWE!"), (std::vector<std::uint8_t>{'M', 'a'}));
}

TEST(Base64Utils, ThreeArguments_ExactlyTheDecoder) {
  std::string out = "old";
  EXPECT_EQ(Base64Utils::Base64Decode("!TWFu", out, 1), 5U);
  EXPECT_EQ(out, "Man");
  EXPECT_EQ(Base64Utils::Base64Decode("TWFuT", out, 0), kLeftOverCharacter);
  EXPECT_EQ(out, "Man");
}

TEST(Base64Validate, WellFormedText_True) {
  for (const char* const text : {"", "TWE", "TWE=", "TQ", "TQ==", "TWFu", "TWFuTWE=", "-_+/"}) {
    EXPECT_TRUE(base64_validate(text)) << text;
    EXPECT_TRUE(Base64Utils::Base64Validate(text)) << text;
  }
}

TEST(Base64Validate, IllFormedText_False) {
  for (const std::string& text :
       {"T"s, "TWE=="s, "TW=u"s, "TW="s, "T="s, "="s, "=="s, "===="s, "A==="s, "TW u"s, "TWF\n"s,
        "TWF!"s, "!WFu"s, "TWFuT"s, "TWFuTW="s, "TWF\0"s, "TWF\x80"s, "TWF."s, "TWFu=WFu"s}) {
    EXPECT_FALSE(base64_validate(text)) << text;
    EXPECT_FALSE(Base64Utils::Base64Validate(text)) << text;
  }
}

}  // namespace
}  // namespace base64_utils
