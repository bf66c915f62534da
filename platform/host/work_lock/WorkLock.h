/// Keeps two processes from changing the unit's trust store and records at once. An installation is
/// a row of operations on both whose beginning and end nobody announces; so a process that has
/// begun keeps the right to work for a lease after each operation, and others wait. Used by the
/// trust store and the persistency, with one file for both.
///
/// The file holds who worked last and when. Byte 0 is locked while a process works; a byte of its
/// own, far behind the text, is locked by each process for as long as it lives, so that the kernel
/// tells at once when a holder has died. The file also holds who began the present store, by
/// removing all of the one before: a worker that lost its right in the middle of an installation
/// learns there that its store is gone. Locks belong to open file descriptions (F_OFD_SETLK in
/// fcntl(2)), which hold across containers that share the file.
#ifndef PLATFORM_HOST_WORK_LOCK_WORKLOCK_H
#define PLATFORM_HOST_WORK_LOCK_WORKLOCK_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "platform/host/config/Result.h"
#include "support/Mutex.h"
#include "support/UniqueFd.h"

namespace platform_host {

/// One worker among those that share the lock file: normally the process. Any thread; threads that
/// share a worker work side by side and are not kept apart. Outlives its turns. Ends its lease when
/// destroyed, or with the process.
class WorkLock {
 public:
  using Milliseconds = std::chrono::milliseconds;

  /// How long things take.
  struct Timing {
    /// How long others wait after an operation of a living worker: longer than the checks of the
    /// largest container take on a slow machine.
    Milliseconds lease{30000};
    Milliseconds patience{60000};   ///< how long Begin waits for another worker
    Milliseconds pollInterval{20};  ///< how often Begin looks again
    /// The same for all workers. Without the time for which the machine is suspended: nobody can
    /// work then.
    std::function<Milliseconds()> now = MonotonicTime;
    Milliseconds quietFor{1000};  ///< how long Begin waits before a line of the log tells of it
  };

  enum class Purpose {
    kRead,   ///< nothing is made: without a file that can be opened nobody is at work, or it is not
             ///< our business
    kChange  ///< makes the lock file (mode 0600) and its directory if need be
  };

  /// One operation under way. Move-only; ends with its scope, which begins the lease.
  class Turn {
   public:
    explicit Turn(WorkLock* worker) : lock(worker) {}
    Turn(Turn&& other) noexcept : lock(std::exchange(other.lock, nullptr)) {}
    Turn& operator=(Turn&&) = delete;
    ~Turn() {
      if (lock != nullptr) lock->End();
    }

    /// Tells all workers that this one begins the store anew: from now on IsStoreLost is true for
    /// those that did so before. Returns 0 or an errno. REQUIRES: Purpose::kChange.
    [[nodiscard]] int BeginStore() { return lock->BeginStore(); }

    /// Whether this worker has begun a store that is no longer the present one. A worker that never
    /// began one adds to any. REQUIRES: Purpose::kChange.
    [[nodiscard]] bool IsStoreLost() const { return lock->IsStoreLost(); }

   private:
    WorkLock* lock;
  };

  /// The worker that this process is for `lockFile`: made at the first call, kept until the process
  /// has ended.
  static WorkLock& OfProcess(const std::string& lockFile);

  /// Does nothing yet. `lockFile` is an absolute path.
  explicit WorkLock(std::string lockFile);
  WorkLock(std::string lockFile, Timing durations);

  /// Begins an operation, waiting up to the patience while another worker is in one or has its
  /// lease; one info line tells of a wait that is not short. Fails with "FILE: reason" when that
  /// was not enough or the file cannot be used. Other threads are not held up by the waiting.
  Result<Turn> Begin(Purpose purpose) EXCLUDES(mutex);

 private:
  /// Who may work, as the file tells.
  struct Record {
    std::int64_t worker;  ///< the byte that its process keeps locked
    Milliseconds lastWork;
    std::int64_t process;
    std::int64_t storeBeginner;  ///< the worker that began the present store, 0: unknown
  };

  /// What one look at the file gave.
  struct Attempt {
    enum class Outcome { kGranted, kNoLock, kBusy, kFailed } outcome;
    std::int64_t detail =
        0;  ///< kBusy: the process that is in the way, 0: unknown; kFailed: an errno
  };

  static Milliseconds MonotonicTime();

  // As in Turn.
  [[nodiscard]] int BeginStore() EXCLUDES(mutex);
  [[nodiscard]] bool IsStoreLost() EXCLUDES(mutex);

  /// Ends a turn; the last one of several begins the lease.
  void End() EXCLUDES(mutex);

  /// Looks once, without waiting.
  Attempt TryBegin(Purpose purpose) EXCLUDES(mutex);

  /// Begins the first of several turns at once. After success byte 0 is ours.
  [[nodiscard]] Attempt Claim() REQUIRES(mutex);

  /// Opens the file unless it is open, and locks the byte that stands for this worker. Returns 0 or
  /// an errno.
  [[nodiscard]] int OpenFile(Purpose purpose) REQUIRES(mutex);

  /// Whether the open file is still the one that others find: somebody may have cleared the
  /// directory.
  [[nodiscard]] bool IsFileInPlace() const REQUIRES(mutex);

  /// Whether `record` leaves us free to work: ours, none, out of date, or of a worker that is gone.
  [[nodiscard]] bool MayWork(const std::optional<Record>& record) const REQUIRES(mutex);

  /// None when the file holds nothing that could be a record.
  [[nodiscard]] std::optional<Record> ReadRecord() const REQUIRES(mutex);

  /// Who began the present store, as the file tells; 0: unknown.
  [[nodiscard]] std::int64_t StoreBeginner() const REQUIRES(mutex);

  /// Writes that this worker works now, on the store of `storeBeginner`. Returns 0 or an errno.
  [[nodiscard]] int WriteRecord(std::int64_t storeBeginner) const REQUIRES(mutex);

  const std::string path;
  const Timing timing;

  support::Mutex mutex;
  support::UniqueFd file GUARDED_BY(mutex);
  std::int64_t self GUARDED_BY(mutex) =
      0;  ///< the byte that stands for this worker, drawn anew for each file
  unsigned turns GUARDED_BY(mutex) = 0;  ///< under way now
  bool hasBegunStore GUARDED_BY(mutex) = false;
};

}  // namespace platform_host

#endif
