/// The reason that a TLS alert gives. Used by the TLS alert client and everything above it.
#ifndef SOCKS_CDP_ETLSALERTCODE_H
#define SOCKS_CDP_ETLSALERTCODE_H

#include <cstdint>

namespace tls_alert_if {

/// The alert descriptions of RFC 5246 section 7.2 on which the unit acts. An object may hold every
/// other byte, too: what arrives is passed on as it is.
enum class ETlsAlertCode : std::uint8_t {
  kCertificateUnknown = 46,  ///< the trust store lacks what the server is to be checked against
  kUnknownCa = 48,
};

}  // namespace tls_alert_if

#endif
