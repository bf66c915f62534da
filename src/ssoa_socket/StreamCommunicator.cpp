#include "ssoa_socket/StreamCommunicator.h"

#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <new>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "ssoa_socket/SocketCloseHelper.h"

namespace ssoa_socket {
namespace {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

/// Repeats a system call that a signal has ended.
template <typename Call>
std::ptrdiff_t Uninterrupted(Call call) {
  std::ptrdiff_t result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

std::ptrdiff_t Receive(int handle, unsigned char* buffer, std::size_t length) {
  return Uninterrupted([&] { return ::recv(handle, buffer, length, MSG_NOSIGNAL); });
}

void LogClosedOn(const char* attempt, const std::string& name) {
  CSCLogging::LogWarning(CSCLogEntry() << name << "Trying to " << attempt << " a closed socket");
}

void LogClosing(const std::string& name, int handle) noexcept {
  try {
    CSCLogging::LogDebug(CSCLogEntry() << name << "Closing socket: " << handle);
  } catch (const std::bad_alloc&) {
    // The line is lost, the socket is not.
  }
}

}  // namespace

/// The socket and what wakes its users; shared by the operations that are under way.
struct StreamCommunicator::Connection {
  Connection(support::UniqueFd connectedSocket, const std::string& name)
      : socket(std::move(connectedSocket)), closeHelper(socket.Get(), name) {}
  ~Connection() {
    if (handleTaken) static_cast<void>(socket.Release());
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  support::UniqueFd socket;
  const SocketCloseHelper closeHelper;
  std::atomic<bool> handleTaken{false};
};

StreamCommunicator::StreamCommunicator(support::UniqueFd connectedSocket, int readTimeoutMs,
                                       std::string name)
    : readTimeout(readTimeoutMs),
      logName(std::move(name)),
      connection(std::make_shared<Connection>(std::move(connectedSocket), logName)) {}

StreamCommunicator::~StreamCommunicator() {
  const std::shared_ptr<Connection> open = Current();
  if (open && !open->handleTaken) Disconnect();
}

void StreamCommunicator::Disconnect() {
  std::shared_ptr<Connection> closing;
  {
    const support::MutexLock lock(mutex);
    closing.swap(connection);
  }
  if (!closing) return;
  LogClosing(logName, closing->socket.Get());
  // Before the shutdown, which wakes a reader too: it would take that for the peer's end.
  closing->closeHelper.SocketClosed();
  ::shutdown(closing->socket.Get(), SHUT_RDWR);
}

std::ptrdiff_t StreamCommunicator::Read(unsigned char* buffer, unsigned long length) const {
  const std::shared_ptr<Connection> open = Current();
  if (!open) {
    LogClosedOn("read from", logName);
    return -1;
  }
  if (length == 0) {
    CSCLogging::LogInfo(CSCLogEntry() << logName << "Invalid buffer size on Read");
    return 0;
  }
  if (open->closeHelper.Poll(-1) <= 0) return -1;
  const std::ptrdiff_t count = Receive(open->socket.Get(), buffer, length);
  CSCLogging::LogVerbose(CSCLogEntry() << logName << "Read " << count << " byte(s)");
  return count;
}

std::vector<unsigned char> StreamCommunicator::ReadNBytes(unsigned long count) const {
  const std::shared_ptr<Connection> open = Current();
  if (!open) {
    LogClosedOn("read from", logName);
    return {};
  }
  std::vector<unsigned char> bytes(count);
  std::size_t received = 0;
  while (received < count) {
    const std::size_t piece = ReceivePiece(*open, bytes, received);
    if (piece == 0) break;
    received += piece;
  }
  bytes.resize(received);
  return bytes;
}

std::size_t StreamCommunicator::ReceivePiece(const Connection& open,
                                             std::vector<unsigned char>& bytes,
                                             std::size_t received) const {
  const int ready = open.closeHelper.Poll(readTimeout);
  if (ready == 0) return 0;
  if (ready < 0) {
    CSCLogging::LogInfo(CSCLogEntry() << logName << "Socket closed");
    return 0;
  }
  const std::ptrdiff_t count =
      Receive(open.socket.Get(), bytes.data() + received, bytes.size() - received);
  if (count > 0) return static_cast<std::size_t>(count);
  if (count == 0) {
    CSCLogging::LogInfo(CSCLogEntry() << logName << "EOF received (socket closed from other end)");
  } else {
    CSCLogging::LogWarning(CSCLogEntry() << logName << "Error in reading socket");
  }
  return 0;
}

std::ptrdiff_t StreamCommunicator::Write(const unsigned char* data, unsigned long length) const {
  const std::shared_ptr<Connection> open = Current();
  if (!open) {
    LogClosedOn("write to", logName);
    return -1;
  }
  const std::ptrdiff_t count =
      Uninterrupted([&] { return ::send(open->socket.Get(), data, length, MSG_NOSIGNAL); });
  CSCLogging::LogVerbose(CSCLogEntry() << logName << "Wrote " << count << " byte(s)");
  return count;
}

std::ptrdiff_t StreamCommunicator::Write(const std::vector<unsigned char>& data) const {
  return Write(data.data(), data.size());
}

int StreamCommunicator::GetSocketHandle() {
  const std::shared_ptr<Connection> open = Current();
  return open ? open->socket.Get() : -1;
}

int StreamCommunicator::TakeOwnershipOfSocketHandle() {
  const std::shared_ptr<Connection> open = Current();
  if (!open) return -1;
  open->handleTaken = true;
  return open->socket.Get();
}

int StreamCommunicator::Poll(int timeoutMs) {
  const std::shared_ptr<Connection> open = Current();
  return open ? open->closeHelper.Poll(timeoutMs) : -1;
}

int StreamCommunicator::GetProcessCredentials(ucred* credentials) {
  const std::shared_ptr<Connection> open = Current();
  if (!open) return -1;
  // Sockets of other families have credentials that name nobody.
  sockaddr_storage local{};
  socklen_t localSize = sizeof local;
  auto* const generic = reinterpret_cast<sockaddr*>(&local);
  if (::getsockname(open->socket.Get(), generic, &localSize) != 0) return -1;
  if (local.ss_family != AF_UNIX) return -1;
  socklen_t size = sizeof *credentials;
  return ::getsockopt(open->socket.Get(), SOL_SOCKET, SO_PEERCRED, credentials, &size);
}

bool StreamCommunicator::IsOpen() {
  return Current() != nullptr;
}

bool StreamCommunicator::DropTls() {
  return true;
}

std::string StreamCommunicator::GetAlpnProtocol() {
  return "";
}

std::shared_ptr<StreamCommunicator::Connection> StreamCommunicator::Current() const {
  const support::MutexLock lock(mutex);
  return connection;
}

}  // namespace ssoa_socket
