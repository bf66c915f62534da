/// Bounds on the signer certificates of a container, looked at before any of them is constructed:
/// nobody has verified them yet, and a certificate of 4 KB can hold the cryptographic library for
/// seconds. No state; any thread.
#ifndef TRUSTSTOREUPDATECLIENT_SIGNERKEYBOUNDS_H
#define TRUSTSTOREUPDATECLIENT_SIGNERKEYBOUNDS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace truststore_update_client {

/// A signer chain has two or three certificates of 0.5 to 2 KB. Each bound is far above that.
inline constexpr std::size_t kMaxSignerCertificates = 16;
inline constexpr std::size_t kMaxSignerCertificateBytes = 4096;
inline constexpr std::size_t kMaxRsaModulusBits = 8192;
inline constexpr std::size_t kMaxRsaExponentBits = 64;

/// Parameters of keys other than RSA. The name of a curve takes ten bytes; a curve that is spelled
/// out, which RFC 5480 section 2.1.1 forbids in certificates, takes forty at least. Nobody's curve
/// can be made so that reading one point of it takes the library a second, and the library keeps
/// each curve that it has seen until the process ends.
inline constexpr std::size_t kMaxKeyParameterBytes = 32;

/// Tells why the certificate with this encoding (DER, or PEM text in its place) is beyond the
/// bounds; empty when it is not. An encoding that cannot be read is within them: the library
/// refuses it quickly. So is a key of an algorithm that the library does not know; of those that it
/// knows only the ones that sign certificates today are within: RSA, ECDSA and Ed25519. Does not
/// throw.
[[nodiscard]] std::string BeyondSignerBounds(const std::vector<std::uint8_t>& encoding);

}  // namespace truststore_update_client

#endif
