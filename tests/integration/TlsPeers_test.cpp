// The connector's streams against TLS servers that nobody here wrote: who is refused, and by which
// line; who is not, and what then arrives.
#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "platform/host/lumo_connector/Exchanges.h"
#include "tests/support/Files.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestPki.h"
#include "tests/support/TlsPeers.h"

namespace {

using platform_host::CapturedLog;
using platform_host::LogLevel;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using tests::OpensslServer;
using tests::PkiPath;

constexpr const char* kOperation = "Download";

/// A connector whose one operation trusts the test CA.
class TlsPeers : public ::testing::Test {
 protected:
  TlsPeers() {
    service.url = "https://localhost/";
    service.caFile = PkiPath("tls/ca.pem");
  }

  lumo_connector::LumoSocketResult Connect(std::uint16_t port) {
    return exchanges.Connect(config, kOperation, "localhost", port);
  }

  void UseClientCertificate() {
    service.certFile = PkiPath("tls/client/cert.pem");
    service.keyFile = PkiPath("tls/client/key.pem");
  }

  /// What the server answers to a GET of `path`; empty when there is no stream.
  std::string Get(std::uint16_t port, const std::string& path) {
    const support::UniqueFd stream(Connect(port).descriptor);
    if (!stream.IsOpen()) return "";
    // A server that refuses the client may have ended the stream before there was a request.
    static_cast<void>(tests::SendAll(stream.Get(), "GET " + path +
                                                       " HTTP/1.1\r\nHost: localhost\r\n"
                                                       "Connection: close\r\n\r\n"));
    return tests::ReadToEnd(stream.Get());
  }

  /// That connecting to `port` fails with `status` and one line that ends with `reason`.
  void ExpectRefused(std::uint16_t port, int status, const std::string& reason) {
    const CapturedLog log;
    const auto result = Connect(port);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.descriptor, -1);
    EXPECT_EQ(result.text, reason);
    EXPECT_THAT(log.Lines(),
                ElementsAre("error: libLumoConnectorShared: cannot connect to localhost:" +
                            std::to_string(port) + " for Download: " + reason));
  }

  platform_host::HostConfig config;
  platform_host::ServiceConfig& service = config.services[kOperation];
  platform_host::Exchanges exchanges;
};

TEST_F(TlsPeers, WrongName_Refused) {
  const OpensslServer server("wrong-name");
  ExpectRefused(server.Port(), EACCES, "its certificate is for another name");
}

TEST_F(TlsPeers, Expired_Refused) {
  const OpensslServer server("expired");
  ExpectRefused(server.Port(), EACCES, "a certificate of its chain has expired");
}

TEST_F(TlsPeers, NotYetValid_Refused) {
  const OpensslServer server("not-yet");
  ExpectRefused(server.Port(), EACCES, "a certificate of its chain is not valid yet");
}

TEST_F(TlsPeers, UnknownCa_Refused) {
  const OpensslServer server("unknown-ca");
  ExpectRefused(server.Port(), EACCES, "its certificate was issued by no CA of " + service.caFile);
}

TEST_F(TlsPeers, OldTlsOnly_Refused) {
  for (const char* version : {"-tls1", "-tls1_1"}) {
    const OpensslServer server("good", {version, "-cipher", "ALL:@SECLEVEL=0"});
    ExpectRefused(server.Port(), EPROTO, "it speaks no version of TLS from 1.2 on");
  }
}

TEST_F(TlsPeers, NobodyListens_Refused) {
  tests::LoopbackPeer peer;
  const auto port = peer.Port();
  peer.Close();
  ExpectRefused(port, ECONNREFUSED, "Connection refused");
}

TEST_F(TlsPeers, CaFileMissingOrEmpty_NeverUnverified) {
  const OpensslServer server("good");
  service.caFile = PkiPath("tls/nowhere.pem");
  ExpectRefused(server.Port(), ENOENT,
                "cannot read " + service.caFile + ": No such file or directory");
  service.caFile = PkiPath("tls/empty.pem");
  ExpectRefused(server.Port(), EINVAL, "no certificate in " + service.caFile);
}

