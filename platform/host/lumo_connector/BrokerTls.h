/// TLS towards the broker: whom to trust, which name to expect, and why a broker was not believed.
/// The only file of the broker's side that knows OpenSSL. Belongs to one thread.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_BROKERTLS_H
#define PLATFORM_HOST_LUMO_CONNECTOR_BROKERTLS_H

#include <cstddef>
#include <memory>
#include <string>

#include "platform/host/config/HostConfig.h"
#include "platform/host/config/Result.h"

struct ssl_ctx_st;

namespace lumo_connector {

/// TLS 1.2 or later, the broker's chain and name (RFC 6125) always verified, against the
/// configured file and nothing else.
class BrokerTls {
 public:
  /// Largest file of certificates that is read.
  static constexpr std::size_t kCaFileLimit = 1048576;

  /// Reads the files that `config` names. REQUIRES: it names a CA file. Fails with "FILE: reason"
  /// when one cannot be used; a CA file without a certificate cannot. Blocks for the reading only.
  static platform_host::Result<std::unique_ptr<BrokerTls>> Make(
      const platform_host::BrokerConfig& config);

  BrokerTls(const BrokerTls&) = delete;
  BrokerTls& operator=(const BrokerTls&) = delete;
  ~BrokerTls() = default;

  /// An SSL_CTX. Its connections use this object, too.
  [[nodiscard]] ssl_ctx_st* Context() const { return context.get(); }

  /// Why the last broker was not believed, in words; empty when none was refused.
  [[nodiscard]] const std::string& Refusal() const { return refusal; }

 private:
  struct FreeContext {
    void operator()(ssl_ctx_st* ended) const;
  };
  class Verification;

  BrokerTls() = default;

  std::unique_ptr<ssl_ctx_st, FreeContext> context;
  std::string refusal;
};

}  // namespace lumo_connector

#endif
