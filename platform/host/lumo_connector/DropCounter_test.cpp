#include "platform/host/lumo_connector/DropCounter.h"

#include <gtest/gtest.h>

namespace lumo_connector {
namespace {

constexpr DropCounter::TimePoint kStart{std::chrono::hours(1)};

TEST(DropCounter, Nothing_NothingDue) {
  DropCounter drops;
  EXPECT_EQ(drops.TakeDue(kStart), 0U);
}

TEST(DropCounter, FirstDrops_DueAtOnceAndOnlyOnce) {
  DropCounter drops;
  drops.Add();
  drops.Add();
  EXPECT_EQ(drops.TakeDue(kStart), 2U);
  EXPECT_EQ(drops.TakeDue(kStart + DropCounter::kInterval), 0U);
}

TEST(DropCounter, FurtherDrops_DueTogetherAfterInterval) {
  DropCounter drops;
  drops.Add();
  EXPECT_EQ(drops.TakeDue(kStart), 1U);
  drops.Add();
  drops.Add();
  EXPECT_EQ(drops.TakeDue(kStart + DropCounter::kInterval - std::chrono::nanoseconds(1)), 0U);
  drops.Add();
  EXPECT_EQ(drops.TakeDue(kStart + DropCounter::kInterval), 3U);
}

}  // namespace
}  // namespace lumo_connector
