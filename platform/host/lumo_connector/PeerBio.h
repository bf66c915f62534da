/// The TLS library's way to a socket. The library's own would use write(2), which raises SIGPIPE on
/// the caller's thread when the peer has gone. For TlsStream.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_PEERBIO_H
#define PLATFORM_HOST_LUMO_CONNECTOR_PEERBIO_H

struct bio_st;

namespace platform_host {

/// The socket, and what its last operation that moved nothing came to.
struct PeerBioState {
  int descriptor;
  int error = 0;       ///< errno; 0: none
  bool ended = false;  ///< the peer has ended its side
};

/// A new BIO over `state`, which outlives it; the caller's to free. Never waits. Throws
/// std::bad_alloc.
[[nodiscard]] bio_st* NewPeerBio(PeerBioState& state);

}  // namespace platform_host

#endif
