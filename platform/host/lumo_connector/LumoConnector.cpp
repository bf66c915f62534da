#include "lumo_connector/LumoConnector.h"

#include <pthread.h>

#include <exception>
#include <string>
#include <thread>

#include "csc_logging/CSCLogging.h"
#include "platform/host/config/HostConfig.h"
#include "support/Mutex.h"

namespace lumo_connector {

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
    try {
      if (WaitForStart()) Open();
    } catch (const std::exception& error) {
      csc_logging::CSCLogging::LogError(std::string("libLumoConnectorShared: session ended: ") +
                                        error.what());
    }
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

  void Open() EXCLUDES(mutex) {
    const auto& config = platform_host::HostConfig::OfProcess();
    if (!config.Ok()) {
      csc_logging::CSCLogging::LogError(
          config.Failure().WithContext("libLumoConnectorShared").Text());
    }
    const auto opened = config.Ok() ? SessionStatus::kStarted : SessionStatus::kFailed;
    Enter(opened);
    if (callback != nullptr) callback->LumoConnectorStatus(opened);
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
