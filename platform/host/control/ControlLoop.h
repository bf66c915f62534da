/// What the control thread does: it waits for the right to serve, for clients, for their requests
/// and for answers, all in one poll(2). Nothing happens: it sleeps. For ControlServer.
#ifndef PLATFORM_HOST_CONTROL_CONTROLLOOP_H
#define PLATFORM_HOST_CONTROL_CONTROLLOOP_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/config/Result.h"
#include "platform/host/control/ControlBoard.h"
#include "platform/host/control/ControlConnection.h"
#include "platform/host/control/ControlListener.h"
#include "platform/host/control/RetryPlan.h"
#include "platform/host/control/SocketLock.h"
#include "platform/host/control/WakeEvent.h"

namespace platform_host {

/// Open first, then Run on a thread; Stop from any thread.
class ControlLoop {
 public:
  /// Clients at one time; one more is closed at once.
  static constexpr std::size_t kMaxConnections = 16;

  /// How long nobody is accepted after the system could not: what it lacks does not come back by
  /// asking again and again.
  static constexpr std::chrono::seconds kAcceptPause{1};

  /// `offers` outlives the loop. `plan` tells when to try for the lock again, from the start on and
  /// whenever it may have become free. Throws std::bad_alloc.
  ControlLoop(std::string socketPath, ControlBoard& offers, RetryPlan plan = RetryPlan());

  /// Listens, or makes ready to wait for the process that does. Returns why neither can be.
  [[nodiscard]] std::optional<Error> Open();

  /// Serves until Stop. Then answers that are there have been sent, every connection is closed and
  /// the socket is removed.
  void Run() noexcept;

  /// Run returns soon after, once a request under way has been served.
  void Stop();

 private:
  using TimePoint = RetryPlan::TimePoint;

  /// Waits for one thing to happen, and does what it calls for.
  void ServeRound();

  /// Milliseconds, -1: for ever.
  [[nodiscard]] int TimeToWait(TimePoint now) const;

  /// Listens if no other process does: then there is a listener. Returns why nobody serves.
  [[nodiscard]] std::optional<Error> ListenIfFree();

  /// One attempt to take the place of a process that has ended.
  void TryToServe(TimePoint now);

  void AcceptClients(TimePoint now);
  void AddClient(support::UniqueFd client);

  /// One client that fails ends its own connection only.
  static void ServeClient(ControlConnection& connection, short ready);

  void DropFinished();

  const std::string path;
  ControlBoard& board;
  const std::shared_ptr<const WakeEvent> wake;
  std::atomic<bool> isStopping{false};

  SocketLock lock;
  RetryPlan lockAttempts;
  std::unique_ptr<ControlListener> listener;  ///< while this process serves
  std::optional<TimePoint> acceptAgain;       ///< during the pause
  bool isAcceptFailing = false;
  bool isTakeoverFailing = false;
  std::vector<std::unique_ptr<ControlConnection>> connections;
};

}  // namespace platform_host

#endif
