/// What hears of TLS alerts from the unit's proxy. Implemented by SocksTlsAlertClient, by what it
/// forwards to, and by tests; owned by csa_common::TlsAlerts. Any thread.
#ifndef SOCKS_CDP_SOCKSTLSALERTCLIENTIF_H
#define SOCKS_CDP_SOCKSTLSALERTCLIENTIF_H

#include "socks_cdp/SocksTlsAlertClientCallbackIf.h"

namespace socks_cdp {

inline constexpr unsigned int kListeningStarted = 0;
inline constexpr unsigned int kListeningFailed = 1;
inline constexpr unsigned int kAlreadyListening = 2;

class SocksTlsAlertClientIf {
 public:
  /// Stops, and waits for the callback under way; none follows. REQUIRES: this is not the listening
  /// thread, and no other operation is under way.
  virtual ~SocksTlsAlertClientIf() = default;

  /// Begins to listen in the background: whether there is a proxy shows later. `callback` may be
  /// null. Returns kListeningStarted; kAlreadyListening, with nothing changed, when somebody has
  /// started it already or when it is called from a callback; kListeningFailed, with an error line,
  /// when there can be no thread. Waits for the callback that an earlier listening is still inside.
  [[nodiscard]] virtual unsigned int StartListening(SocksTlsAlertClientCallbackIf* callback) = 0;

  /// Has the listening end at once, without waiting for it. Again, or before any start: nothing.
  virtual void StopListening() = 0;
};

}  // namespace socks_cdp

#endif
