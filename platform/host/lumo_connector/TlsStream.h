/// A stream to a peer through TLS. For Exchanges, which performs the handshake, and Relay.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_TLSSTREAM_H
#define PLATFORM_HOST_LUMO_CONNECTOR_TLSSTREAM_H

#include <memory>
#include <optional>
#include <string>

#include "platform/host/lumo_connector/ConnectFailure.h"
#include "platform/host/lumo_connector/ConnectWait.h"
#include "platform/host/lumo_connector/PeerBio.h"
#include "platform/host/lumo_connector/PeerStream.h"
#include "platform/host/lumo_connector/TlsContext.h"
#include "support/UniqueFd.h"

struct ssl_st;

namespace platform_host {

/// TLS 1.2 or 1.3 with a peer whose chain and name are verified. A peer that ends the connection
/// without a goodbye has ended it all the same: HTTP tells what is missing.
class TlsStream : public PeerStream {
 public:
  /// Connects to the peer behind `peer`, a connected non-blocking socket, and verifies that it is
  /// `host`, a name or an address (RFC 6125 section 6; a wildcard stands for a whole label). Fails
  /// as `wait` says, with EACCES when one side refuses the other's certificate, with EPROTO for
  /// what is no TLS that both can speak, or with the socket's errno. Blocks within `wait`.
  [[nodiscard]] static Connected<std::unique_ptr<PeerStream>> Open(support::UniqueFd peer,
                                                                   const std::string& host,
                                                                   const TlsContext& context,
                                                                   const ConnectWait& wait);

  ~TlsStream() override;
  TlsStream(const TlsStream&) = delete;
  TlsStream& operator=(const TlsStream&) = delete;

  [[nodiscard]] StreamStep Read(char* buffer, std::size_t size) override;
  [[nodiscard]] StreamStep Write(const char* bytes, std::size_t size) override;
  void EndWriting() override;
  [[nodiscard]] bool HoldsBytes() const override { return holdsBytes; }
  [[nodiscard]] int Descriptor() const override { return state.descriptor; }

 private:
  struct FreeSession {
    void operator()(ssl_st* owned) const;
  };

  TlsStream(support::UniqueFd peer, const TlsContext& context);

  [[nodiscard]] ConnectOutcome ExpectPeer(const std::string& host);
  [[nodiscard]] ConnectOutcome Handshake(const std::string& anchorFile, const ConnectWait& wait);

  /// What the library's operation that returned `result`, a failure, came to.
  [[nodiscard]] StreamStep StepAfter(int result);

  const support::UniqueFd socket;
  PeerBioState state;
  std::unique_ptr<ssl_st, FreeSession> session;
  bool isUsable = false;           ///< between the handshake and the first failure
  bool holdsBytes = false;         ///< the last Read filled its buffer
  std::optional<StreamStep> last;  ///< the end or failure that followed bytes of one Read
};

}  // namespace platform_host

#endif
