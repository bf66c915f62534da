/// What is told of TLS alerts that concern the trust store. Implemented by the client's core and by
/// tests; called on the listening thread of the alert client.
#ifndef CSA_COMMON_TLSALERTSCBIF_H
#define CSA_COMMON_TLSALERTSCBIF_H

#include <string>

#include "socks_cdp/ETlsAlertCode.h"

namespace csa_common {

class TlsAlertsCbIf {
 public:
  virtual ~TlsAlertsCbIf() = default;

  /// A server refused the connection of an application for the reason `code`. `operation` is
  /// outside text. Returns soon: the next alert is not read before. What it throws is logged and
  /// goes no further.
  virtual void TlsAlertNotifyCb(std::string operation, tls_alert_if::ETlsAlertCode code) = 0;
};

}  // namespace csa_common

#endif
