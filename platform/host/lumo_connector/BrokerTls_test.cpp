#include "platform/host/lumo_connector/BrokerTls.h"

#include <gtest/gtest.h>

#include "tests/support/TestPki.h"

namespace lumo_connector {
namespace {

platform_host::BrokerConfig Config(const std::string& caFile) {
  platform_host::BrokerConfig config;
  config.host = "localhost";
  config.caFile = caFile;
  return config;
}

// Whom it believes is shown against real brokers in tests/integration/Broker_test.cpp.
TEST(BrokerTls, GoodFile_ContextWithoutRefusal) {
  const auto made = BrokerTls::Make(Config(tests::PkiPath("tls/ca.pem")));
  ASSERT_TRUE(made.Ok());
  EXPECT_NE(made.Value()->Context(), nullptr);
  EXPECT_EQ(made.Value()->Refusal(), "");
}

TEST(BrokerTls, NoSuchFile_FileNamed) {
  const auto made = BrokerTls::Make(Config("/nowhere/ca.pem"));
  ASSERT_FALSE(made.Ok());
  EXPECT_EQ(made.Failure().Text(), "cannot read /nowhere/ca.pem: No such file or directory");
}

TEST(BrokerTls, FileGoneAtReload_Refused) {
  auto made = BrokerTls::Make(Config(tests::PkiPath("tls/ca.pem")));
  ASSERT_TRUE(made.Ok());
  const auto tls = std::move(made).Take();
  EXPECT_EQ(tls->Reload(Config(tests::PkiPath("tls/ca.pem"))), std::nullopt);
  const auto error = tls->Reload(Config("/nowhere/ca.pem"));
  ASSERT_NE(error, std::nullopt);
  EXPECT_EQ(error->Text(), "cannot read /nowhere/ca.pem: No such file or directory");
}

TEST(BrokerTls, FileWithoutCertificate_Refused) {
  const std::string file = tests::PkiPath("tls/empty.pem");
  const auto made = BrokerTls::Make(Config(file));
  ASSERT_FALSE(made.Ok());
  EXPECT_EQ(made.Failure().Text(), "no certificate in " + file);
}

TEST(BrokerTls, ClientKeyWithPassphrase_Refused) {
  auto config = Config(tests::PkiPath("tls/ca.pem"));
  config.certFile = tests::PkiPath("tls/client-locked/cert.pem");
  config.keyFile = tests::PkiPath("tls/client-locked/key.pem");
  const auto made = BrokerTls::Make(config);
  ASSERT_FALSE(made.Ok());
  EXPECT_EQ(made.Failure().Text(), "no usable key in " + config.keyFile);
}

}  // namespace
}  // namespace lumo_connector
