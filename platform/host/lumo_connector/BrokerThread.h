/// The thread that keeps the session with the broker, "LumoMqtt": it waits for the broker, for the
/// clock and for whoever asks something of it, and lets BrokerSession decide.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_BROKERTHREAD_H
#define PLATFORM_HOST_LUMO_CONNECTOR_BROKERTHREAD_H

#include <memory>
#include <optional>
#include <thread>

#include "platform/host/lumo_connector/BrokerSession.h"
#include "support/Mutex.h"
#include "support/UniqueFd.h"

namespace lumo_connector {

/// Operations may be called from any thread but its own.
class BrokerThread {
 public:
  /// Makes no thread yet. Throws std::system_error when there is no descriptor.
  BrokerThread();

  /// Stops first if need be.
  ~BrokerThread();
  BrokerThread(const BrokerThread&) = delete;
  BrokerThread& operator=(const BrokerThread&) = delete;

  /// Keeps `brokerSession` from now on. Called at most once; after Stop it does nothing. Throws
  /// std::exception when there can be no thread.
  void Start(std::unique_ptr<BrokerSession> brokerSession) EXCLUDES(mutex);

  /// There is something to send.
  void Wake() noexcept;

  /// Ends the session and the connection. Waits for the thread, which waits for nobody but the
  /// resolution of the broker's name. Again and from several threads: each waits.
  void Stop() EXCLUDES(mutex);

 private:
  void Run() noexcept EXCLUDES(mutex);

  /// Turns until the session ends or Stop is called.
  void KeepSession() EXCLUDES(mutex);

  /// One turn after `events`, which ends with a pause when it cannot be made.
  [[nodiscard]] std::optional<BrokerSession::Wait> TurnSafely(short events);

  /// Ends the connection after a turn that threw `reason`.
  [[nodiscard]] BrokerSession::Wait FailSafely(const char* reason);

  /// Waits for what `wait` names and for Wake. Returns what happened on its descriptor.
  [[nodiscard]] short WaitFor(const BrokerSession::Wait& wait) const;

  [[nodiscard]] bool IsStopping() EXCLUDES(mutex);

  const support::UniqueFd wake;            ///< eventfd
  std::unique_ptr<BrokerSession> session;  ///< of the thread once that runs

  support::Mutex mutex;
  support::ConditionVariable changed;
  bool stopping GUARDED_BY(mutex) = false;
  bool running GUARDED_BY(mutex) = false;

  std::thread thread;  ///< last: it uses the members above
};

}  // namespace lumo_connector

#endif
