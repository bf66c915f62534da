/// Wakes one thread from another. The client's main loop and the retry timers wait on one each.
///
/// Does its own locking: any thread may raise; one thread at a time waits.
#ifndef TRUSTSTOREUPDATECLIENT_TRIGGER_H
#define TRUSTSTOREUPDATECLIENT_TRIGGER_H

#include <chrono>

#include "support/Mutex.h"

namespace truststore_update_client {

/// A flag to wait for. Raised while nobody waits, it ends the next wait at once: no trigger is
/// lost.
class Trigger {
 public:
  /// Raises the flag and wakes the waiter. Never blocks for long.
  void Raise() EXCLUDES(mutex);

  /// Blocks until the flag is raised, then clears it.
  void Wait() EXCLUDES(mutex);

  /// Blocks until the flag is raised or `timeout` has passed on the steady clock, then clears the
  /// flag.
  void WaitFor(std::chrono::milliseconds timeout) EXCLUDES(mutex);

 private:
  support::Mutex mutex;
  support::ConditionVariable raisedCondition;
  bool raised GUARDED_BY(mutex) = false;
};

}  // namespace truststore_update_client

#endif
