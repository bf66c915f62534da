#include "lumo_connector/LumoConnector.h"

#include <pthread.h>

#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <thread>

#include "csc_logging/CSCLogging.h"
#include "platform/host/config/HostConfig.h"
#include "support/Mutex.h"

namespace lumo_connector {

namespace {

void LogError(std::string_view reason, const char* context = "") noexcept {
  try {
    csc_logging::CSCLogging::LogError(std::string("libLumoConnectorShared: ") + context +
                                      std::string(reason));
  } catch (const std::bad_alloc&) {
    // The line is lost, the session goes on.
  }
}

}  // namespace

/// The session's thread exists from the construction on and waits: a connector that could be made
/// can be started, and Start never leaves its caller waiting for a callback that cannot come.
class LumoConnector::Impl {
 public:
  explicit Impl(LumoSessionCallbackIf* sessionCallback)
      : callback(sessionCallback), session([this] { RunSession(); }) {}

  ~Impl() {
    Stop();
    session.join();
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void Start() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    started = true;
    changed.NotifyAll();
  }

  void Stop() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    stopping = true;
    changed.NotifyAll();
    while (!ended) changed.Wait(mutex);
    status = SessionStatus::kStopped;
  }

  [[nodiscard]] SessionStatus Status() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return status;
  }

 private:
  void RunSession() noexcept EXCLUDES(mutex) {
    ::pthread_setname_np(::pthread_self(), "LumoConnector");
    if (WaitForStart()) Tell(Open());
    const support::MutexLock lock(mutex);
    ended = true;
    changed.NotifyAll();
  }

  /// Returns false when the session is stopped first.
  bool WaitForStart() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    while (!started && !stopping) changed.Wait(mutex);
    return !stopping;
  }

  /// Whatever goes wrong gives a failed session: the client waits for its callback.
  static SessionStatus Open() noexcept {
    try {
      const auto& config = platform_host::HostConfig::OfProcess();
      if (config.Ok()) return SessionStatus::kStarted;
      LogError(config.Failure().Text());
    } catch (const std::exception& error) {
      LogError(error.what());
    }
    return SessionStatus::kFailed;
  }

  void Tell(SessionStatus opened) noexcept EXCLUDES(mutex) {
    Enter(opened);
    if (callback == nullptr) return;
    try {
      callback->LumoConnectorStatus(opened);
    } catch (const std::exception& error) {
      LogError(error.what(), "session ended: ");
    }
  }

  /// A Stop under way waits for the end of this thread and sets its own state afterwards.
  void Enter(SessionStatus opened) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    status = opened;
  }

  LumoSessionCallbackIf* const callback;

  mutable support::Mutex mutex;
  support::ConditionVariable changed;
  bool started GUARDED_BY(mutex) = false;
  bool stopping GUARDED_BY(mutex) = false;
  bool ended GUARDED_BY(mutex) = false;  ///< the thread calls nobody any more
  SessionStatus status GUARDED_BY(mutex) = SessionStatus::kStopped;

  std::thread session;  ///< last: it uses the members above
};

LumoConnector::LumoConnector(LumoSessionCallbackIf* callback)
    : impl(std::make_unique<Impl>(callback)) {}

LumoConnector::~LumoConnector() = default;

void LumoConnector::Start() {
  impl->Start();
}

void LumoConnector::Stop() {
  impl->Stop();
}

SessionStatus LumoConnector::GetSessionStatus() const {
  return impl->Status();
}

}  // namespace lumo_connector