TEST_F(TlsPeers, ClientCertificateMissing_Refused) {
  const OpensslServer server("good", {"-tls1_2", "-Verify", "1", "-verify_return_error", "-CAfile",
                                      PkiPath("tls/ca.pem")});
  ExpectRefused(server.Port(), EPROTO,
                "it refuses the handshake: no common cipher, or a client certificate is missing");
}

/// In TLS 1.3 the client has finished before the server tells (RFC 8446 section 4.4.2.4).
TEST_F(TlsPeers, ClientCertificateMissingInTls13_EndWithOneWarning) {
  const OpensslServer server("good", {"-tls1_3", "-Verify", "1", "-verify_return_error", "-CAfile",
                                      PkiPath("tls/ca.pem")});
  const CapturedLog log;
  EXPECT_EQ(Get(server.Port(), "/"), "");
  EXPECT_THAT(
      log.Lines(LogLevel::kInfo),
      ElementsAre("warning: libLumoConnectorShared: localhost:" + std::to_string(server.Port()) +
                  " for Download ended: it demands a client certificate"));
}

TEST_F(TlsPeers, ClientCertificateOfAnotherCa_Refused) {
  UseClientCertificate();
  const OpensslServer server("good", {"-tls1_2", "-Verify", "1", "-verify_return_error", "-CAfile",
                                      PkiPath("tls/other-ca.pem")});
  ExpectRefused(server.Port(), EACCES, "it does not know the client certificate's CA");
}

TEST_F(TlsPeers, ClientCertificate_Accepted) {
  UseClientCertificate();
  for (const char* version : {"-tls1_2", "-tls1_3"}) {
    const OpensslServer server("good", {version, "-Verify", "1", "-verify_return_error", "-CAfile",
                                        PkiPath("tls/ca.pem")});
    EXPECT_THAT(Get(server.Port(), "/"), StartsWith("HTTP/1.0 200 ok")) << version;
  }
}

TEST_F(TlsPeers, GoodServer_SpeaksTls12And13) {
  const CapturedLog log;
  const OpensslServer older("good", {"-tls1_2"});
  EXPECT_THAT(Get(older.Port(), "/"), HasSubstr("Protocol  : TLSv1.2"));
  const OpensslServer newer("good", {"-tls1_3"});
  EXPECT_THAT(Get(newer.Port(), "/"), HasSubstr("Protocol  : TLSv1.3"));
  EXPECT_THAT(log.Lines(LogLevel::kInfo), IsEmpty());
}

TEST_F(TlsPeers, CertificateOfAnIntermediate_Accepted) {
  const OpensslServer server("intermediate");
  EXPECT_THAT(Get(server.Port(), "/"), StartsWith("HTTP/1.0 200 ok"));
}

TEST_F(TlsPeers, Nginx_FileArrivesWhole) {
  const tests::TemporaryDirectory files;
  std::string body(3000000, '\0');
  for (std::size_t at = 0; at < body.size(); ++at) body[at] = static_cast<char>(at * 7 + at / 251);
  tests::WriteText(files.Path() + "/container", body);
  const tests::NginxServer server("good", files.Path());
  const CapturedLog log;
  const std::string overTls = Get(server.TlsPort(), "/container");
  service.url = "http://localhost/";
  const std::string plain = Get(server.Port(), "/container");
  EXPECT_THAT(overTls, StartsWith("HTTP/1.1 200 OK"));
  EXPECT_TRUE(overTls.substr(overTls.find("\r\n\r\n") + 4) == body);
  EXPECT_TRUE(plain.substr(plain.find("\r\n\r\n") + 4) == body);
  EXPECT_THAT(log.Lines(LogLevel::kInfo), IsEmpty());
}

TEST_F(TlsPeers, NginxOfAnUnknownCa_Refused) {
  const tests::TemporaryDirectory files;
  const tests::NginxServer server("unknown-ca", files.Path());
  ExpectRefused(server.TlsPort(), EACCES,
                "its certificate was issued by no CA of " + service.caFile);
}

TEST_F(TlsPeers, Nginx_PlainWhereTlsIsExpected_Refused) {
  const tests::TemporaryDirectory files;
  const tests::NginxServer server("good", files.Path());
  ExpectRefused(server.Port(), EPROTO, "it does not speak TLS");
}

}  // namespace
