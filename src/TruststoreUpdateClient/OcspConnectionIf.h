/// One revocation check over the Online Certificate Status Protocol (RFC 6960). Called on the
/// thread that verifies a container.
#ifndef TRUSTSTOREUPDATECLIENT_OCSPCONNECTIONIF_H
#define TRUSTSTOREUPDATECLIENT_OCSPCONNECTIONIF_H

#include <cstdint>
#include <string>
#include <vector>

namespace truststore_update_client {

/// Results of a check.
inline constexpr int kOcspGood = 0;
inline constexpr int kOcspFailed = 1;
inline constexpr int kOcspNotCompleted = 3;

/// Asks a responder about one certificate at a time.
class OcspConnectionIf {
 public:
  virtual ~OcspConnectionIf() = default;

  /// Asks whether `certificate`, issued by `issuer` (both DER), has been revoked. `operationTypeId`
  /// names the backend's operation and `url` is its address. Returns kOcspGood for a good
  /// certificate, kOcspNotCompleted when the exchange could not be completed (a later try may
  /// succeed), anything else for a check that failed. Does not throw; blocks for one exchange.
  [[nodiscard]] virtual int CheckCertificate(const std::vector<std::uint8_t>& certificate,
                                             const std::vector<std::uint8_t>& issuer,
                                             const std::string& operationTypeId,
                                             const std::string& url) = 0;
};

}  // namespace truststore_update_client

#endif
