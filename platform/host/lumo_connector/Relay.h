/// The thread that moves the bytes of all exchanges. For Exchanges.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_RELAY_H
#define PLATFORM_HOST_LUMO_CONNECTOR_RELAY_H

#include <memory>
#include <thread>
#include <vector>

#include "platform/host/lumo_connector/ConnectFailure.h"
#include "platform/host/lumo_connector/ConnectWait.h"
#include "platform/host/lumo_connector/RelayedExchange.h"
#include "support/Mutex.h"
#include "support/UniqueFd.h"

namespace platform_host {

/// Starts its thread with the first exchange. Any thread may call, but for the destructor.
class Relay {
 public:
  /// `now` is asked on the relay's thread.
  explicit Relay(SteadyClock now);

  /// Stops first if need be.
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  /// Serves `exchange` from now on. Fails with ECANCELED after Stop and with EAGAIN when the thread
  /// cannot be started; `exchange` is closed then. Throws std::bad_alloc, with the same effect.
  [[nodiscard]] ConnectOutcome Add(std::unique_ptr<RelayedExchange> exchange) EXCLUDES(mutex);

  /// Closes every exchange; none is served after it has returned. May be called again, and from
  /// several threads at once.
  void Stop() EXCLUDES(mutex);

  /// Looks at every limit now: for clocks that do not move by waiting.
  void Wake() const;

 private:
  using Added = std::vector<std::unique_ptr<RelayedExchange>>;

  /// What the thread works on.
  struct Work;

  void StartThread() REQUIRES(mutex);

  /// The thread.
  void Run(Work& work) noexcept EXCLUDES(mutex);

  /// Takes what was added over into `work`, with the memory to serve it. Returns false when
  /// stopping. Throws std::bad_alloc, and what was added is closed then.
  [[nodiscard]] bool TakeAdded(Work& work) EXCLUDES(mutex);

  /// Waits for one exchange to be ready or due, and serves those that are. Needs no memory of its
  /// own: a lack of it must not end exchanges that need none.
  void ServeRound(Work& work) const;

  const SteadyClock clock;
  const support::UniqueFd wake;  ///< an eventfd; -1 when there was none left to be had

  support::Mutex mutex;
  support::ConditionVariable changed;
  Added added GUARDED_BY(mutex);
  bool stopping GUARDED_BY(mutex) = false;
  bool running GUARDED_BY(mutex) = false;
  std::thread thread GUARDED_BY(mutex);
};

}  // namespace platform_host

#endif
