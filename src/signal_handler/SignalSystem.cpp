#include "signal_handler/SignalSystem.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <utility>

#include "signal_handler/SignalHandler.h"
#include "support/WorkerThread.h"

namespace signal_handler {
namespace {

bool MakePipe(support::UniqueFd& readEnd, support::UniqueFd& writeEnd) {
  int ends[2] = {-1, -1};
  if (::pipe2(ends, O_CLOEXEC) != 0) return false;
  support::UniqueFd reading(ends[0]);
  support::UniqueFd writing(ends[1]);
  // A thread that a signal interrupts must not wait inside the handler for room in the pipe.
  if (::fcntl(writing.Get(), F_SETFL, O_NONBLOCK) != 0) return false;
  readEnd = std::move(reading);
  writeEnd = std::move(writing);
  return true;
}

bool InstallHandler(int signal) {
  struct sigaction handling {};
  handling.sa_handler = HandleSignal;
  handling.sa_flags = SA_RESTART;
  ::sigemptyset(&handling.sa_mask);
  return ::sigaction(signal, &handling, nullptr) == 0;
}

}  // namespace

SignalSystem::SignalSystem()
    : makePipe(MakePipe),
      startThread([](std::function<void()> body) {
        return support::StartThread("signals", std::move(body));
      }),
      installHandler(InstallHandler),
      readByte([](int descriptor, unsigned char& byte) { return ::read(descriptor, &byte, 1); }) {}

}  // namespace signal_handler
