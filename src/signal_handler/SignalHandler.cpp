#include "signal_handler/SignalHandler.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "csc_logging/CSCSubLogger.h"

namespace signal_handler {
namespace {

using csc_logging::CSCLogging;

// SIGTERM has been caught. Set before its byte is written: where that finds the pipe full, the
// reader has bytes ahead of it and looks here after each.
std::atomic<bool> gTerminationCaught{false};

// Handlers under way, on any thread. While it is not 0, one may be about to use the descriptor.
std::atomic<int> gHandlersInside{0};

static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
              "a lock in a signal handler could wait for the very thread that it interrupts");

const csc_logging::CSCSubLogger& Logger() {
  static const csc_logging::CSCSubLogger logger("SignalHandler");
  return logger;
}

// Async-signal-safe. A full pipe takes nothing: every sender has set a flag, or can do without.
void WriteMessage(int descriptor, int number) {
  const auto byte = static_cast<unsigned char>(number);
  while (::write(descriptor, &byte, 1) < 0 && errno == EINTR) {
  }
}

}  // namespace

std::atomic<int> gPipeWriteFd{-1};

void HandleSignal(int signal) {
  const int callersErrno = errno;
  ++gHandlersInside;
  const int descriptor = gPipeWriteFd;
  if (descriptor >= 0) {
    if (signal == SIGTERM) gTerminationCaught = true;
    WriteMessage(descriptor, signal);
  }
  --gHandlersInside;
  errno = callersErrno;
}

SignalHandler::SignalHandler(std::function<void()> terminationAction)
    : SignalHandler(std::move(terminationAction), SignalSystem()) {}

SignalHandler::SignalHandler(std::function<void()> terminationAction, SignalSystem signalSystem)
    : action(std::move(terminationAction)), system(std::move(signalSystem)) {
  OpenPipe();
  StartMessageThread();
  if (!system.installHandler(SIGTERM)) {
    CSCLogging::LogError(Logger().SubLog("Failed to set SIGTERM handler"));
  }
  if (!system.installHandler(SIGPIPE)) {
    CSCLogging::LogError(Logger().SubLog("Failed to set SIGPIPE handler"));
  }
}

SignalHandler::~SignalHandler() {
  TakePipeAway();
  isStopping = true;
  if (pipeWriteFd.IsOpen()) WriteMessage(pipeWriteFd.Get(), SIGRTMIN);
  messageThread.join();
}

void SignalHandler::OpenPipe() {
  gTerminationCaught = false;
  if (system.makePipe(pipeReadFd, pipeWriteFd)) gPipeWriteFd = pipeWriteFd.Get();
}

void SignalHandler::TakePipeAway() {
  gPipeWriteFd = -1;
  while (gHandlersInside != 0) std::this_thread::yield();
}

void SignalHandler::StartMessageThread() {
  try {
    messageThread = system.startThread([this] { HandleMessages(); });
  } catch (...) {
    TakePipeAway();
    throw;
  }
}

void SignalHandler::HandleMessages() const {
  try {
    ReadMessages();
  } catch (const std::exception& exception) {
    CSCLogging::LogError(Logger().SubLog("Action failed: ") << exception.what());
  } catch (...) {
    CSCLogging::LogError(Logger().SubLog("Action failed."));
  }
}

void SignalHandler::ReadMessages() const {
  if (!pipeReadFd.IsOpen()) {
    CSCLogging::LogError(Logger().SubLog("Invalid pipe descriptor"));
    return;
  }
  for (;;) {
    unsigned char byte = 0;
    const auto count = system.readByte(pipeReadFd.Get(), byte);
    if (count < 0 && errno == EINTR) continue;
    if (count != 1) {
      CSCLogging::LogError(Logger().SubLog("Error reading pipe"));
      return;
    }
    // The messages behind this one, which a full pipe may have lost, have left a flag each.
    if (IsLast(byte)) return;
    if (gTerminationCaught && IsLast(SIGTERM)) return;
    if (isStopping && IsLast(SIGRTMIN)) return;
  }
}

bool SignalHandler::IsLast(int number) const {
  CSCLogging::LogInfo(Logger().SubLog("Signal ") << number << " caught");
  if (number == SIGRTMIN) {
    CSCLogging::LogInfo(Logger().SubLog("STOP message received."));
    return true;
  }
  if (number != SIGTERM) return false;
  CSCLogging::LogInfo(Logger().SubLog("SIGTERM received."));
  action();
  return true;
}

}  // namespace signal_handler
