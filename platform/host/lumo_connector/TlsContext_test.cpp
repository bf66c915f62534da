#include "platform/host/lumo_connector/TlsContext.h"

#include <gmock/gmock.h>
#include <openssl/ssl.h>

#include <cerrno>
#include <filesystem>

#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestPki.h"

namespace platform_host {
namespace {

/// The test certificates' folder of servers and clients, and a trust store.
class Context : public ::testing::Test {
 protected:
  Context() { config.trustStoreDirectory = directory.Path(); }

  [[nodiscard]] static std::string Pki(const std::string& name) {
    return tests::PkiPath("tls/" + name);
  }

  /// Why loading failed; status 0 when it did not.
  [[nodiscard]] ConnectFailure Failure() const {
    const auto loaded = TlsContext::Load(config, service);
    const auto* failure = std::get_if<ConnectFailure>(&loaded);
    return failure == nullptr ? ConnectFailure{0, ""} : *failure;
  }

  void WriteBundle(const std::string& layer, const std::string& file) const {
    std::filesystem::create_directories(directory.Path() + "/" + layer);
    tests::WriteText(directory.Path() + "/" + layer + "/" + file, tests::PkiText("tls/ca.pem"));
  }

  const tests::TemporaryDirectory directory;
  HostConfig config;
  ServiceConfig service;
};

TEST_F(Context, CaFile_Loaded) {
  service.caFile = Pki("ca.pem");
  EXPECT_EQ(Failure().reason, "");
}

TEST_F(Context, MissingCaFile_ItsError) {
  service.caFile = Pki("nowhere.pem");
  const auto failure = Failure();
  EXPECT_EQ(failure.status, ENOENT);
  EXPECT_EQ(failure.reason, "cannot read " + Pki("nowhere.pem") + ": No such file or directory");
}

TEST_F(Context, CaFileWithoutCertificate_Refused) {
  for (const char* file : {"empty.pem", "no-certificate.pem"}) {
    service.caFile = Pki(file);
    const auto failure = Failure();
    EXPECT_EQ(failure.status, EINVAL);
    EXPECT_EQ(failure.reason, "no certificate in " + Pki(file));
  }
}

TEST_F(Context, CaFileWithUnreadableCertificates_TheOthersCount) {
  service.caFile = Pki("broken-first.pem");
  EXPECT_EQ(Failure().reason, "");
}

TEST_F(Context, CaFileAboveBound_Refused) {
  service.caFile = directory.Path() + "/large.pem";
  tests::WriteSparse(service.caFile, kMaxAnchorBytes + 1);
  EXPECT_EQ(Failure().reason, "cannot read " + service.caFile + ": File too large");
}

TEST_F(Context, CaFileAtBound_Read) {
  service.caFile = directory.Path() + "/large.pem";
  tests::WriteSparse(service.caFile, kMaxAnchorBytes);
  EXPECT_EQ(Failure().reason, "no certificate in " + service.caFile);
}

TEST_F(Context, Bundle_FromTheFactoryLayer) {
  service.bundle = "A/B";
  WriteBundle("factory", "A%2FB.pem");
  const auto loaded = TlsContext::Load(config, service);
  ASSERT_TRUE(std::holds_alternative<TlsContext>(loaded));
  EXPECT_EQ(std::get<TlsContext>(loaded).AnchorFile(), directory.Path() + "/factory/A%2FB.pem");
}

TEST_F(Context, BundleInstalledOnly_NeverUsed) {
  service.bundle = "A";
  WriteBundle("installed", "A.pem");
  const auto failure = Failure();
  EXPECT_EQ(failure.status, ENOENT);
  EXPECT_EQ(failure.reason,
            "cannot read " + directory.Path() + "/factory/A.pem: No such file or directory");
}

TEST_F(Context, ClientCertificate_Loaded) {
  service.caFile = Pki("ca.pem");
  service.certFile = Pki("client/cert.pem");
  service.keyFile = Pki("client/key.pem");
  EXPECT_EQ(Failure().reason, "");
}

TEST_F(Context, UnusableClientCertificate_Refused) {
  struct Case {
    std::string cert;
    std::string key;
    std::string reason;
  };
  const std::vector<Case> cases = {
      {"nowhere.pem", "client/key.pem",
       "cannot read " + Pki("nowhere.pem") + ": No such file or directory"},
      {"client/key.pem", "client/key.pem", "no usable certificate in " + Pki("client/key.pem")},
      {"client/cert.pem", "nowhere.pem",
       "cannot read " + Pki("nowhere.pem") + ": No such file or directory"},
      {"client/cert.pem", "client/cert.pem", "no usable key in " + Pki("client/cert.pem")},
      {"client/cert.pem", "client-locked/key.pem",
       "no usable key in " + Pki("client-locked/key.pem")},
      {"client/cert.pem", "good/key.pem",
       "the key in " + Pki("good/key.pem") + " is not that of the certificate"},
  };
  service.caFile = Pki("ca.pem");
  for (const auto& one : cases) {
    service.certFile = Pki(one.cert);
    service.keyFile = Pki(one.key);
    EXPECT_EQ(Failure().reason, one.reason);
  }
}

TEST_F(Context, IdentityAtBound_ReadAndAboveRefused) {
  service.caFile = Pki("ca.pem");
  service.certFile = directory.Path() + "/cert.pem";
  service.keyFile = Pki("client/key.pem");
  std::string text = tests::PkiText("tls/client/cert.pem");
  text.resize(kMaxIdentityBytes, '\n');
  tests::WriteText(service.certFile, text);
  EXPECT_EQ(Failure().reason, "");
  tests::WriteText(service.certFile, text + "\n");
  EXPECT_EQ(Failure().reason, "cannot read " + service.certFile + ": File too large");
}

TEST_F(Context, Loaded_VerifiesAlways) {
  service.caFile = Pki("ca.pem");
  const auto loaded = TlsContext::Load(config, service);
  ASSERT_TRUE(std::holds_alternative<TlsContext>(loaded));
  auto* const context = std::get<TlsContext>(loaded).Get().get();
  EXPECT_EQ(::SSL_CTX_get_verify_mode(context), SSL_VERIFY_PEER);
  EXPECT_EQ(::SSL_CTX_get_min_proto_version(context), TLS1_2_VERSION);
}

}  // namespace
}  // namespace platform_host
