#include "tests/doubles/FakeTrustStore.h"

#include <gmock/gmock.h>

namespace tests {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

const std::string kPem = "-----BEGIN CERTIFICATE-----\nAA==\n-----END CERTIFICATE-----\n";

TEST(FakeTrustStore, FailInstall_OnlyNthFailsAndChangesNothing) {
  FakeTrustStore store;
  store.FailInstall(2);
  EXPECT_EQ(store.InstallCertificateBundle("A", kPem), 0);
  EXPECT_NE(store.InstallCertificateBundle("B", kPem), 0);
  EXPECT_EQ(store.InstallCertificateBundle("C", kPem), 0);
  EXPECT_THAT(store.Installed(), ElementsAre(Pair("A", kPem), Pair("C", kPem)));
}

TEST(FakeTrustStore, FailRead_OnlyNthFails) {
  FakeTrustStore store;
  store.Provision("A", kPem);
  store.FailRead(1);
  std::string pem = "before";
  EXPECT_NE(store.ReadCertificateBundle("A", pem), 0);
  EXPECT_EQ(pem, "");
  EXPECT_EQ(store.ReadCertificateBundle("A", pem), 0);
}

TEST(FakeTrustStore, FailRemoval_BundlesStay) {
  FakeTrustStore store;
  EXPECT_EQ(store.InstallCertificateBundle("A", kPem), 0);
  store.FailRemoval(1);
  EXPECT_NE(store.RemoveAllTrustStores(), 0);
  EXPECT_THAT(store.Installed(), ElementsAre(Pair("A", kPem)));
  EXPECT_EQ(store.RemoveAllTrustStores(), 0);
  EXPECT_TRUE(store.Installed().empty());
}

TEST(FakeTrustStore, Calls_EveryCallInOrder) {
  FakeTrustStore store;
  store.FailRemoval(1);
  std::string pem;
  EXPECT_NE(store.RemoveAllTrustStores(), 0);
  EXPECT_EQ(store.InstallCertificateBundle("A", kPem), 0);
  EXPECT_NE(store.ReadCertificateBundle("B", pem), 0);
  EXPECT_THAT(store.Calls(), ElementsAre("remove all", "install A", "read B"));
}

TEST(FakeTrustStore, NameAtLimit_Installed) {
  FakeTrustStore store;
  EXPECT_EQ(store.InstallCertificateBundle(std::string(FakeTrustStore::kNameLimit, 'n'), kPem), 0);
}

TEST(FakeTrustStore, NameAboveLimit_Fails) {
  FakeTrustStore store;
  EXPECT_NE(store.InstallCertificateBundle(std::string(FakeTrustStore::kNameLimit + 1, 'n'), kPem),
            0);
}

}  // namespace
}  // namespace tests
