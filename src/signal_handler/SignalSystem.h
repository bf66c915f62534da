/// The system calls under SignalHandler, so that its tests can have each of them fail.
#ifndef SIGNAL_HANDLER_SIGNALSYSTEM_H
#define SIGNAL_HANDLER_SIGNALSYSTEM_H

#include <cstddef>
#include <functional>
#include <thread>

#include "support/UniqueFd.h"

namespace signal_handler {

/// One function a call; fresh, each is the system's own. None may be empty.
struct SignalSystem {
  /// Makes a pipe whose write end never blocks. False when there is none; then both are unopened.
  std::function<bool(support::UniqueFd& readEnd, support::UniqueFd& writeEnd)> makePipe;

  /// Runs the body on a new thread "signals", which blocks every signal. Throws std::system_error.
  std::function<std::thread(std::function<void()> body)> startThread;

  /// Has HandleSignal called for `signal`, with interrupted system calls restarted. False when it
  /// cannot.
  std::function<bool(int signal)> installHandler;

  /// read(2) of one byte: 1, 0 at the end, or -1 and errno.
  std::function<std::ptrdiff_t(int descriptor, unsigned char& byte)> readByte;

  SignalSystem();
};

}  // namespace signal_handler

#endif
