/// What is under way in an update handler, and what it has been told: the flags that its callers
/// and its two workers share.
///
/// Does its own locking: any thread. Shared, because a worker that says that it has ended must not
/// need the handler any more, which may be gone the moment after.
#ifndef TRUSTSTOREUPDATECLIENT_UPDATEACTIVITY_H
#define TRUSTSTOREUPDATECLIENT_UPDATEACTIVITY_H

#include "support/Mutex.h"

namespace truststore_update_client {

/// All flags begin as false. At most one container update and one status report are ongoing.
class UpdateActivity {
 public:
  /// A container update begins, and retries are allowed again. False when one is ongoing already.
  [[nodiscard]] bool BeginContainerUpdate() EXCLUDES(mutex);
  void EndContainerUpdate() EXCLUDES(mutex);

  /// A status report begins. False when one is ongoing already.
  [[nodiscard]] bool BeginStatusReport() EXCLUDES(mutex);
  void EndStatusReport() EXCLUDES(mutex);

  /// True while a container update, its report, or another report is ongoing.
  [[nodiscard]] bool IsOngoing() const EXCLUDES(mutex);

  /// Blocks until nothing is ongoing.
  void WaitUntilIdle() const EXCLUDES(mutex);

  /// Work is to stop, or may go on. Nothing goes on after Terminate.
  void SetProcessingStopped(bool stopped) EXCLUDES(mutex);
  void Terminate() EXCLUDES(mutex);
  [[nodiscard]] bool IsProcessingStopped() const EXCLUDES(mutex);

  /// As SetProcessingStopped was told last, whether terminated or not.
  [[nodiscard]] bool IsStopRequested() const EXCLUDES(mutex);

  void SetConnectingAllowed(bool allowed) EXCLUDES(mutex);
  [[nodiscard]] bool IsConnectingAllowed() const EXCLUDES(mutex);

  /// Until the next container update begins.
  void DisableUpdateRetries() EXCLUDES(mutex);
  [[nodiscard]] bool IsUpdateRetryDisabled() const EXCLUDES(mutex);

 private:
  void End(bool& ongoing) REQUIRES(mutex);

  mutable support::Mutex mutex;
  mutable support::ConditionVariable idle;
  bool containerUpdateOngoing GUARDED_BY(mutex) = false;
  bool statusReportOngoing GUARDED_BY(mutex) = false;
  bool updateRetriesDisabled GUARDED_BY(mutex) = false;
  bool processingStopped GUARDED_BY(mutex) = false;
  bool terminated GUARDED_BY(mutex) = false;
  bool connectingAllowed GUARDED_BY(mutex) = false;
};

}  // namespace truststore_update_client

#endif
