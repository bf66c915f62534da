#include "platform/host/lumo_connector/GuardRails.h"

#include <gmock/gmock.h>

namespace platform_host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t kEnough = kLeastBytesPerSecond * 30;

/// Rails with much time and room, and a clock that stands until the test moves it.
class Rails : public ::testing::Test {
 protected:
  Rails() {
    limits.responseBytes = 1000000;
    limits.duration = seconds(3600);
  }

  [[nodiscard]] GuardRails Make() const { return {limits, begun}; }

  /// The reason at `after` the beginning; "" when no limit is passed.
  [[nodiscard]] std::string PassedAt(GuardRails& rails, milliseconds after) const {
    const auto passed = rails.Passed(begun + after);
    return passed ? passed->reason : "";
  }

  const GuardRails::TimePoint begun{seconds(1000)};
  const std::string slow = "less than 1024 bytes a second arrived over 30 s";
  ExchangeLimits limits;
};

TEST_F(Rails, AnswerAtItsLimit_Passes) {
  limits.responseBytes = 1000;
  auto rails = Make();
  EXPECT_EQ(rails.Admit(999, begun), 999U);
  EXPECT_EQ(rails.Admit(1, begun), 1U);
  EXPECT_EQ(PassedAt(rails, seconds(0)), "");
}

TEST_F(Rails, AnswerOneAboveItsLimit_CutAndPassed) {
  limits.responseBytes = 1000;
  auto rails = Make();
  EXPECT_EQ(rails.Admit(1000, begun), 1000U);
  EXPECT_EQ(rails.Admit(1, begun), 0U);
  const auto passed = rails.Passed(begun);
  ASSERT_TRUE(passed);
  EXPECT_EQ(passed->reason, "the answer is longer than 1000 bytes");
  EXPECT_TRUE(passed->isLength);
}

TEST_F(Rails, PieceAcrossTheLimit_FirstPartAdmitted) {
  limits.responseBytes = 1000;
  auto rails = Make();
  EXPECT_EQ(rails.Admit(5000, begun), 1000U);
  EXPECT_EQ(PassedAt(rails, seconds(0)), "the answer is longer than 1000 bytes");
}

TEST_F(Rails, TimeAtItsLimit_Passed) {
  limits.duration = seconds(120);
  auto rails = Make();
  EXPECT_EQ(rails.NextCheck(), begun + seconds(120));
  EXPECT_EQ(PassedAt(rails, milliseconds(119999)), "");
  const auto passed = rails.Passed(begun + seconds(120));
  ASSERT_TRUE(passed);
  EXPECT_EQ(passed->reason, "it takes longer than 120 s");
  EXPECT_FALSE(passed->isLength);
}

TEST_F(Rails, TimeAfterTooLongAnAnswer_StillPasses) {
  limits.responseBytes = 1;
  auto rails = Make();
  EXPECT_EQ(rails.Admit(2, begun), 1U);
  EXPECT_EQ(PassedAt(rails, seconds(3600)), "it takes longer than 3600 s");
}

TEST_F(Rails, NoAnswerYet_NoRate) {
  auto rails = Make();
  EXPECT_EQ(PassedAt(rails, seconds(3599)), "");
}

TEST_F(Rails, RateAtItsLimit_Passes) {
  auto rails = Make();
  EXPECT_EQ(rails.Admit(kEnough, begun + seconds(100)), kEnough);
  EXPECT_EQ(PassedAt(rails, seconds(130)), "");
}

TEST_F(Rails, RateOneBelowItsLimit_Passed) {
  auto rails = Make();
  EXPECT_EQ(rails.Admit(kEnough - 1, begun + seconds(100)), kEnough - 1);
  EXPECT_EQ(PassedAt(rails, milliseconds(129999)), "");
  EXPECT_EQ(PassedAt(rails, seconds(130)), slow);
}

TEST_F(Rails, RateFallsLater_PassedWhenTheWindowHasSlid) {
  auto rails = Make();
  EXPECT_EQ(rails.Admit(900000, begun), 900000U);
  EXPECT_EQ(PassedAt(rails, seconds(30)), "");
  EXPECT_EQ(PassedAt(rails, seconds(31)), slow);
}

TEST_F(Rails, SteadyKibibyteASecond_Passes) {
  auto rails = Make();
  for (int second = 0; second < 300; ++second) {
    EXPECT_EQ(rails.Admit(1024, begun + seconds(second)), 1024U);
    ASSERT_EQ(PassedAt(rails, seconds(second)), "");
  }
}

TEST_F(Rails, SteadyByteLess_Passed) {
  auto rails = Make();
  int second = 0;
  while (second < 300 && PassedAt(rails, seconds(second)).empty()) {
    EXPECT_EQ(rails.Admit(1023, begun + seconds(second)), 1023U);
    ++second;
  }
  EXPECT_EQ(second, 30);
}

TEST_F(Rails, ClientTakesNothing_TimeDoesNotCountForTheRate) {
  auto rails = Make();
  EXPECT_EQ(rails.Admit(1, begun), 1U);
  rails.ClientTakes(false, begun + seconds(10));
  EXPECT_EQ(PassedAt(rails, seconds(1000)), "");
  EXPECT_EQ(rails.NextCheck(), begun + seconds(3600));
  rails.ClientTakes(true, begun + seconds(1000));
  EXPECT_EQ(PassedAt(rails, milliseconds(1019999)), "");
  EXPECT_EQ(PassedAt(rails, seconds(1020)), slow);
}

TEST_F(Rails, ToldTheSameAgain_Unchanged) {
  auto rails = Make();
  EXPECT_EQ(rails.Admit(1, begun), 1U);
  rails.ClientTakes(true, begun + seconds(5));
  rails.ClientTakes(false, begun + seconds(10));
  rails.ClientTakes(false, begun + seconds(15));
  rails.ClientTakes(true, begun + seconds(20));
  EXPECT_EQ(PassedAt(rails, milliseconds(39999)), "");
  EXPECT_EQ(PassedAt(rails, seconds(40)), slow);
}

TEST_F(Rails, AnswerUnderWay_CheckedEachSecond) {
  auto rails = Make();
  EXPECT_EQ(rails.Admit(1, begun + seconds(5)), 1U);
  EXPECT_EQ(rails.NextCheck(), begun + seconds(6));
  EXPECT_EQ(PassedAt(rails, milliseconds(8500)), "");
  EXPECT_EQ(rails.NextCheck(), begun + seconds(9));
}

}  // namespace
}  // namespace platform_host
