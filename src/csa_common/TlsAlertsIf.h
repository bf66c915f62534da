/// The TLS alerts that concern the trust store. Implemented by TlsAlerts and by tests; owned by the
/// client's core, which calls it on the main thread.
#ifndef CSA_COMMON_TLSALERTSIF_H
#define CSA_COMMON_TLSALERTSIF_H

#include <string>

#include "csa_common/TlsAlertsCbIf.h"
#include "socks_cdp/ETlsAlertCode.h"

namespace csa_common {

/// An alert, or none.
struct TlsAlertInfo {
  bool received = false;  ///< false: there is none, and the rest is empty
  tls_alert_if::ETlsAlertCode code{};
  std::string operationId;  ///< outside text
};

class TlsAlertsIf {
 public:
  virtual ~TlsAlertsIf() = default;

  /// Tells `callback`, which may be null, from now on. One that was told before may still be under
  /// way in a call; it and `callback` outlive this object.
  virtual void CallbackInit(TlsAlertsCbIf* callback) = 0;

  /// Takes the last alert that came since the call before.
  [[nodiscard]] virtual TlsAlertInfo CheckAlerts() = 0;
};

}  // namespace csa_common

#endif
