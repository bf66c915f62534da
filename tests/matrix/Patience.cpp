#include "tests/matrix/Patience.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>

#include "support/UniqueFd.h"
#include "tests/support/Deadline.h"

namespace tests {
namespace {

// Of HttpConnection, in milliseconds: for the first answer, and between two pieces of it.
constexpr int kFirstAnswer = 20000;
constexpr int kNextPiece = 10000;

/// Holds a count of waits that have no time left.
int WaitsToEnd() {
  static const support::UniqueFd event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE));
  return event.Get();
}

}  // namespace

void Patience::End() {
  constexpr std::uint64_t kWaitsOfAnExchange = 2;
  (void)!::write(WaitsToEnd(), &kWaitsOfAnExchange, sizeof kWaitsOfAnExchange);
}

}  // namespace tests

// The names that the linker's --wrap asks for.
extern "C" {
int __real_poll(pollfd* descriptors, nfds_t count, int timeout);  // NOLINT: the linker's name
int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout);  // NOLINT: the linker's name

int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {  // NOLINT: the linker's name
  using tests::kFirstAnswer;
  using tests::kNextPiece;
  if (count != 1 || (timeout != kFirstAnswer && timeout != kNextPiece)) {
    return __real_poll(descriptors, count, timeout);
  }
  pollfd both[2] = {descriptors[0], {tests::WaitsToEnd(), POLLIN, 0}};
  const auto limit = std::chrono::milliseconds(tests::kDeadline).count();
  if (__real_poll(both, 2, static_cast<int>(limit)) < 0) return -1;
  descriptors[0].revents = both[0].revents;
  if (both[0].revents != 0) return 1;
  std::uint64_t one = 0;
  (void)!::read(tests::WaitsToEnd(), &one, sizeof one);
  return 0;
}
}
