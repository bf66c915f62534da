#include "tools/tsc/UnitStore.h"

#include <gtest/gtest.h>

#include "platform/host/ostra_tee/TrustStoreDirectory.h"

namespace tsc {
namespace {

TEST(UnitStore, NamesAtTheBound_Fit) {
  EXPECT_TRUE(FitsStore(""));
  EXPECT_TRUE(FitsStore(std::string(244, 'x')));
  EXPECT_TRUE(FitsStore(std::string(81, '/') + "x"));
}

TEST(UnitStore, NamesAboveTheBound_DoNotFit) {
  EXPECT_FALSE(FitsStore(std::string(245, 'x')));
  EXPECT_FALSE(FitsStore(std::string(81, '/') + "xx"));
}

TEST(UnitStore, WhatAUnitInstalls_NoFailure) {
  EXPECT_EQ(StoreFailure(std::string(244, 'x'), "pem"), "");
  const std::string largest(platform_host::TrustStoreDirectory::kBundleLimit, 'p');
  EXPECT_EQ(StoreFailure("WEB", largest), "");
}

TEST(UnitStore, NameTooLong_UnitsLine) {
  const std::string name(245, 'x');
  EXPECT_EQ(StoreFailure(name, "pem"),
            "libtruststore: cannot install bundle " + name +
                ": /var/lib/truststore-update-client/trust-store/installed/" + name +
                ".pem: File name too long");
}

TEST(UnitStore, BundleTooLarge_UnitsLine) {
  const std::string pem(platform_host::TrustStoreDirectory::kBundleLimit + 1, 'p');
  EXPECT_EQ(StoreFailure("WEB", pem), "libtruststore: cannot install bundle WEB: File too large");
}

}  // namespace
}  // namespace tsc
