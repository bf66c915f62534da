/// What listens to the TLS alerts of the unit's proxy. Implemented by csa_common::TlsAlerts and by
/// tests; called on the client's listening thread.
#ifndef SOCKS_CDP_SOCKSTLSALERTCLIENTCALLBACKIF_H
#define SOCKS_CDP_SOCKSTLSALERTCLIENTCALLBACKIF_H

#include <string>

#include "socks_cdp/ETlsAlertCode.h"

namespace socks_cdp {

/// Lives until the client is destroyed: a call may still be under way when StopListening has
/// returned. Each returns soon, as the next alert is not read before, and may call StopListening;
/// what it throws is logged and goes no further.
class SocksTlsAlertClientCallbackIf {
 public:
  virtual ~SocksTlsAlertClientCallbackIf() = default;

  /// An application's TLS connection was refused by its server. `operationId` is outside text of up
  /// to 65535 bytes of any value.
  virtual void SocksTlsAlertOccured(std::string operationId, tls_alert_if::ETlsAlertCode code) = 0;

  /// The connection to the proxy was lost, or the proxy said something that cannot be understood.
  /// The client connects again by itself.
  virtual void SocksTlsAlertError() = 0;
};

}  // namespace socks_cdp

#endif
