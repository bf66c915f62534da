/// One connected stream as its user sees it. Implemented by StreamCommunicator and by tests; used
/// by StreamProtocol and the TLS alert client. One thread reads; every operation may be called from
/// any thread.
#ifndef SSOA_SOCKET_STREAMCOMMUNICATORIF_H
#define SSOA_SOCKET_STREAMCOMMUNICATORIF_H

#include <cstddef>
#include <string>
#include <vector>

struct ucred;

namespace ssoa_socket {

/// Nothing is thrown but std::bad_alloc. Counts are of bytes.
class StreamCommunicatorIf {
 public:
  virtual ~StreamCommunicatorIf() = default;

  /// Ends the connection for good, and with it every operation that waits. Again: nothing. Throws
  /// nothing.
  virtual void Disconnect() = 0;

  /// Waits without limit for something to read, or the end. Returns how much of `buffer` was
  /// filled: at least 1, 0 at the end of the stream or for a `length` of 0, or -1 after a failure
  /// or a Disconnect.
  [[nodiscard]] virtual std::ptrdiff_t Read(unsigned char* buffer, unsigned long length) const = 0;

  /// Waits for `count` bytes. Returns fewer when the stream ended, failed or fell silent before, or
  /// was disconnected.
  [[nodiscard]] virtual std::vector<unsigned char> ReadNBytes(unsigned long count) const = 0;

  /// Sends once, and waits for room in the connection; Disconnect ends that. Returns how much was
  /// taken, which may be less than there is, or -1 after a failure or a Disconnect.
  [[nodiscard]] virtual std::ptrdiff_t Write(const unsigned char* data,
                                             unsigned long length) const = 0;
  [[nodiscard]] virtual std::ptrdiff_t Write(const std::vector<unsigned char>& data) const = 0;

  /// The descriptor, which stays this object's; -1 once disconnected.
  [[nodiscard]] virtual int GetSocketHandle() = 0;

  /// The descriptor, the caller's to close from now on; -1 once disconnected.
  [[nodiscard]] virtual int TakeOwnershipOfSocketHandle() = 0;

  /// Waits at most `timeoutMs` milliseconds (-1: without limit) for something to read. Returns 1
  /// when there is something, or the end of the stream; 0 after the timeout; a negative number
  /// after a failure or a Disconnect.
  [[nodiscard]] virtual int Poll(int timeoutMs) = 0;

  /// Tells who is at the other end. Returns 0, or -1 when that cannot be told: `credentials` is
  /// unspecified then.
  [[nodiscard]] virtual int GetProcessCredentials(ucred* credentials) = 0;

  /// Whether nobody has disconnected it yet. The other side may have gone.
  [[nodiscard]] virtual bool IsOpen() = 0;

  /// Goes on without TLS. Returns true when it can, as every stream can that never had any.
  [[nodiscard]] virtual bool DropTls() = 0;

  /// What TLS has negotiated (RFC 7301); empty for a stream without TLS.
  [[nodiscard]] virtual std::string GetAlpnProtocol() = 0;
};

}  // namespace ssoa_socket

#endif
