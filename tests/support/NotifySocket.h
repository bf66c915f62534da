/// The service manager's end of what a process reports of itself. One at a time, on the test's
/// thread, while no other thread asks for the environment.
#ifndef TESTS_SUPPORT_NOTIFYSOCKET_H
#define TESTS_SUPPORT_NOTIFYSOCKET_H

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

#include "support/UniqueFd.h"
#include "tests/support/Deadline.h"

namespace tests {

/// While it lives, NOTIFY_SOCKET names it; see sd_notify(3).
class NotifySocket {
 public:
  /// Bound to `path`, which must not exist yet. Throws std::system_error when it cannot be.
  explicit NotifySocket(const std::string& path)
      : fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const timeval deadline{kDeadline.count(), 0};
    if (::setsockopt(fd.Get(), SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline) != 0 ||
        ::bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      throw std::system_error(errno, std::generic_category(), path);
    }
    ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
  }
  ~NotifySocket() { ::unsetenv("NOTIFY_SOCKET"); }
  NotifySocket(const NotifySocket&) = delete;
  NotifySocket& operator=(const NotifySocket&) = delete;

  /// The next report; "nothing" when none has come before the deadline.
  [[nodiscard]] std::string Receive() const {
    char buffer[100];
    const ssize_t count = ::recv(fd.Get(), buffer, sizeof buffer, 0);
    return count < 0 ? "nothing" : std::string(buffer, static_cast<std::size_t>(count));
  }

 private:
  const support::UniqueFd fd;
};

}  // namespace tests

#endif
