#include "platform/host/lumo_connector/BrokerTls.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <new>
#include <optional>
#include <utility>

#include "support/FileContents.h"

namespace lumo_connector {

using platform_host::BrokerConfig;
using platform_host::Error;
using platform_host::Result;

namespace {

using Bio = std::unique_ptr<BIO, decltype(&::BIO_free)>;
using Certificate = std::unique_ptr<X509, decltype(&::X509_free)>;

/// The oldest reason that OpenSSL keeps for this thread, in words; forgets them all.
std::string TakeOpenSslReason() {
  const unsigned long code = ::ERR_get_error();
  ::ERR_clear_error();
  const char* const reason = ::ERR_reason_error_string(code);
  return reason == nullptr ? "no reason given" : reason;
}

/// For encrypted keys: nobody is there to be asked for a password.
int NoPassword(char*, int, int, void*) {
  return 0;
}

std::optional<Error> LoadAuthorities(SSL_CTX& context, const std::string& path) {
  std::string text;
  const int error = support::ReadFile(path, BrokerTls::kCaFileLimit, text);
  if (error != 0) return Error::OfErrno(error).WithContext(path);
  const Bio bytes(::BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), ::BIO_free);
  std::size_t count = 0;
  for (;; ++count) {
    const Certificate certificate(::PEM_read_bio_X509(bytes.get(), nullptr, NoPassword, nullptr),
                                  ::X509_free);
    if (certificate == nullptr) break;
    if (::X509_STORE_add_cert(::SSL_CTX_get_cert_store(&context), certificate.get()) != 1) {
      return Error(TakeOpenSslReason()).WithContext(path);
    }
  }
  const bool atEnd = ERR_GET_REASON(::ERR_peek_last_error()) == PEM_R_NO_START_LINE;
  const std::string reason = TakeOpenSslReason();
  if (!atEnd) return Error(reason).WithContext(path);
  if (count == 0) return Error("holds no certificate").WithContext(path);
  return std::nullopt;
}

std::optional<Error> LoadOwnCertificate(SSL_CTX& context, const BrokerConfig& config) {
  if (config.certFile.empty()) return std::nullopt;
  ::SSL_CTX_set_default_passwd_cb(&context, NoPassword);
  if (::SSL_CTX_use_certificate_chain_file(&context, config.certFile.c_str()) != 1) {
    return Error(TakeOpenSslReason()).WithContext(config.certFile);
  }
  if (::SSL_CTX_use_PrivateKey_file(&context, config.keyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
    return Error(TakeOpenSslReason()).WithContext(config.keyFile);
  }
  return std::nullopt;
}

/// Expects `host` in the broker's certificate: an address as an address, a name as a name of the
/// subjectAltName (RFC 6125 section 6.4), wildcards for whole labels only.
bool ExpectHost(SSL_CTX& context, const std::string& host) {
  X509_VERIFY_PARAM* const parameters = ::SSL_CTX_get0_param(&context);
  if (::X509_VERIFY_PARAM_set1_ip_asc(parameters, host.c_str()) == 1) return true;
  ::ERR_clear_error();
  ::X509_VERIFY_PARAM_set_hostflags(
      parameters, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
  return ::X509_VERIFY_PARAM_set1_host(parameters, host.data(), host.size()) == 1;
}

}  // namespace

void BrokerTls::FreeContext::operator()(ssl_ctx_st* ended) const {
  ::SSL_CTX_free(ended);
}

/// OpenSSL's way to tell why a chain is refused.
class BrokerTls::Verification {
 public:
  static void Begin(BrokerTls& tls) {
    SSL_CTX_set_app_data(tls.context.get(), &tls);
    ::SSL_CTX_set_verify(tls.context.get(), SSL_VERIFY_PEER, Judge);
  }

 private:
  /// Keeps the first reason and changes no verdict.
  static int Judge(int verdict, X509_STORE_CTX* chain) noexcept {
    if (verdict == 1) return verdict;
    const auto* const connection = static_cast<SSL*>(
        ::X509_STORE_CTX_get_ex_data(chain, ::SSL_get_ex_data_X509_STORE_CTX_idx()));
    auto* const tls = static_cast<BrokerTls*>(SSL_CTX_get_app_data(::SSL_get_SSL_CTX(connection)));
    try {
      if (tls->refusal.empty()) {
        tls->refusal = ::X509_verify_cert_error_string(::X509_STORE_CTX_get_error(chain));
      }
    } catch (const std::bad_alloc&) {
      // The verdict stands without a reason.
    }
    return verdict;
  }
};

Result<std::unique_ptr<BrokerTls>> BrokerTls::Make(const BrokerConfig& config) {
  std::unique_ptr<BrokerTls> tls(new BrokerTls);
  tls->context.reset(::SSL_CTX_new(::TLS_client_method()));
  if (tls->context == nullptr) return Error(TakeOpenSslReason()).WithContext("TLS");
  SSL_CTX& context = *tls->context;
  if (SSL_CTX_set_min_proto_version(&context, TLS1_2_VERSION) != 1 ||
      !ExpectHost(context, config.host)) {
    return Error(TakeOpenSslReason()).WithContext("TLS");
  }
  if (const auto error = LoadAuthorities(context, config.caFile)) return *error;
  if (const auto error = LoadOwnCertificate(context, config)) return *error;
  Verification::Begin(*tls);
  return tls;
}

}  // namespace lumo_connector
