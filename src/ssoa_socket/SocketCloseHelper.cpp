#include "ssoa_socket/SocketCloseHelper.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "csc_logging/CSCLogging.h"

namespace ssoa_socket {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// What waits in the pipe once the socket is given up.
constexpr unsigned char CLOSED_MSG = 1;

/// What is left of a timeout, for poll(2).
int RemainingMs(steady_clock::time_point deadline) {
  const auto remaining = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
  return static_cast<int>(std::max(remaining, milliseconds(0)).count());
}

/// poll(2), which no signal ends: the kernel restarts it in no case.
template <std::size_t count>
int PollOn(pollfd (&descriptors)[count], int timeoutMs) {
  const auto deadline = steady_clock::now() + milliseconds(std::max(timeoutMs, 0));
  int result = ::poll(descriptors, count, timeoutMs);
  while (result < 0 && errno == EINTR) {
    result = ::poll(descriptors, count, timeoutMs < 0 ? timeoutMs : RemainingMs(deadline));
  }
  return result;
}

}  // namespace

SocketCloseHelper::SocketCloseHelper(int watchedSocket, std::string ownerName)
    : socket(watchedSocket), name(std::move(ownerName)) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return;
  readEnd = support::UniqueFd(ends[0]);
  writeEnd = support::UniqueFd(ends[1]);
}

int SocketCloseHelper::Poll(int timeoutMs) const {
  pollfd descriptors[] = {{socket, POLLIN, 0}, {readEnd.Get(), POLLIN, 0}};
  const int result = PollOn(descriptors, timeoutMs);
  if (result > 0 && (descriptors[1].revents & POLLIN) != 0) {
    // The byte stays there: every other thread that polls, now or later, has to find it too.
    csc_logging::CSCLogging::LogVerbose(csc_logging::CSCLogEntry()
                                        << name << "CLOSED_MSG in pipe => socket closed");
    return -1;
  }
  return result;
}

void SocketCloseHelper::SocketClosed() const {
  if (!writeEnd.IsOpen()) return;
  // A pipe that is full says the same already.
  static_cast<void>(!::write(writeEnd.Get(), &CLOSED_MSG, sizeof CLOSED_MSG));
}

}  // namespace ssoa_socket
