/// What the listening thread of a TLS alert client and those who stop it share. Made by
/// SocksTlsAlertClientImpl, one for each start: a thread that is to end never takes a later start
/// for its own. Any thread.
#ifndef SOCKS_CDP_LISTENING_H
#define SOCKS_CDP_LISTENING_H

#include <chrono>
#include <functional>
#include <memory>

#include "socks_cdp/SocksTlsAlertClientCallbackIf.h"
#include "ssoa_socket/StreamCommunicatorIf.h"
#include "support/Mutex.h"

namespace socks_cdp {

/// Runs from construction until Stop, and never again.
class Listening {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  /// Tells `listeningCallback`, which may be null. Takes the time from `clock`.
  explicit Listening(SocksTlsAlertClientCallbackIf* listeningCallback,
                     Clock clock = std::chrono::steady_clock::now);

  /// Ends it: wakes Pause and disconnects the connection held. Again: nothing.
  void Stop() EXCLUDES(mutex);

  [[nodiscard]] bool IsRunning() const EXCLUDES(mutex);

  /// Whom to tell; null once stopped.
  [[nodiscard]] SocksTlsAlertClientCallbackIf* Callback() const EXCLUDES(mutex);

  /// Keeps `connected` in place of the connection before, for Stop to disconnect. Returns false
  /// when it is stopped already: then nothing is kept.
  [[nodiscard]] bool Hold(std::shared_ptr<ssoa_socket::StreamCommunicatorIf> connected)
      EXCLUDES(mutex);

  /// Disconnects the connection held, if there is one.
  void Drop() EXCLUDES(mutex);

  /// Waits until `duration` has passed on the clock, or until Stop.
  void Pause(std::chrono::milliseconds duration) EXCLUDES(mutex);

 private:
  /// Waits for the end of all, and not longer than `duration`. Returns whether it still runs.
  [[nodiscard]] bool WaitForStop(std::chrono::nanoseconds duration) EXCLUDES(mutex);

  const Clock now;

  mutable support::Mutex mutex;
  support::ConditionVariable stopped;
  bool running GUARDED_BY(mutex) = true;
  SocksTlsAlertClientCallbackIf* callback GUARDED_BY(mutex);
  std::shared_ptr<ssoa_socket::StreamCommunicatorIf> communicator GUARDED_BY(mutex);
};

}  // namespace socks_cdp

#endif
