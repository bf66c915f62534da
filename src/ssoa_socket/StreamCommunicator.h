/// A connected stream socket, read and written with a log line for each step. Made by
/// UnixStreamClientConnector for the TLS alert client. One thread reads; any other may disconnect
/// it at any time.
#ifndef SSOA_SOCKET_STREAMCOMMUNICATOR_H
#define SSOA_SOCKET_STREAMCOMMUNICATOR_H

#include <memory>
#include <string>
#include <vector>

#include "ssoa_socket/StreamCommunicatorIf.h"
#include "support/Mutex.h"
#include "support/UniqueFd.h"

namespace ssoa_socket {

/// Every operation that waits holds a share of the socket: Disconnect ends the wait at once, and
/// the descriptor is closed when the last of them has left it. So no operation ever meets the
/// number again as another file. Signals end nothing; a vanished peer raises none.
class StreamCommunicator final : public StreamCommunicatorIf {
 public:
  /// Reads wait at most `readTimeoutMs` for each piece of what they are asked for; -1: without
  /// limit. Every line begins with `name`.
  StreamCommunicator(support::UniqueFd connectedSocket, int readTimeoutMs, std::string name);

  /// Disconnects, unless the descriptor was given away.
  ~StreamCommunicator() override;
  StreamCommunicator(const StreamCommunicator&) = delete;
  StreamCommunicator& operator=(const StreamCommunicator&) = delete;

  /// A descriptor that was given away is shut down too, and left for its new owner to close.
  void Disconnect() override EXCLUDES(mutex);
  [[nodiscard]] std::ptrdiff_t Read(unsigned char* buffer, unsigned long length) const override
      EXCLUDES(mutex);
  [[nodiscard]] std::vector<unsigned char> ReadNBytes(unsigned long count) const override
      EXCLUDES(mutex);
  [[nodiscard]] std::ptrdiff_t Write(const unsigned char* data, unsigned long length) const override
      EXCLUDES(mutex);
  [[nodiscard]] std::ptrdiff_t Write(const std::vector<unsigned char>& data) const override
      EXCLUDES(mutex);
  [[nodiscard]] int GetSocketHandle() override EXCLUDES(mutex);

  /// The new owner keeps it open as long as this object is connected.
  [[nodiscard]] int TakeOwnershipOfSocketHandle() override EXCLUDES(mutex);
  [[nodiscard]] int Poll(int timeoutMs) override EXCLUDES(mutex);

  /// Fails too for a socket that is no Unix one.
  [[nodiscard]] int GetProcessCredentials(ucred* credentials) override EXCLUDES(mutex);
  [[nodiscard]] bool IsOpen() override EXCLUDES(mutex);
  [[nodiscard]] bool DropTls() override;
  [[nodiscard]] std::string GetAlpnProtocol() override;

 private:
  struct Connection;

  /// The connection to work on, kept open by the returned share; empty once disconnected.
  [[nodiscard]] std::shared_ptr<Connection> Current() const EXCLUDES(mutex);

  /// Waits for the next piece of `bytes` and stores it from `received` on. Returns its size, or 0
  /// when none can come any more.
  [[nodiscard]] std::size_t ReceivePiece(const Connection& open, std::vector<unsigned char>& bytes,
                                         std::size_t received) const;

  // Constant after construction.
  const int readTimeout;  ///< milliseconds
  const std::string logName;

  mutable support::Mutex mutex;
  std::shared_ptr<Connection> connection GUARDED_BY(mutex);
};

}  // namespace ssoa_socket

#endif
