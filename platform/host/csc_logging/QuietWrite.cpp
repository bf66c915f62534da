#include "platform/host/csc_logging/QuietWrite.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>

namespace platform_host {
namespace {

bool IsPending(int signal) {
  sigset_t pending;
  return ::sigpending(&pending) == 0 && ::sigismember(&pending, signal) == 1;
}

sigset_t BrokenPipe() {
  sigset_t brokenPipe;
  ::sigemptyset(&brokenPipe);
  ::sigaddset(&brokenPipe, SIGPIPE);
  return brokenPipe;
}

// The signal of a failed write waits for this very thread, so there is nothing to wait for.
void TakeBack(const sigset_t& signals) {
  constexpr timespec kNoWait{};
  while (::sigtimedwait(&signals, nullptr, &kNoWait) < 0 && errno == EINTR) {
  }
}

}  // namespace

std::ptrdiff_t QuietWrite(int descriptor, std::string_view bytes) noexcept {
  const sigset_t brokenPipe = BrokenPipe();
  sigset_t former;
  ::pthread_sigmask(SIG_BLOCK, &brokenPipe, &former);
  // One that waits already is somebody else's; a second one would be the same.
  const bool waitedBefore = IsPending(SIGPIPE);
  const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
  const int error = errno;
  if (count < 0 && error == EPIPE && !waitedBefore) TakeBack(brokenPipe);
  ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
  errno = error;
  return count;
}

BrokenPipeShield::BrokenPipeShield() noexcept {
  const sigset_t brokenPipe = BrokenPipe();
  ::pthread_sigmask(SIG_BLOCK, &brokenPipe, &former);
  waitedBefore = IsPending(SIGPIPE);
}

BrokenPipeShield::~BrokenPipeShield() {
  const int error = errno;
  if (!waitedBefore) TakeBack(BrokenPipe());
  ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
  errno = error;
}

}  // namespace platform_host
