/// Turns SIGTERM into a call of an ordinary function on an ordinary thread, and keeps SIGPIPE from
/// ending the process. The process lifecycle adapter creates one.
///
/// The signal handler only writes the signal's number into a pipe; the thread "signals" reads it
/// and acts. Constructor and destructor belong to one thread; signals may arrive on any, at any
/// time.
#ifndef SIGNAL_HANDLER_SIGNALHANDLER_H
#define SIGNAL_HANDLER_SIGNALHANDLER_H

#include <atomic>
#include <functional>
#include <thread>

#include "signal_handler/SignalSystem.h"
#include "support/UniqueFd.h"

namespace signal_handler {

/// The write end of the pipe of the SignalHandler alive, or -1. All that a signal handler can
/// reach.
extern std::atomic<int> gPipeWriteFd;

/// Installed for both signals: writes the number into the pipe, if there is one. Async-signal-safe:
/// never blocks, not even on a full pipe, and keeps errno. A SIGTERM that finds the pipe full is
/// acted on all the same.
void HandleSignal(int signal);

/// Listens from construction until the first SIGTERM or its destruction. Later signals are caught
/// and have no effect: the handlers stay installed until the process ends, so that a late SIGTERM
/// does not kill it. Only one may exist at a time.
class SignalHandler {
 public:
  /// Calls `terminationAction` once, on the thread "signals", after the first SIGTERM. What it
  /// throws is logged. Without a pipe, or without a handler that could be installed, that is logged
  /// and the signals have no effect, or their default one. Throws std::system_error when the thread
  /// cannot be made; then nothing is left behind and SIGTERM does what it did before.
  explicit SignalHandler(std::function<void()> terminationAction);

  /// As above, on other system calls.
  SignalHandler(std::function<void()> terminationAction, SignalSystem signalSystem);

  /// Ends the thread, and waits for the action if it is under way. Must not be called by the
  /// action.
  ~SignalHandler();
  SignalHandler(const SignalHandler&) = delete;
  SignalHandler& operator=(const SignalHandler&) = delete;

 private:
  void OpenPipe();

  /// Once this has returned no handler uses the descriptor, nor the number of what is opened next.
  static void TakePipeAway();
  void StartMessageThread();
  void HandleMessages() const;
  void ReadMessages() const;

  /// Acts on a message; true when no further one is to be read.
  [[nodiscard]] bool IsLast(int number) const;

  const std::function<void()> action;
  const SignalSystem system;
  support::UniqueFd pipeReadFd;         ///< constant once the thread runs
  support::UniqueFd pipeWriteFd;        ///< never blocks
  std::atomic<bool> isStopping{false};  ///< set before the stop message, which a full pipe loses
  std::thread messageThread;
};

}  // namespace signal_handler

#endif
