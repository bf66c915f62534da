#include "support/UniqueFd.h"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace support {
namespace {

UniqueFd Open() {
  return UniqueFd(::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

bool IsOpen(int descriptor) {
  return ::fcntl(descriptor, F_GETFD) != -1;
}

TEST(UniqueFd, Default_OwnsNothing) {
  const UniqueFd none;
  EXPECT_FALSE(none.IsOpen());
  EXPECT_EQ(-1, none.Get());
}

TEST(UniqueFd, EndOfLife_ClosesTheDescriptor) {
  int descriptor = -1;
  {
    const UniqueFd owner = Open();
    descriptor = owner.Get();
    EXPECT_TRUE(IsOpen(descriptor));
  }
  EXPECT_FALSE(IsOpen(descriptor));
}

TEST(UniqueFd, Move_LeavesOneOwner) {
  UniqueFd first = Open();
  const int descriptor = first.Get();
  UniqueFd second(std::move(first));
  EXPECT_EQ(descriptor, second.Get());
  UniqueFd third;
  third = std::move(second);
  EXPECT_EQ(descriptor, third.Get());
  EXPECT_TRUE(IsOpen(descriptor));
}

TEST(UniqueFd, Release_LeavesItOpen) {
  UniqueFd owner = Open();
  const UniqueFd next(owner.Release());
  EXPECT_FALSE(owner.IsOpen());
  EXPECT_TRUE(IsOpen(next.Get()));
}

TEST(UniqueFd, Close_TellsTheResultAndForgetsTheDescriptor) {
  UniqueFd owner = Open();
  const int descriptor = owner.Get();
  EXPECT_EQ(0, owner.Close());
  EXPECT_FALSE(owner.IsOpen());
  EXPECT_FALSE(IsOpen(descriptor));
  EXPECT_EQ(-1, owner.Close());
}

}  // namespace
}  // namespace support
