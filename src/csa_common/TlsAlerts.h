/// Passes on those TLS alerts of the unit's proxy that concern the trust store, and remembers the
/// last of them. Owned by the client's core. Alerts come on the listening thread of the alert
/// client, everything else on the main thread.
#ifndef CSA_COMMON_TLSALERTS_H
#define CSA_COMMON_TLSALERTS_H

#include <memory>
#include <string>
#include <vector>

#include "csa_common/TlsAlertsIf.h"
#include "socks_cdp/SocksTlsAlertClientCallbackIf.h"
#include "socks_cdp/SocksTlsAlertClientIf.h"
#include "support/Mutex.h"

namespace csa_common {

/// Listens from construction to destruction. Every alert is an info line, also those that nobody
/// waits for.
class TlsAlerts final : public TlsAlertsIf, public socks_cdp::SocksTlsAlertClientCallbackIf {
 public:
  /// Tells nobody yet.
  explicit TlsAlerts(std::vector<tls_alert_if::ETlsAlertCode> acceptedCodes);

  /// Passes alerts with one of `acceptedCodes` on to `callback`, which may be null. An error line
  /// tells when it cannot listen; it is usable all the same.
  TlsAlerts(std::vector<tls_alert_if::ETlsAlertCode> acceptedCodes, TlsAlertsCbIf* callback);

  /// As the second, with another source of alerts: for tests.
  TlsAlerts(std::vector<tls_alert_if::ETlsAlertCode> acceptedCodes, TlsAlertsCbIf* callback,
            std::unique_ptr<socks_cdp::SocksTlsAlertClientIf> client);

  /// Waits for the notification under way; none follows. REQUIRES: it is not called from one.
  ~TlsAlerts() override;
  TlsAlerts(const TlsAlerts&) = delete;
  TlsAlerts& operator=(const TlsAlerts&) = delete;

  void CallbackInit(TlsAlertsCbIf* callback) override EXCLUDES(mutex);
  [[nodiscard]] TlsAlertInfo CheckAlerts() override EXCLUDES(mutex);

  /// Notifies the callback of an accepted code, after it has become the alert of CheckAlerts.
  void SocksTlsAlertOccured(std::string operationId, tls_alert_if::ETlsAlertCode code) override
      EXCLUDES(mutex);

  /// Only writes a line: the alert client connects again by itself.
  void SocksTlsAlertError() override;

 private:
  /// Names the accepted codes and begins to listen.
  void Init();

  [[nodiscard]] bool IsAccepted(tls_alert_if::ETlsAlertCode code) const;

  const std::vector<tls_alert_if::ETlsAlertCode> filters;

  support::Mutex mutex;
  TlsAlertsCbIf* notifyCallback GUARDED_BY(mutex);
  TlsAlertInfo pending GUARDED_BY(mutex);  ///< the last accepted alert, until it is taken

  /// Last: its thread uses the members above until it has ended.
  const std::unique_ptr<socks_cdp::SocksTlsAlertClientIf> alertClient;
};

}  // namespace csa_common

#endif
