/// The unit's ear for TLS alerts: hears from its SOCKS proxy of every alert that a server sent to
/// an application. Owned by csa_common::TlsAlerts. Any thread.
#ifndef SOCKS_CDP_SOCKSTLSALERTCLIENT_H
#define SOCKS_CDP_SOCKSTLSALERTCLIENT_H

#include <memory>

#include "socks_cdp/SocksTlsAlertClientIf.h"

namespace socks_cdp {

class SocksTlsAlertClientImpl;

/// Listens on the proxy's own socket; SocksTlsAlertClientImpl says how.
class SocksTlsAlertClient final : public SocksTlsAlertClientIf {
 public:
  /// Connects to nothing yet.
  SocksTlsAlertClient();
  ~SocksTlsAlertClient() override;
  SocksTlsAlertClient(const SocksTlsAlertClient&) = delete;
  SocksTlsAlertClient& operator=(const SocksTlsAlertClient&) = delete;

  [[nodiscard]] unsigned int StartListening(SocksTlsAlertClientCallbackIf* callback) override;
  void StopListening() override;

 private:
  std::unique_ptr<SocksTlsAlertClientImpl> implementation;
};

}  // namespace socks_cdp

#endif
