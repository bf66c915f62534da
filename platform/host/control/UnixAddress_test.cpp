#include "platform/host/control/UnixAddress.h"

#include <gtest/gtest.h>

#include <cstring>

namespace platform_host {
namespace {

std::string PathOf(const UnixAddress& address) {
  sockaddr_un copy{};
  std::memcpy(&copy, address.Get(), UnixAddress::Size());
  EXPECT_EQ(copy.sun_family, AF_UNIX);
  EXPECT_EQ(copy.sun_path[kMaxSocketPathBytes], '\0');
  return static_cast<const char*>(copy.sun_path);
}

TEST(UnixAddress, Paths_UpToTheLongest) {
  for (const auto& path : {std::string("/s"), "/" + std::string(kMaxSocketPathBytes - 1, 'x')}) {
    EXPECT_EQ(PathOf(UnixAddress(path)), path);
  }
}

}  // namespace
}  // namespace platform_host
