#include "platform/host/lumo_connector/BrokerTls.h"

#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <memory>

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

TEST(BrokerTls, HostThatStandsForOthers_Refused) {
  for (const char* host : {"", ".", ".example"}) {
    auto config = Config(tests::PkiPath("tls/ca.pem"));
    config.host = host;
    const auto made = BrokerTls::Make(config);
    ASSERT_FALSE(made.Ok()) << host;
    EXPECT_EQ(made.Failure().Text(), "the broker's name cannot be verified");
  }
}

/// As where the settings of the system allow ciphers without certificates.
TEST(BrokerTls, CiphersWithoutCertificates_NotOffered) {
  const auto made = BrokerTls::Make(Config(tests::PkiPath("tls/ca.pem")));
  ASSERT_TRUE(made.Ok());
  SSL_CTX* const context = made.Value()->Context();
  ASSERT_EQ(::SSL_CTX_set_cipher_list(context, "aNULL:ECDHE+AESGCM:@SECLEVEL=0"), 1);
  ::SSL_CTX_set_max_proto_version(context, TLS1_2_VERSION);
  const std::unique_ptr<SSL, void (*)(SSL*)> connection(::SSL_new(context), ::SSL_free);
  const std::unique_ptr<STACK_OF(SSL_CIPHER), void (*)(STACK_OF(SSL_CIPHER)*)> offered(
      ::SSL_get1_supported_ciphers(connection.get()),
      [](STACK_OF(SSL_CIPHER) * ciphers) { sk_SSL_CIPHER_free(ciphers); });
  ASSERT_GT(sk_SSL_CIPHER_num(offered.get()), 0);
  for (int index = 0; index < sk_SSL_CIPHER_num(offered.get()); ++index) {
    const SSL_CIPHER* const cipher = sk_SSL_CIPHER_value(offered.get(), index);
    EXPECT_NE(::SSL_CIPHER_get_auth_nid(cipher), NID_auth_null) << ::SSL_CIPHER_get_name(cipher);
  }
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
