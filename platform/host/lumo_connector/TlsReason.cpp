#include "platform/host/lumo_connector/TlsReason.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace platform_host {
namespace {

/// A number of the library, what it means, and the status that goes with it.
struct Words {
  int number;
  int status;
  const char* text;
};

constexpr const char* kVersion = "it speaks no version of TLS from 1.2 on";
constexpr const char* kNoTls = "it does not speak TLS";
constexpr const char* kNoCertificate = "it demands a client certificate";

constexpr std::array kTlsWords = {
    Words{SSL_R_UNSUPPORTED_PROTOCOL, EPROTO, kVersion},
    Words{SSL_R_TLSV1_ALERT_PROTOCOL_VERSION, EPROTO, kVersion},
    Words{SSL_R_VERSION_TOO_LOW, EPROTO, kVersion},
    Words{SSL_R_WRONG_VERSION_NUMBER, EPROTO, kNoTls},
    Words{SSL_R_SSLV3_ALERT_HANDSHAKE_FAILURE, EPROTO,
          "it refuses the handshake: no common cipher, or a client certificate is missing"},
    Words{SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED, EACCES, kNoCertificate},
    Words{SSL_R_SSLV3_ALERT_BAD_CERTIFICATE, EACCES, "it refuses the client certificate"},
    Words{SSL_R_SSLV3_ALERT_UNSUPPORTED_CERTIFICATE, EACCES,
          "it does not support the client certificate"},
    Words{SSL_R_SSLV3_ALERT_CERTIFICATE_REVOKED, EACCES,
          "it takes the client certificate for revoked"},
    Words{SSL_R_SSLV3_ALERT_CERTIFICATE_EXPIRED, EACCES,
          "it takes the client certificate for expired"},
    Words{SSL_R_SSLV3_ALERT_CERTIFICATE_UNKNOWN, EACCES, "it does not know the client certificate"},
    Words{SSL_R_TLSV1_ALERT_UNKNOWN_CA, EACCES, "it does not know the client certificate's CA"},
    Words{SSL_R_TLSV1_ALERT_ACCESS_DENIED, EACCES, "it denies access"},
    Words{SSL_R_TLSV1_UNRECOGNIZED_NAME, EPROTO, "it does not serve this name"},
};

constexpr std::array kVerificationWords = {
    Words{X509_V_ERR_HOSTNAME_MISMATCH, EACCES, "its certificate is for another name"},
    Words{X509_V_ERR_IP_ADDRESS_MISMATCH, EACCES, "its certificate is for another address"},
    Words{X509_V_ERR_CERT_HAS_EXPIRED, EACCES, "a certificate of its chain has expired"},
    Words{X509_V_ERR_CERT_NOT_YET_VALID, EACCES, "a certificate of its chain is not valid yet"},
};

/// No path to an anchor, in the library's several ways.
constexpr std::array kUnknownIssuer = {
    X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY,
    X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN,
    X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE};

template <typename Table>
const Words* Find(const Table& table, long number) {
  const auto found = std::find_if(table.begin(), table.end(),
                                  [number](const Words& one) { return one.number == number; });
  return found == table.end() ? nullptr : &*found;
}

}  // namespace

std::string VerificationReason(long verifyResult, const std::string& anchorFile) {
  if (const auto* words = Find(kVerificationWords, verifyResult)) return words->text;
  if (std::find(kUnknownIssuer.begin(), kUnknownIssuer.end(), verifyResult) !=
      kUnknownIssuer.end()) {
    return "its certificate was issued by no CA of " + anchorFile;
  }
  return std::string("its certificate is refused: ") +
         ::X509_verify_cert_error_string(verifyResult);
}

ConnectFailure TlsFailure(const PeerBioState& state) {
  const unsigned long error = ::ERR_peek_error();
  if (error != 0) {
    if (const auto* words = Find(kTlsWords, ERR_GET_REASON(error))) {
      return {words->status, words->text};
    }
    const char* text = ::ERR_reason_error_string(error);
    return {EPROTO, std::string("TLS: ") + (text == nullptr ? "unknown error" : text)};
  }
  if (state.error != 0) return ConnectFailure::OfErrno(state.error);
  return {EPROTO, "it closed the connection"};
}

}  // namespace platform_host
