/// A server on a Unix socket for one test. Every wait ends at kDeadline. Any thread.
#ifndef TESTS_SUPPORT_UNIXPEER_H
#define TESTS_SUPPORT_UNIXPEER_H

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "support/UniqueFd.h"
#include "tests/support/LoopbackPeer.h"

namespace tests {

/// Listens on a path of the file system.
class UnixPeer {
 public:
  /// Takes `path`, which must not exist yet. Throws std::system_error when it cannot.
  explicit UnixPeer(std::string path, int backlog = 64)
      : socketPath(std::move(path)),
        listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    if (::bind(listener.Get(), generic, sizeof address) != 0 ||
        ::listen(listener.Get(), backlog) != 0) {
      throw std::system_error(errno, std::generic_category(), socketPath);
    }
  }
  ~UnixPeer() { ::unlink(socketPath.c_str()); }
  UnixPeer(const UnixPeer&) = delete;
  UnixPeer& operator=(const UnixPeer&) = delete;

  /// The next connection. Throws std::runtime_error when none comes in time.
  [[nodiscard]] support::UniqueFd Accept() const {
    if (!WaitFor(listener.Get(), POLLIN)) throw std::runtime_error("nobody connects");
    return AcceptWaiting();
  }

  /// A connection that has come already; none otherwise.
  [[nodiscard]] support::UniqueFd AcceptWaiting() const {
    return support::UniqueFd(::accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  }

 private:
  const std::string socketPath;
  const support::UniqueFd listener;
};

/// Two ends of one connection.
struct ConnectedPair {
  support::UniqueFd ours;
  support::UniqueFd theirs;
};

/// Throws std::system_error when there can be none.
[[nodiscard]] inline ConnectedPair MakeConnectedPair() {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  return {support::UniqueFd(ends[0]), support::UniqueFd(ends[1])};
}

}  // namespace tests

#endif
