/// A server on this machine for one test, and what both ends of a stream need. Every wait ends at
/// kDeadline. Belongs to one thread at a time.
#ifndef TESTS_SUPPORT_LOOPBACKPEER_H
#define TESTS_SUPPORT_LOOPBACKPEER_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "support/UniqueFd.h"
#include "tests/support/Deadline.h"

namespace tests {

/// Waits until `descriptor` is ready for `events`. Returns false after the deadline.
[[nodiscard]] inline bool WaitFor(int descriptor, short events) {
  pollfd wait{descriptor, events, 0};
  const auto limit = std::chrono::milliseconds(kDeadline).count();
  return ::poll(&wait, 1, static_cast<int>(limit)) == 1;
}

/// Reads until the end, an error, or `size` bytes.
[[nodiscard]] inline std::string ReadUpTo(int descriptor, std::size_t size) {
  std::string text;
  std::array<char, 65536> buffer{};
  while (text.size() < size && WaitFor(descriptor, POLLIN)) {
    const auto count =
        ::recv(descriptor, buffer.data(), std::min(buffer.size(), size - text.size()), 0);
    if (count <= 0) break;
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return text;
}

/// Reads until the end or an error.
[[nodiscard]] inline std::string ReadToEnd(int descriptor) {
  return ReadUpTo(descriptor, std::string::npos);
}

/// Whether the other side has ended the stream and everything before that has been read.
[[nodiscard]] inline bool IsAtEnd(int descriptor) {
  char byte = 0;
  return WaitFor(descriptor, POLLIN) && ::recv(descriptor, &byte, 1, MSG_PEEK) <= 0;
}

/// Writes all of `bytes`. Returns false when the other side takes no more.
[[nodiscard]] inline bool SendAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = ::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

/// Listens on a free port of 127.0.0.1.
class LoopbackPeer {
 public:
  /// Throws std::system_error when it cannot.
  LoopbackPeer() : listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener.Get(), generic, size) != 0 || ::listen(listener.Get(), 64) != 0 ||
        ::getsockname(listener.Get(), generic, &size) != 0) {
      throw std::system_error(errno, std::generic_category(), "LoopbackPeer");
    }
  }

  [[nodiscard]] std::uint16_t Port() const { return ntohs(address.sin_port); }

  /// The next connection. Throws std::runtime_error when none comes in time.
  [[nodiscard]] support::UniqueFd Accept() const {
    if (!WaitFor(listener.Get(), POLLIN)) throw std::runtime_error("nobody connects");
    return support::UniqueFd(::accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  }

  /// Listens no more: connecting is refused.
  void Close() { listener = support::UniqueFd(); }

 private:
  support::UniqueFd listener;
  sockaddr_in address{};
};

}  // namespace tests

#endif
