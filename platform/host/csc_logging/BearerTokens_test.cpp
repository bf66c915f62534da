#include "platform/host/csc_logging/BearerTokens.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/host/csc_logging/LineFormat.h"

namespace platform_host {
namespace {

struct Case {
  std::string text;
  std::string shown;
};

std::string Shown(std::string_view text) {
  std::string storage;
  return std::string(HideBearerTokens(text, storage));
}

TEST(HideBearerTokens, Token_Hidden) {
  const std::vector<Case> cases = {
      {"Bearer secret", "Bearer ***"},
      {"Bearer s", "Bearer ***"},
      {"Authorization: Bearer secret\r\nConnection: close",
       "Authorization: Bearer ***\r\nConnection: close"},
      {"Bearer secret and more", "Bearer *** and more"},
      {"Bearer secret\n", "Bearer ***\n"},
      {std::string("Bearer secret\0x", 15), std::string("Bearer ***\0x", 12)},
      {"Bearer secret\tx", "Bearer ***\tx"},
      {"Bearer secret\x7Fx", "Bearer ***\x7Fx"},
      {"Bearer  two blanks", "Bearer  *** blanks"},
      {"Bearer ***", "Bearer ***"},
      // RFC 6750 section 2.1: what a token is made of.
      {"Bearer aZ09-._~+/== x", "Bearer *** x"},
      // What else a unit's configuration lets it be made of, and what it does not.
      {R"(Bearer !"#$%&'(),:;<>?@[\]^`{|} x)", "Bearer *** x"},
      {"Bearer secr\xC3\xA9t\x80\xFF x", "Bearer *** x"},
  };
  for (const auto& one : cases) EXPECT_EQ(Shown(one.text), one.shown);
}

TEST(HideBearerTokens, SchemeInAnyCase_KeptAsItIs) {
  EXPECT_EQ(Shown("bearer a"), "bearer ***");
  EXPECT_EQ(Shown("BEARER a"), "BEARER ***");
  EXPECT_EQ(Shown("bEaReR a"), "bEaReR ***");
  EXPECT_EQ(Shown("'x'=Bearer a"), "'x'=Bearer ***");
}

TEST(HideBearerTokens, SeveralTokens_EachHidden) {
  EXPECT_EQ(Shown("Bearer a Bearer b"), "Bearer *** Bearer ***");
  EXPECT_EQ(Shown("Bearer a\nbearer b\nBearer c"), "Bearer ***\nbearer ***\nBearer ***");
  EXPECT_EQ(Shown("x Bearer a y Bearer b z"), "x Bearer *** y Bearer *** z");
}

TEST(HideBearerTokens, SchemeAsToken_WhatFollowsItIsHiddenToo) {
  EXPECT_EQ(Shown("Bearer Bearer secret"), "Bearer *** ***");
  EXPECT_EQ(Shown("Bearer Bearer Bearer secret x"), "Bearer *** *** *** x");
}

TEST(HideBearerTokens, NoToken_TextItself) {
  const std::vector<std::string> texts = {
      "",
      " ",
      "Bearer",
      "Bearer ",
      "Bearer   ",
      "Bearer \r\nConnection: close",
      "Bearer\tno blank",
      "Bearer\r\n secret",
      "earer x",
      "Bear er x",
      "Bearers x",
      "Send Update Status to the Device Platform: STATUS_CODE_SUCCESS",
  };
  for (const auto& text : texts) {
    std::string storage = "untouched";
    const std::string_view shown = HideBearerTokens(text, storage);
    EXPECT_EQ(shown, text);
    EXPECT_EQ(shown.data(), text.data()) << text;
    EXPECT_EQ(storage, "untouched");
  }
}

TEST(HideBearerTokens, EmptyTokenBeforeAnother_OtherHidden) {
  EXPECT_EQ(Shown("Bearer \nBearer secret"), "Bearer \nBearer ***");
}

TEST(HideBearerTokens, UsedStorage_HoldsTheNewTextAlone) {
  std::string storage = "former";
  EXPECT_EQ(HideBearerTokens("Bearer a", storage), "Bearer ***");
  EXPECT_EQ(storage, "Bearer ***");
}

TEST(HideBearerTokens, LineFeedBehindToken_StillEscapedAfterwards) {
  EXPECT_EQ(EscapeLine(Shown("Bearer secret\r\nHost: a"), kLineLimit),
            "Bearer ***\\x0d\\x0aHost: a");
}

/// A text that is escaped already holds no line feed that could end the token.
TEST(HideBearerTokens, EscapedLineFeedBehindToken_HiddenWithIt) {
  EXPECT_EQ(Shown("Bearer secret\\x0d\\x0aHost: a"), "Bearer *** a");
}

TEST(HideBearerTokens, VeryLongText_HiddenAtBothEnds) {
  const std::string filler(std::size_t{4} << 20U, 'x');
  EXPECT_EQ(Shown("Bearer " + filler), "Bearer ***");
  EXPECT_EQ(Shown(filler + " Bearer secret"), filler + " Bearer ***");
  EXPECT_EQ(Shown("Bearer a" + filler + " " + filler + " Bearer b"),
            "Bearer *** " + filler + " Bearer ***");
}

}  // namespace
}  // namespace platform_host
