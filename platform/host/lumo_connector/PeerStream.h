/// Bytes to and from a peer, plain or through TLS, without ever waiting. For Exchanges, which opens
/// one, and Relay, which then moves its bytes: each object belongs to one thread at a time.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_PEERSTREAM_H
#define PLATFORM_HOST_LUMO_CONNECTOR_PEERSTREAM_H

#include <cstddef>
#include <string>

namespace platform_host {

/// What one operation of a stream came to.
struct StreamStep {
  enum class Outcome {
    kMoved,    ///< `bytes` bytes, at least one; `events` may say what more needs
    kWait,     ///< nothing yet: again when the descriptor is ready for `events`
    kEnd,      ///< the peer has said all it has to say
    kBroken,   ///< the connection is gone, `reason` says how; nothing more goes this way
    kRefused,  ///< as kBroken, and a person has to know the reason
  };
  Outcome outcome;
  std::size_t bytes = 0;
  short events = 0;    ///< of poll
  std::string reason;  ///< in words, without a full stop
};

/// A connection to a peer. Closed by the destructor, which says goodbye where the protocol wants
/// it, without waiting. No operation raises SIGPIPE or throws anything other than std::bad_alloc.
class PeerStream {
 public:
  virtual ~PeerStream() = default;

  /// Reads up to `size` bytes into `buffer`. REQUIRES: `size` is not 0.
  [[nodiscard]] virtual StreamStep Read(char* buffer, std::size_t size) = 0;

  /// Writes up to `size` bytes. After kWait the next call offers the same bytes. Never kEnd.
  /// REQUIRES: `size` is not 0.
  [[nodiscard]] virtual StreamStep Write(const char* bytes, std::size_t size) = 0;

  /// Tells the peer that no more will be written. A peer that cannot be told finds out.
  virtual void EndWriting() = 0;

  /// Whether Read has bytes although the descriptor may not be ready.
  [[nodiscard]] virtual bool HoldsBytes() const = 0;

  /// To wait on; open as long as this object.
  [[nodiscard]] virtual int Descriptor() const = 0;
};

}  // namespace platform_host

#endif
