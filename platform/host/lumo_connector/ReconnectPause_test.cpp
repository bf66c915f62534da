#include "platform/host/lumo_connector/ReconnectPause.h"

#include <gmock/gmock.h>

#include <vector>

namespace lumo_connector {
namespace {

using Milliseconds = ReconnectPause::Milliseconds;
using ::testing::ElementsAre;

std::vector<long> Pauses(double fraction, int count) {
  ReconnectPause pause([fraction] { return fraction; });
  std::vector<long> pauses;
  for (int round = 0; round < count; ++round) pauses.push_back(pause.Next().count());
  return pauses;
}

TEST(ReconnectPause, LongestDraws_DoubleUpToAMinute) {
  EXPECT_THAT(Pauses(0, 7), ElementsAre(2000, 4000, 8000, 16000, 32000, 60000, 60000));
}

TEST(ReconnectPause, ShortestDraws_HalfOfThatAndNeverBelowASecond) {
  EXPECT_THAT(Pauses(1, 7), ElementsAre(1000, 2000, 4000, 8000, 16000, 30000, 30000));
}

TEST(ReconnectPause, DrawInBetween_InBetween) {
  EXPECT_THAT(Pauses(0.5, 2), ElementsAre(1500, 3000));
}

TEST(ReconnectPause, Reset_ShortAgain) {
  ReconnectPause pause([] { return 1.0; });
  for (int round = 0; round < 6; ++round) static_cast<void>(pause.Next());
  pause.Reset();
  EXPECT_EQ(pause.Next(), ReconnectPause::kShortest);
}

}  // namespace
}  // namespace lumo_connector
