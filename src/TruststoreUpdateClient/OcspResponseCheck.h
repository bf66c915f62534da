/// What an OCSP responder's answer is worth (RFC 6960): bounds on its bytes, looked at before any
/// certificate in it is constructed, and the verdict about one certificate.
///
/// Used by OcspConnection. No state; any thread. May be slow only within the bounds.
#ifndef TRUSTSTOREUPDATECLIENT_OCSPRESPONSECHECK_H
#define TRUSTSTOREUPDATECLIENT_OCSPRESPONSECHECK_H

#include <botan/pkix_enums.h>
#include <botan/x509cert.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace truststore_update_client {

/// An answer about one certificate takes under 3 KB, its responder's certificate included.
inline constexpr std::size_t kMaxOcspResponseBytes = std::size_t{16} * 1024;

/// How long after its thisUpdate an answer without nextUpdate counts.
inline constexpr std::chrono::hours kMaxOcspAge{7 * 24};

/// What an answer says about one certificate, and whether anybody who may say so has said it.
struct OcspVerdict {
  /// OCSP_RESPONSE_GOOD, or why the certificate is not known to be good.
  Botan::Certificate_Status_Code status = Botan::Certificate_Status_Code::OCSP_RESPONSE_INVALID;

  /// OCSP_SIGNATURE_OK, or why the answer is nobody's.
  Botan::Certificate_Status_Code signature = Botan::Certificate_Status_Code::OCSP_SIGNATURE_ERROR;

  /// Good, and signed.
  [[nodiscard]] bool IsGood() const;
};

/// Tells why `response` is not to be read: it is too long, or carries a certificate beyond the
/// bounds on signers (SignerKeyBounds.h), whose construction could take the library minutes. Empty
/// when it may be read; bytes that are no answer may be too, as the library refuses them quickly.
/// Does not throw but for std::bad_alloc.
[[nodiscard]] std::string BeyondOcspBounds(const std::vector<std::uint8_t>& response);

/// Reads `response` as an answer about `certificate`, issued by `issuer`, at the time `now`. The
/// signature counts when it is the issuer's, or that of a responder whose certificate the answer
/// carries, the issuer has issued directly and for that purpose, and `now` is within (RFC 6960
/// section 4.2.2.2); nobody answers about their own key. Such a certificate is not itself checked
/// for revocation: its issuer may rely on its short life (section 4.2.2.2.1). Throws what the
/// library throws for bytes that are no answer.
///
/// REQUIRES: BeyondOcspBounds(response) is empty; `issuer` is the verified issuer of `certificate`.
[[nodiscard]] OcspVerdict EvaluateOcspResponse(const Botan::X509_Certificate& certificate,
                                               const Botan::X509_Certificate& issuer,
                                               const std::vector<std::uint8_t>& response,
                                               std::chrono::system_clock::time_point now);

/// The status of a verdict in words, for log lines. The library's own words for an answer that
/// cannot be used say that it can.
[[nodiscard]] std::string OcspStatusText(Botan::Certificate_Status_Code status);

}  // namespace truststore_update_client

#endif
