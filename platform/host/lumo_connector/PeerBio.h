/// The TLS library's way to a socket. The library's own would use write(2), which raises SIGPIPE on
/// the caller's thread when the peer has gone. For TlsStream.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_PEERBIO_H
#define PLATFORM_HOST_LUMO_CONNECTOR_PEERBIO_H

#include <cstddef>

struct bio_st;

namespace platform_host {

/// Bytes that one operation of the library reads, to within its read-ahead. Above a full relay
/// chunk in records, so that it only cuts short what moves nothing.
inline constexpr std::size_t kReadAllowance = std::size_t{256} * 1024;

/// The socket, and what its last operation that moved nothing came to.
struct PeerBioState {
  int descriptor;
  int error = 0;       ///< errno; 0: none
  bool ended = false;  ///< the peer has ended its side

  /// Bytes that may still be read; none left looks as if nothing had come. Whoever calls the
  /// library sets it before: inside one call the library passes over any number of messages without
  /// content (HelloRequest, RFC 5246 section 7.4.1.1; NewSessionTicket), and a peer that sends them
  /// without a pause would keep it there for ever.
  std::size_t allowance = kReadAllowance;
};

/// A new BIO over `state`, which outlives it; the caller's to free. Never waits. Throws
/// std::bad_alloc.
[[nodiscard]] bio_st* NewPeerBio(PeerBioState& state);

}  // namespace platform_host

#endif
