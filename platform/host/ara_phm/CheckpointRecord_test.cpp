#include "platform/host/ara_phm/CheckpointRecord.h"

#include <gmock/gmock.h>

#include <string>

namespace platform_host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Verdict = CheckpointRecord::Verdict;

/// Five in five seconds, unless the test expects something else; time is the test's own.
class Checkpoint : public ::testing::Test {
 protected:
  static constexpr CheckpointRule kFiveInFiveSeconds{5, seconds(5)};

  Checkpoint() { record.Expect(kFiveInFiveSeconds, begin); }

  [[nodiscard]] CheckpointRecord::Clock::time_point At(int time) const {
    return begin + milliseconds(time);
  }

  /// Reached at each full second from 0 to `last`.
  void ReachEachSecondUntil(int last) {
    for (int second = 0; second <= last; ++second) ReachInTime(second * 1000);
  }

  void ReachInTime(int time) { EXPECT_EQ(record.Reached(At(time)).lateness.count(), 0) << time; }

  /// "N ms late", then "warned" if a warning is due.
  std::string ReachedAt(int time) {
    const auto arrival = record.Reached(At(time));
    return std::to_string(arrival.lateness.count()) + " ms late" +
           (arrival.isWarningDue ? ", warned" : "");
  }

  const CheckpointRecord::Clock::time_point begin{seconds(1000)};
  CheckpointRecord record;
};

TEST_F(Checkpoint, NothingExpected_NotConfiguredButCounted) {
  record.Expect(std::nullopt, begin);
  ReachInTime(100000);
  EXPECT_EQ(record.VerdictAt(At(200000)), Verdict::kNotConfigured);
  EXPECT_EQ(record.Count(), 1U);
  EXPECT_EQ(record.AgeAt(At(100250)), milliseconds(250));
}

TEST_F(Checkpoint, NeverReached_NoAge) {
  EXPECT_EQ(record.AgeAt(At(1)), std::nullopt);
}

TEST_F(Checkpoint, FirstCycle_StartingUntilItsEnd) {
  EXPECT_EQ(record.VerdictAt(begin), Verdict::kStarting);
  EXPECT_EQ(record.VerdictAt(At(5000)), Verdict::kStarting);
}

TEST_F(Checkpoint, NoneInFirstCycle_Late) {
  EXPECT_EQ(record.VerdictAt(At(5001)), Verdict::kLate);
}

TEST_F(Checkpoint, OneTooFewInFirstCycle_Late) {
  ReachEachSecondUntil(3);
  EXPECT_EQ(record.VerdictAt(At(5001)), Verdict::kLate);
}

TEST_F(Checkpoint, AllInFirstCycle_InTime) {
  ReachEachSecondUntil(4);
  EXPECT_EQ(record.VerdictAt(At(5001)), Verdict::kInTime);
}

TEST_F(Checkpoint, LastFiveWithinCycleAndHalfAPeriod_InTimeUntilItsEnd) {
  ReachEachSecondUntil(10);
  EXPECT_EQ(record.VerdictAt(At(11500)), Verdict::kInTime);
  EXPECT_EQ(record.VerdictAt(At(11501)), Verdict::kLate);
}

TEST_F(Checkpoint, OneMissing_LateUntilFiveCameAgain) {
  ReachEachSecondUntil(10);
  EXPECT_EQ(ReachedAt(12000), "500 ms late, warned");
  for (int time = 13000; time < 16000; time += 1000) {
    EXPECT_EQ(record.VerdictAt(At(time - 1)), Verdict::kLate) << time;
    EXPECT_EQ(ReachedAt(time), "500 ms late") << time;
  }
  EXPECT_EQ(ReachedAt(16000), "500 ms late");
  EXPECT_EQ(record.VerdictAt(At(16000)), Verdict::kInTime);
  ReachInTime(17000);
}

TEST_F(Checkpoint, EachUpToHalfAPeriodDelayed_InTime) {
  for (int second = 0; second <= 20; ++second) ReachInTime(second * 1000 + (second % 3) * 250);
  EXPECT_EQ(record.LateCount(), 0U);
}

TEST_F(Checkpoint, ReachedAgainAsOften_InTimeAgain) {
  ReachEachSecondUntil(10);
  for (int time = 20000; time < 24000; time += 1000) (void)record.Reached(At(time));
  EXPECT_EQ(record.VerdictAt(At(24000)), Verdict::kLate);
  (void)record.Reached(At(24000));
  EXPECT_EQ(record.VerdictAt(At(24000)), Verdict::kInTime);
}

