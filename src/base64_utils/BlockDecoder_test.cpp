#include "base64_utils/BlockDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace base64_utils {
namespace {

constexpr unsigned char kUntouched = 0xA5;

std::string PlainText(std::size_t length) {
  const std::string alphabets = "Aa0Bb1Cc2Zz9+/-_MmNn";
  std::string text;
  while (text.size() < length) text += alphabets;
  return text.substr(0, length);
}

std::size_t RoomFor(std::size_t length) {
  return length / 4 * 3;
}

TEST(BlockDecoder, EveryLength_WholeGroupsWithinTheRoom) {
  for (std::size_t length = 0; length <= 300; ++length) {
    const std::string text = PlainText(length);
    std::vector<unsigned char> out(RoomFor(length) + 64, kUntouched);
    const std::size_t decoded = DecodeBlocks(text, out.data());
    EXPECT_LE(decoded, length);
    EXPECT_EQ(decoded % 4, 0U) << length;
    EXPECT_TRUE(std::all_of(out.end() - 64, out.end(), [](unsigned char byte) {
      return byte == kUntouched;
    })) << length;
  }
}

TEST(BlockDecoder, ForeignByteAnywhere_StopsBeforeItsBlock) {
  const std::string plain = PlainText(300);
  std::vector<unsigned char> out(RoomFor(plain.size()));
  for (std::size_t position = 0; position < plain.size(); ++position) {
    for (const char foreign :
         {' ', '\n', '=', '.', ',', '\0', '@', '[', '`', '{', ':', '\x7F', '\x80', '\xFF'}) {
      std::string text = plain;
      text[position] = foreign;
      ASSERT_LE(DecodeBlocks(text, out.data()), position) << static_cast<int>(foreign);
    }
  }
}

TEST(BlockDecoder, EveryCharacterOfTheAlphabets_InEveryPlace_StopsNothing) {
  const std::string plain = PlainText(300);
  std::vector<unsigned char> out(RoomFor(plain.size()));
  const std::size_t whole = DecodeBlocks(plain, out.data());
  for (const char character :
       std::string("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/-_")) {
    for (std::size_t position = 0; position < 64; ++position) {
      std::string text = plain;
      text[position] = character;
      ASSERT_EQ(DecodeBlocks(text, out.data()), whole) << character << " at " << position;
    }
  }
}

}  // namespace
}  // namespace base64_utils
