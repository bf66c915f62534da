#include "tools/tsc/Counted.h"

#include <gtest/gtest.h>

namespace tsc {
namespace {

TEST(Counted, OneOrAnotherNumber_SingularOrPlural) {
  EXPECT_EQ(Counted(0, "bundle"), "0 bundles");
  EXPECT_EQ(Counted(1, "bundle"), "1 bundle");
  EXPECT_EQ(Counted(2, "certificate"), "2 certificates");
}

}  // namespace
}  // namespace tsc
