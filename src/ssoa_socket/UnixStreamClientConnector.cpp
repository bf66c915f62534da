#include "ssoa_socket/UnixStreamClientConnector.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "ssoa_socket/StreamCommunicator.h"
#include "support/UniqueFd.h"

namespace ssoa_socket {
namespace {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

/// Connects `socket`, a non-blocking one, and makes it blocking. Returns 0 or -1.
int Connect(const support::UniqueFd& socket, const std::string& path) {
  sockaddr_un address{};
  static_assert(sizeof address.sun_path == UnixStreamClientConnector::kLongestPath + 1);
  address.sun_family = AF_UNIX;
  ::strncpy(address.sun_path, path.c_str(), UnixStreamClientConnector::kLongestPath);
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  const int result = ::connect(socket.Get(), generic, sizeof address);
  return result == 0 ? ::fcntl(socket.Get(), F_SETFL, 0) : result;
}

}  // namespace

UnixStreamClientConnector::UnixStreamClientConnector(std::string socketPath, int readTimeoutMs,
                                                     const std::string& clientName)
    : logName(clientName + "Connector: "),
      name(clientName),
      readTimeout(readTimeoutMs),
      path(std::move(socketPath)) {
  CSCLogging::LogDebug(CSCLogEntry() << logName << "New connector: " << path);
}

std::shared_ptr<StreamCommunicatorIf> UnixStreamClientConnector::EstablishConnection() {
  // A blocking connect waits for ever while the server's backlog is full.
  support::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket.IsOpen()) {
    CSCLogging::LogError(CSCLogEntry() << logName << "Socket creation failed.");
    return nullptr;
  }
  if (const int result = Connect(socket, path); result != 0) {
    CSCLogging::LogError(CSCLogEntry() << logName << "Connection failed, code:  " << result);
    return nullptr;
  }
  CSCLogging::LogDebug(CSCLogEntry() << logName << "Connection opened. Socket: " << socket.Get());
  return std::make_shared<StreamCommunicator>(std::move(socket), readTimeout,
                                              name + "Communicator: ");
}

}  // namespace ssoa_socket
