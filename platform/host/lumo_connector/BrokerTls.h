/// TLS towards the broker: whom to trust, which name to expect, and why a broker was not believed.
/// Belongs to one thread.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_BROKERTLS_H
#define PLATFORM_HOST_LUMO_CONNECTOR_BROKERTLS_H

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/host/config/HostConfig.h"
#include "platform/host/config/Result.h"
#include "platform/host/lumo_connector/TlsContext.h"

struct ssl_st;

namespace lumo_connector {

/// TLS 1.2 or later, the broker's chain and name (RFC 6125) always verified, against the
/// configured file and nothing else.
class BrokerTls {
 public:
  /// Reads the files that `config` names. REQUIRES: it names a CA file. Fails with what TlsContext
  /// says when one cannot be used; a CA file without a certificate cannot. Fails for a host name
  /// that stands for others. Blocks for the reading only.
  static platform_host::Result<std::unique_ptr<BrokerTls>> Make(
      const platform_host::BrokerConfig& config);

  BrokerTls(const BrokerTls&) = delete;
  BrokerTls& operator=(const BrokerTls&) = delete;
  ~BrokerTls() = default;

  /// Reads the files anew, for the next connection; the context stays the same object, as its user
  /// may not be able to change it. Fails as Make does, and then the next connection must not be
  /// made.
  [[nodiscard]] std::optional<platform_host::Error> Reload(
      const platform_host::BrokerConfig& config);

  /// For connections to the broker, which use this object, too.
  [[nodiscard]] ssl_ctx_st* Context() const { return context.Get().get(); }

  /// Why the broker was not believed since the last Reload, in words; empty when it was.
  [[nodiscard]] std::string Refusal() const;

 private:
  class Verification;

  explicit BrokerTls(platform_host::TlsContext loaded) : context(std::move(loaded)) {}

  /// The library's own judgement of what is secure enough.
  using Permits = int (*)(const ssl_st*, const ssl_ctx_st*, int, int, int, void*, void*);

  platform_host::TlsContext context;
  Permits permits = nullptr;
  int verdict = 0;  ///< the library's number of the first fault in the broker's chain; 0: none
};

}  // namespace lumo_connector

#endif
