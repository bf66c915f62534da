#include "platform/host/lumo_connector/TlsReason.h"

#include <gmock/gmock.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <cerrno>
#include <vector>

namespace platform_host {
namespace {

TEST(TlsReason, Verification_InWords) {
  struct Case {
    long result;
    std::string words;
  };
  const std::string unknown = "its certificate was issued by no CA of /ca.pem";
  const std::vector<Case> cases = {
      {X509_V_ERR_HOSTNAME_MISMATCH, "its certificate is for another name"},
      {X509_V_ERR_IP_ADDRESS_MISMATCH, "its certificate is for another address"},
      {X509_V_ERR_CERT_HAS_EXPIRED, "a certificate of its chain has expired"},
      {X509_V_ERR_CERT_NOT_YET_VALID, "a certificate of its chain is not valid yet"},
      {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, unknown},
      {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, unknown},
      {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, unknown},
      {X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN, unknown},
      {X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE, unknown},
      {X509_V_ERR_CERT_REVOKED, "its certificate is refused: certificate revoked"},
  };
  for (const auto& one : cases) EXPECT_EQ(VerificationReason(one.result, "/ca.pem"), one.words);
}

/// What TlsFailure says when the library's last error is `reason`. Its texts come with the first
/// session, of which there is none here.
ConnectFailure FailureAfter(int reason) {
  ::OPENSSL_init_ssl(OPENSSL_INIT_LOAD_SSL_STRINGS, nullptr);
  ::ERR_clear_error();
  ERR_raise(ERR_LIB_SSL, reason);
  const auto failure = TlsFailure(PeerBioState{-1});
  ::ERR_clear_error();
  return failure;
}

TEST(TlsReason, LibraryError_InWordsWithItsStatus) {
  struct Case {
    int reason;
    int status;
    std::string words;
  };
  const std::vector<Case> cases = {
      {SSL_R_UNSUPPORTED_PROTOCOL, EPROTO, "it speaks no version of TLS from 1.2 on"},
      {SSL_R_TLSV1_ALERT_PROTOCOL_VERSION, EPROTO, "it speaks no version of TLS from 1.2 on"},
      {SSL_R_WRONG_VERSION_NUMBER, EPROTO, "it does not speak TLS"},
      {SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED, EACCES, "it demands a client certificate"},
      {SSL_R_TLSV1_ALERT_UNKNOWN_CA, EACCES, "it does not know the client certificate's CA"},
      {SSL_R_BAD_SIGNATURE, EPROTO, "TLS: bad signature"},
  };
  for (const auto& one : cases) {
    const auto failure = FailureAfter(one.reason);
    EXPECT_EQ(failure.status, one.status) << one.words;
    EXPECT_EQ(failure.reason, one.words);
  }
}

TEST(TlsReason, SocketError_TheSystemsText) {
  ::ERR_clear_error();
  const auto failure = TlsFailure(PeerBioState{-1, ECONNRESET, false});
  EXPECT_EQ(failure.status, ECONNRESET);
  EXPECT_EQ(failure.reason, "Connection reset by peer");
}

TEST(TlsReason, PeerEnded_Closed) {
  ::ERR_clear_error();
  const auto failure = TlsFailure(PeerBioState{-1, 0, true});
  EXPECT_EQ(failure.status, EPROTO);
  EXPECT_EQ(failure.reason, "it closed the connection");
}

}  // namespace
}  // namespace platform_host
