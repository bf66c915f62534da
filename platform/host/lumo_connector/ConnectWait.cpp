#include "platform/host/lumo_connector/ConnectWait.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace platform_host {

using std::chrono::milliseconds;

ConnectWait::ConnectWait(SteadyClock now, std::chrono::steady_clock::time_point deadline,
                         int stopDescriptor)
    : clock(std::move(now)), end(deadline), stop(stopDescriptor) {}

ConnectOutcome ConnectWait::Until(int descriptor, short events) const {
  for (;;) {
    std::array<pollfd, 2> waits{{{stop, POLLIN, 0}, {descriptor, events, 0}}};
    const milliseconds left = Left();
    const int ready = ::poll(waits.data(), waits.size(), static_cast<int>(left.count()));
    if (ready < 0 && errno != EINTR) return ConnectFailure::OfErrno(errno);
    if (ready > 0 && waits[0].revents != 0) return ConnectFailure{ECANCELED, "stopped"};
    if (left.count() == 0) return ConnectFailure{ETIMEDOUT, "timed out"};
    if (ready > 0) return std::nullopt;
  }
}

ConnectOutcome ConnectWait::Check() const {
  pollfd wait{stop, POLLIN, 0};
  if (::poll(&wait, 1, 0) > 0) return ConnectFailure{ECANCELED, "stopped"};
  if (Left().count() == 0) return ConnectFailure{ETIMEDOUT, "timed out"};
  return std::nullopt;
}

ConnectWait ConnectWait::Part(double share, milliseconds most) const {
  const auto part = std::min(std::chrono::duration_cast<milliseconds>(Left() * share), most);
  return {clock, clock() + part, stop};
}

/// Rounded up, so that no wait ends just before its deadline and begins again.
milliseconds ConnectWait::Left() const {
  const auto left = std::chrono::ceil<milliseconds>(end - clock());
  return std::clamp(left, milliseconds(0), milliseconds(std::chrono::hours(24)));
}

}  // namespace platform_host
