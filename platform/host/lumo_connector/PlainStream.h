/// A stream to a peer without TLS. For Exchanges and Relay.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_PLAINSTREAM_H
#define PLATFORM_HOST_LUMO_CONNECTOR_PLAINSTREAM_H

#include "platform/host/lumo_connector/PeerStream.h"
#include "support/UniqueFd.h"

namespace platform_host {

/// What is written goes to the socket as it is.
class PlainStream : public PeerStream {
 public:
  /// `peer` is a connected socket.
  explicit PlainStream(support::UniqueFd peer);

  [[nodiscard]] StreamStep Read(char* buffer, std::size_t size) override;
  [[nodiscard]] StreamStep Write(const char* bytes, std::size_t size) override;
  void EndWriting() override;
  [[nodiscard]] bool HoldsBytes() const override { return false; }
  [[nodiscard]] int Descriptor() const override { return socket.Get(); }

 private:
  const support::UniqueFd socket;
};

}  // namespace platform_host

#endif
