/// The one thread that calls the connector's listeners, "LumoConnector". It asks sources for what
/// they have to tell, one callback at a time, sources named first before later ones. As each source
/// bounds what it keeps, nothing can pile up here, and waking it needs no memory.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_CALLBACKTHREAD_H
#define PLATFORM_HOST_LUMO_CONNECTOR_CALLBACKTHREAD_H

#include <thread>
#include <vector>

#include "support/Mutex.h"

namespace lumo_connector {

/// Something that has callbacks to make.
class CallbackSource {
 public:
  virtual ~CallbackSource() = default;

  /// Makes the oldest callback that is due. Returns false when there is none. What a callback
  /// throws passes through; that callback has then been made. Called on the callback thread only,
  /// which holds no lock.
  virtual bool TellNext() = 0;
};

/// Operations may be called from any thread but its own.
class CallbackThread {
 public:
  /// Makes no thread yet.
  CallbackThread() = default;

  /// Stops first if need be.
  ~CallbackThread();
  CallbackThread(const CallbackThread&) = delete;
  CallbackThread& operator=(const CallbackThread&) = delete;

  /// Makes the thread, which asks `callbackSources`; they outlive it. Called once. Throws
  /// std::exception when there can be no thread.
  void Begin(std::vector<CallbackSource*> callbackSources) EXCLUDES(mutex);

  /// A source has something to tell. May be called from a callback too.
  void Wake() noexcept EXCLUDES(mutex);

  /// Waits for the callback under way; none follows. Again and from several threads: each waits.
  void Stop() EXCLUDES(mutex);

 private:
  void Run() noexcept EXCLUDES(mutex);

  /// Returns false when the thread is to end.
  bool WaitForWork() EXCLUDES(mutex);

  /// Makes one callback. Returns false when none is due or the thread is to end.
  bool TellOne() noexcept EXCLUDES(mutex);

  [[nodiscard]] bool IsStopping() EXCLUDES(mutex);

  std::vector<CallbackSource*> sources;  ///< constant once the thread runs

  support::Mutex mutex;
  support::ConditionVariable changed;
  bool woken GUARDED_BY(mutex) = false;
  bool stopping GUARDED_BY(mutex) = false;
  bool running GUARDED_BY(mutex) = false;

  std::thread thread;  ///< last: it uses the members above
};

}  // namespace lumo_connector

#endif
