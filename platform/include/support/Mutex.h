/// Mutex, MutexLock and ConditionVariable: the standard ones with clang's thread-safety
/// annotations, so that the compiler checks the lock rules that headers state. Used by the client
/// and the host platform alike; any thread. Header-only and free of platform calls: an
/// implementation of the platform keeps this file as it is.
#ifndef SUPPORT_MUTEX_H
#define SUPPORT_MUTEX_H

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define TSUC_ANNOTATION(x) __attribute__((x))
#else
#define TSUC_ANNOTATION(x)
#endif

#define CAPABILITY(x) TSUC_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY TSUC_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) TSUC_ANNOTATION(guarded_by(x))
#define REQUIRES(...) TSUC_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) TSUC_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) TSUC_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) TSUC_ANNOTATION(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS TSUC_ANNOTATION(no_thread_safety_analysis)

namespace support {

/// A std::mutex that the thread-safety analysis knows.
class CAPABILITY("mutex") Mutex {
 public:
  void Lock() ACQUIRE() { mutex.lock(); }
  void Unlock() RELEASE() { mutex.unlock(); }

 private:
  friend class ConditionVariable;
  std::mutex mutex;
};

/// Holds a Mutex for the length of a scope.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& heldMutex) ACQUIRE(heldMutex) : held(heldMutex) { held.Lock(); }
  ~MutexLock() RELEASE() { held.Unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& held;
};

/// A std::condition_variable over Mutex. Wait in an explicit `while` over the guarded state: waits
/// may end spuriously.
class ConditionVariable {
 public:
  void Wait(Mutex& heldMutex) REQUIRES(heldMutex) {
    std::unique_lock<std::mutex> lock(heldMutex.mutex, std::adopt_lock);
    condition.wait(lock);
    lock.release();
  }

  /// Returns false when `deadline` has passed.
  bool WaitUntil(Mutex& heldMutex, std::chrono::steady_clock::time_point deadline)
      REQUIRES(heldMutex) {
    std::unique_lock<std::mutex> lock(heldMutex.mutex, std::adopt_lock);
    const bool inTime = condition.wait_until(lock, deadline) == std::cv_status::no_timeout;
    lock.release();
    return inTime;
  }

  void NotifyOne() { condition.notify_one(); }
  void NotifyAll() { condition.notify_all(); }

 private:
  std::condition_variable condition;
};

}  // namespace support

#endif