TEST_F(Checkpoint, LaterThanRuleAllows_CountedAndWarned) {
  ReachEachSecondUntil(10);
  ReachInTime(11500);
  EXPECT_EQ(record.LateCount(), 0U);
  EXPECT_EQ(ReachedAt(12501), "1 ms late, warned");
  EXPECT_EQ(record.LateCount(), 1U);
  EXPECT_EQ(record.Count(), 13U);
}

TEST_F(Checkpoint, SlowDrift_CountedOnceTheCycleIsMissed) {
  ReachEachSecondUntil(4);
  for (int time = 5200; time <= 6400; time += 1200) ReachInTime(time);
  EXPECT_EQ(ReachedAt(7600), "100 ms late, warned");
}

TEST_F(Checkpoint, LateFirstOne_CountedFromEndOfFirstCycle) {
  EXPECT_EQ(ReachedAt(5750), "750 ms late, warned");
}

TEST_F(Checkpoint, LateAgain_WarnedOncePerMinute) {
  EXPECT_EQ(ReachedAt(6000), "1000 ms late, warned");
  EXPECT_EQ(ReachedAt(65999), "60999 ms late");
  EXPECT_EQ(ReachedAt(66000), "61000 ms late, warned");
  EXPECT_EQ(record.LateCount(), 3U);
}

TEST_F(Checkpoint, LongCycle_WarnedOncePerCycle) {
  record.Expect(CheckpointRule{2, seconds(100)}, begin);
  ReachInTime(0);
  EXPECT_EQ(ReachedAt(300000), "200000 ms late, warned");
  EXPECT_EQ(ReachedAt(399999), "274999 ms late");
  EXPECT_EQ(ReachedAt(425001), "1 ms late, warned");
}

TEST_F(Checkpoint, SameRuleExpectedAgain_NothingChanges) {
  ReachEachSecondUntil(10);
  record.Expect(kFiveInFiveSeconds, At(10500));
  EXPECT_EQ(record.VerdictAt(At(10500)), Verdict::kInTime);
}

TEST_F(Checkpoint, OtherRuleExpected_StartsAnew) {
  ReachEachSecondUntil(10);
  record.Expect(CheckpointRule{2, seconds(2)}, At(20000));
  EXPECT_EQ(record.VerdictAt(At(22000)), Verdict::kStarting);
  EXPECT_EQ(record.VerdictAt(At(22001)), Verdict::kLate);
  EXPECT_EQ(record.Count(), 11U);
}

TEST_F(Checkpoint, OtherRuleExpected_FormerArrivalsForgotten) {
  ReachEachSecondUntil(10);
  record.Expect(CheckpointRule{2, seconds(2)}, At(20000));
  ReachInTime(21000);
  ReachInTime(22000);
  EXPECT_EQ(record.VerdictAt(At(22001)), Verdict::kInTime);
}

TEST_F(Checkpoint, TimesOutOfOrder_AgeFromNewest) {
  ReachInTime(1001);
  ReachInTime(1000);
  EXPECT_EQ(record.AgeAt(At(1002)), milliseconds(1));
  EXPECT_EQ(record.AgeAt(At(1000)), milliseconds(0));
}

/// Each indication a second apart; as many as are remembered, or one more.
class ManyIndications : public Checkpoint, public ::testing::WithParamInterface<std::size_t> {};

TEST_P(ManyIndications, AtTheirPace_InTimeAndThenLate) {
  const auto indications = static_cast<int>(GetParam());
  record.Expect(CheckpointRule{static_cast<std::uint16_t>(indications), seconds(indications)},
                begin);
  ReachEachSecondUntil(2 * indications);
  const int last = 2 * indications * 1000;
  EXPECT_EQ(record.VerdictAt(At(last + 1500)), Verdict::kInTime);
  EXPECT_EQ(record.VerdictAt(At(last + 1501)), Verdict::kLate);
}

TEST_F(Checkpoint, ManyIndicationsAtOnce_NothingLateInFirstCycle) {
  record.Expect(CheckpointRule{1000, seconds(1000)}, begin);
  for (std::size_t count = 0; count < CheckpointRecord::kTimesLimit; ++count) ReachInTime(0);
  ReachInTime(1000000);
}

INSTANTIATE_TEST_SUITE_P(, ManyIndications,
                         ::testing::Values(CheckpointRecord::kTimesLimit,
                                           CheckpointRecord::kTimesLimit + 1));

}  // namespace
}  // namespace platform_host
