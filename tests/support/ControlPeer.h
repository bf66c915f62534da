/// A client of the control socket, by other code than the tool's. Every wait ends at kDeadline.
/// Belongs to one thread at a time.
#ifndef TESTS_SUPPORT_CONTROLPEER_H
#define TESTS_SUPPORT_CONTROLPEER_H

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <string>
#include <utility>

#include "support/UniqueFd.h"
#include "tests/support/LoopbackPeer.h"

namespace tests {

/// One connection.
class ControlPeer {
 public:
  /// Connects to the socket at `path`, if somebody listens there.
  explicit ControlPeer(const std::string& path)
      : socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    error = ::connect(socket.Get(), generic, sizeof address) == 0 ? 0 : errno;
  }

  /// Takes over a connection.
  explicit ControlPeer(support::UniqueFd connected) : socket(std::move(connected)) {}

  /// 0, or why it could not connect.
  [[nodiscard]] int ConnectError() const { return error; }
  [[nodiscard]] int Descriptor() const { return socket.Get(); }

  /// Sends a line, and says whether all of it was taken.
  bool Send(const std::string& line) const { return SendAll(socket.Get(), line + "\n"); }

  /// The next line without its end; what came before the end of the connection when that is sooner.
  [[nodiscard]] std::string ReadLine() const {
    std::string line;
    for (char byte = 0; WaitFor(socket.Get(), POLLIN) && ::recv(socket.Get(), &byte, 1, 0) == 1;) {
      if (byte == '\n') return line;
      line += byte;
    }
    return line;
  }

  [[nodiscard]] std::string Ask(const std::string& line) const {
    return Send(line) ? ReadLine() : "not sent";
  }

  void Close() { socket = support::UniqueFd(); }

 private:
  support::UniqueFd socket;
  int error = 0;
};

}  // namespace tests

#endif
