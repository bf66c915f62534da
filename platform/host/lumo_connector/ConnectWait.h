/// How long Exchanges may wait for a peer. Immutable after construction: any thread.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_CONNECTWAIT_H
#define PLATFORM_HOST_LUMO_CONNECTOR_CONNECTWAIT_H

#include <chrono>
#include <functional>

#include "platform/host/lumo_connector/ConnectFailure.h"

namespace platform_host {

/// Tells the time of intervals; called from any thread.
using SteadyClock = std::function<std::chrono::steady_clock::time_point()>;

/// Ends every wait at a deadline, or when a stop descriptor becomes readable.
class ConnectWait {
 public:
  /// `stopDescriptor` stays open as long as this object.
  ConnectWait(SteadyClock now, std::chrono::steady_clock::time_point deadline, int stopDescriptor);

  /// Waits until `descriptor` is ready for the poll events `events`, or broken. Fails with
  /// ETIMEDOUT after the deadline and with ECANCELED after a stop, ready or not.
  [[nodiscard]] ConnectOutcome Until(int descriptor, short events) const;

  /// As Until without a descriptor and without waiting: whether there is time left.
  [[nodiscard]] ConnectOutcome Check() const;

  /// The same wait with `share` of the time that is left, though no more than `most`.
  [[nodiscard]] ConnectWait Part(double share, std::chrono::milliseconds most) const;

 private:
  [[nodiscard]] std::chrono::milliseconds Left() const;

  SteadyClock clock;
  std::chrono::steady_clock::time_point end;
  int stop;
};

}  // namespace platform_host

#endif
