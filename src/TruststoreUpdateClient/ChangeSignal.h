/// Tells waiting threads that something has changed. The workers of an update wait for a usable
/// connection, and for their next attempt, on one each.
///
/// Does its own locking: any thread, and any number of them may wait at once.
#ifndef TRUSTSTOREUPDATECLIENT_CHANGESIGNAL_H
#define TRUSTSTOREUPDATECLIENT_CHANGESIGNAL_H

#include <chrono>
#include <cstdint>

#include "support/Mutex.h"

namespace truststore_update_client {

/// Counts changes. Who asks for the count, then looks at what may change, then waits for another
/// count, misses no change and is held up by none that was there before.
class ChangeSignal {
 public:
  /// How many changes there were.
  [[nodiscard]] std::uint64_t Count() const EXCLUDES(mutex);

  /// Counts one more and wakes every thread that waits.
  void Change() EXCLUDES(mutex);

  /// Blocks until there were more changes than `seen`.
  void WaitForChange(std::uint64_t seen) const EXCLUDES(mutex);

  /// As above, at most until `timeout` has passed on the steady clock.
  void WaitForChange(std::uint64_t seen, std::chrono::milliseconds timeout) const EXCLUDES(mutex);

 private:
  mutable support::Mutex mutex;
  mutable support::ConditionVariable changed;
  std::uint64_t count GUARDED_BY(mutex) = 0;
};

}  // namespace truststore_update_client

#endif
