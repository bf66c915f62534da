#include "csa_common/ReceivedText.h"

#include <gmock/gmock.h>

namespace csa_common {
namespace {

TEST(ReceivedText, Pieces_InOrder) {
  std::string text;
  AppendReceived(text, "HTTP/1.1 ");
  AppendReceived(text, "");
  AppendReceived(text, std::string_view("200\0OK", 6));
  EXPECT_EQ(text, std::string("HTTP/1.1 200\0OK", 15));
}

TEST(ReceivedText, ShortText_LittleRoom) {
  std::string text;
  AppendReceived(text, std::string(kShortText, 'x'));
  EXPECT_LT(text.capacity(), 2 * kShortText + 2);
}

TEST(ReceivedText, LongText_MovedOnceUpToItsRoom) {
  std::string text;
  AppendReceived(text, std::string(kShortText + 1, 'x'));
  EXPECT_GE(text.capacity(), kLongText);
  const char* const place = text.data();
  while (text.size() + kShortText <= kLongText) AppendReceived(text, std::string(kShortText, 'x'));
  EXPECT_GT(text.size(), kLongText - kShortText);
  EXPECT_EQ(text.data(), place);
}

TEST(ReceivedText, LongerText_WholeInMoreRoom) {
  const std::string piece(kLongText / 2, 'x');
  std::string text;
  for (int count = 0; count < 3; ++count) AppendReceived(text, piece);
  EXPECT_EQ(text.size(), 3 * piece.size());
  EXPECT_EQ(text.find_first_not_of('x'), std::string::npos);
  EXPECT_GE(text.capacity(), 4 * text.size());
}

}  // namespace
}  // namespace csa_common
