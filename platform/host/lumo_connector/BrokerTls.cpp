#include "platform/host/lumo_connector/BrokerTls.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <variant>

#include "platform/host/lumo_connector/TlsReason.h"

namespace lumo_connector {

using platform_host::BrokerConfig;
using platform_host::ConnectFailure;
using platform_host::Error;
using platform_host::Result;
using platform_host::ServiceConfig;
using platform_host::TlsContext;

namespace {

/// Expects `host` in the broker's certificate: an address as an address, a name as a name of the
/// subjectAltName (RFC 6125 section 6.4), wildcards for whole labels only. To the library an empty
/// name stands for every name, and one that begins with a dot for every name that ends with it.
bool ExpectHost(SSL_CTX* context, const std::string& host) {
  if (host.empty() || host.front() == '.') return false;
  X509_VERIFY_PARAM* const parameters = ::SSL_CTX_get0_param(context);
  if (::X509_VERIFY_PARAM_set1_ip_asc(parameters, host.c_str()) == 1) return true;
  ::ERR_clear_error();
  ::X509_VERIFY_PARAM_set_hostflags(
      parameters, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
  return ::X509_VERIFY_PARAM_set1_host(parameters, host.data(), host.size()) == 1;
}

Result<TlsContext> Load(const BrokerConfig& config) {
  ServiceConfig files;
  files.caFile = config.caFile;
  files.certFile = config.certFile;
  files.keyFile = config.keyFile;
  auto loaded = TlsContext::Load({}, files);
  if (const auto* const failure = std::get_if<ConnectFailure>(&loaded))
    return Error(failure->reason);
  return std::get<TlsContext>(std::move(loaded));
}

/// Gives `to` the anchors and the own certificate of `from`. False without memory.
bool Take(SSL_CTX& from, SSL_CTX& to) {
  ::SSL_CTX_set1_cert_store(&to, ::SSL_CTX_get_cert_store(&from));
  X509* const certificate = ::SSL_CTX_get0_certificate(&from);
  if (certificate == nullptr) return true;
  STACK_OF(X509)* chain = nullptr;
  SSL_CTX_get0_chain_certs(&from, &chain);
  return ::SSL_CTX_use_cert_and_key(&to, certificate, ::SSL_CTX_get0_privatekey(&from), chain,
                                    /*override=*/1) == 1;
}

}  // namespace

/// What OpenSSL asks and tells about a broker's certificates.
class BrokerTls::Verification {
 public:
  /// Offers no cipher that needs no certificate, whatever the system's settings for the library
  /// allow: a broker without one would count as verified, and be sent the credentials.
  static void DemandCertificate(BrokerTls& tls) {
    tls.permits = ::SSL_CTX_get_security_callback(tls.Context());
    ::SSL_CTX_set0_security_ex_data(tls.Context(), &tls);
    ::SSL_CTX_set_security_callback(tls.Context(), Permits);
  }

  static void Watch(BrokerTls& tls) {
    SSL_CTX_set_app_data(tls.Context(), &tls);
    ::SSL_CTX_set_verify(tls.Context(), SSL_VERIFY_PEER, Note);
  }

 private:
  static int Permits(const SSL* connection, const SSL_CTX* context, int operation, int bits,
                     int number, void* subject, void* tls) noexcept {
    const bool isAboutCipher = operation == SSL_SECOP_CIPHER_SUPPORTED ||
                               operation == SSL_SECOP_CIPHER_SHARED ||
                               operation == SSL_SECOP_CIPHER_CHECK;
    if (isAboutCipher &&
        ::SSL_CIPHER_get_auth_nid(static_cast<const SSL_CIPHER*>(subject)) == NID_auth_null) {
      return 0;
    }
    return static_cast<const BrokerTls*>(tls)->permits(connection, context, operation, bits, number,
                                                       subject, nullptr);
  }

  /// Keeps the number of the first fault and changes no verdict.
  static int Note(int isGood, X509_STORE_CTX* chain) noexcept {
    if (isGood == 1) return isGood;
    const auto* const connection = static_cast<SSL*>(
        ::X509_STORE_CTX_get_ex_data(chain, ::SSL_get_ex_data_X509_STORE_CTX_idx()));
    auto* const tls = static_cast<BrokerTls*>(SSL_CTX_get_app_data(::SSL_get_SSL_CTX(connection)));
    if (tls->verdict == 0) tls->verdict = ::X509_STORE_CTX_get_error(chain);
    return isGood;
  }
};

Result<std::unique_ptr<BrokerTls>> BrokerTls::Make(const BrokerConfig& config) {
  auto loaded = Load(config);
  if (!loaded.Ok()) return loaded.Failure();
  std::unique_ptr<BrokerTls> tls(new BrokerTls(std::move(loaded).Take()));
  // What TLS has read ahead, poll does not see.
  ::SSL_CTX_set_read_ahead(tls->Context(), 0);
  if (!ExpectHost(tls->Context(), config.host))
    return Error("the broker's name cannot be verified");
  Verification::DemandCertificate(*tls);
  Verification::Watch(*tls);
  return tls;
}

std::optional<Error> BrokerTls::Reload(const BrokerConfig& config) {
  verdict = 0;
  const auto loaded = Load(config);
  if (!loaded.Ok()) return loaded.Failure();
  if (!Take(*loaded.Value().Get(), *Context())) return Error("TLS: out of memory");
  return std::nullopt;
}

std::string BrokerTls::Refusal() const {
  return verdict == 0 ? "" : platform_host::VerificationReason(verdict, context.AnchorFile());
}

}  // namespace lumo_connector
