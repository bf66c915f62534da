/// What one exchange needs before it can speak TLS: the certificates that the peer is verified
/// against, and the unit's own. For Exchanges and TlsStream. Each object belongs to one thread at a
/// time.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_TLSCONTEXT_H
#define PLATFORM_HOST_LUMO_CONNECTOR_TLSCONTEXT_H

#include <cstddef>
#include <memory>
#include <string>

#include "platform/host/config/HostConfig.h"
#include "platform/host/lumo_connector/ConnectFailure.h"

struct ssl_ctx_st;

namespace platform_host {

/// Largest file of certificates that is read: the trust store's own limit on a bundle.
inline constexpr std::size_t kMaxAnchorBytes = std::size_t{64} * 1024 * 1024;

/// Largest file with the unit's own certificate and chain, and largest file with its key.
inline constexpr std::size_t kMaxIdentityBytes = std::size_t{1024} * 1024;

/// Settings of TLS 1.2 and 1.3 with verification always on.
class TlsContext {
 public:
  /// Reads the files that `service` names, a bundle from the layer of `config`'s trust store that
  /// no update touches. Each certificate of the file is an anchor, also one that is no root; what
  /// cannot be read among them is passed over. Fails with an errno and the file's path when a file
  /// cannot be read, and with EINVAL when it does not hold what it should: a peer is never trusted
  /// for want of certificates, nor for those of the system. Blocks for the reading.
  [[nodiscard]] static Connected<TlsContext> Load(const HostConfig& config,
                                                  const ServiceConfig& service);

  /// The library's own object; lives as long as a copy of it.
  [[nodiscard]] const std::shared_ptr<ssl_ctx_st>& Get() const { return context; }

  /// The file that the peer is verified against, for error texts.
  [[nodiscard]] const std::string& AnchorFile() const { return anchorFile; }

 private:
  TlsContext(std::shared_ptr<ssl_ctx_st> settings, std::string anchors);

  std::shared_ptr<ssl_ctx_st> context;
  std::string anchorFile;
};

}  // namespace platform_host

#endif
