/// The certificates that a container installs: checked and turned into PEM without the work that
/// nobody needs. No state; any thread.
#ifndef TRUSTSTOREUPDATECLIENT_PAYLOADCERTIFICATE_H
#define TRUSTSTOREUPDATECLIENT_PAYLOADCERTIFICATE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace truststore_update_client {

/// A CA certificate has 0.5 to 4 KB; with a post-quantum key and signature it may have 50.
inline constexpr std::size_t kMaxPayloadCertificateBytes = std::size_t{64} * 1024;

/// Its names and its extensions take a few hundred bytes each. The library's time for alternative
/// names grows with their square: 64 KiB of them take a quarter of a second, and a container of
/// 4 MiB holds fifty such certificates.
inline constexpr std::size_t kMaxPayloadFieldBytes = std::size_t{12} * 1024;

/// The PEM encoding of the certificate in `encoding`. Accepts what the constructor of
/// Botan::X509_Certificate accepts, within the bounds above, and returns what its PEM_encode
/// returns; throws Botan::Decoding_Error or another std::exception otherwise.
///
/// That constructor also verifies the signature of self-issued certificates, only to set a mark
/// that is of no use here, and never refuses one for it: over nine tenths of an installation's
/// time. This decodes a twin of the certificate that names another issuer, so that everything is
/// checked but that signature.
[[nodiscard]] std::string PemOfCertificate(const std::vector<std::uint8_t>& encoding);

}  // namespace truststore_update_client

#endif
