#include "platform/host/config/Result.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

namespace platform_host {
namespace {

TEST(Result, OfValue_OkAndHoldsIt) {
  const Result<int> result(3);
  ASSERT_TRUE(result.Ok());
  EXPECT_EQ(result.Value(), 3);
}

TEST(Result, OfError_HoldsText) {
  const Result<int> result(Error("broken"));
  ASSERT_FALSE(result.Ok());
  EXPECT_EQ(result.Failure().Text(), "broken");
}

TEST(Result, OfMoveOnlyValue_Taken) {
  Result<std::unique_ptr<int>> result(std::make_unique<int>(4));
  EXPECT_EQ(*std::move(result).Take(), 4);
}

TEST(Error, WithContext_ContextInFront) {
  EXPECT_EQ(Error("c").WithContext("b").WithContext("a").Text(), "a: b: c");
}

TEST(Error, OfErrno_SystemsText) {
  EXPECT_EQ(Error::OfErrno(ENOSPC).Text(), "No space left on device");
}

}  // namespace
}  // namespace platform_host
