#include "platform/host/lumo_connector/TlsContext.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <cerrno>
#include <limits>
#include <new>
#include <utility>

#include "platform/host/files/FileName.h"
#include "support/FileContents.h"

namespace platform_host {
namespace {

/// Bytes read from the peer's socket at once: several records.
constexpr std::size_t kReadAhead = 131072;

static_assert(kMaxAnchorBytes <= std::numeric_limits<int>::max(), "BIO_new_mem_buf takes an int");

struct FreeBio {
  void operator()(BIO* bio) const { ::BIO_free(bio); }
};
struct FreeCertificate {
  void operator()(X509* certificate) const { ::X509_free(certificate); }
};
struct FreeAnchor {
  void operator()(X509_OBJECT* anchor) const { ::X509_OBJECT_free(anchor); }
};
struct FreeKey {
  void operator()(EVP_PKEY* key) const { ::EVP_PKEY_free(key); }
};
using Bio = std::unique_ptr<BIO, FreeBio>;
using Certificate = std::unique_ptr<X509, FreeCertificate>;
using Anchor = std::unique_ptr<X509_OBJECT, FreeAnchor>;
using Key = std::unique_ptr<EVP_PKEY, FreeKey>;

ConnectFailure FileFailure(const std::string& path, int error) {
  return {error, "cannot read " + path + ": " + support::ErrorText(error)};
}

/// Reads `text` in place: it outlives the result.
Bio Reader(const std::string& text) {
  Bio bio(::BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  if (!bio) throw std::bad_alloc();
  return bio;
}

/// A key with a passphrase is one without a key: nobody is there to be asked.
int NoPassphrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*data*/) {
  return -1;
}

Certificate NextCertificate(BIO* text) {
  return Certificate(::PEM_read_bio_X509(text, nullptr, NoPassphrase, nullptr));
}

/// Whether the text had nothing more to read, rather than something unreadable.
bool IsAtEnd() {
  return ERR_GET_REASON(::ERR_peek_last_error()) == PEM_R_NO_START_LINE;
}

/// Behind the others, unsorted: X509_STORE_add_cert sorts them all again for each, which takes
/// minutes for thousands. The first search sorts them once.
void AddAnchor(X509* certificate, X509_STORE* store) {
  Anchor anchor(::X509_OBJECT_new());
  if (!anchor || ::X509_OBJECT_set1_X509(anchor.get(), certificate) != 1 ||
      sk_X509_OBJECT_push(::X509_STORE_get0_objects(store), anchor.get()) == 0) {
    throw std::bad_alloc();
  }
  static_cast<void>(anchor.release());
}

std::size_t AddAnchors(const std::string& text, X509_STORE* store) {
  const Bio bio = Reader(text);
  std::size_t count = 0;
  for (;;) {
    ::ERR_clear_error();
    const Certificate certificate = NextCertificate(bio.get());
    if (certificate) {
      AddAnchor(certificate.get(), store);
      ++count;
    } else if (IsAtEnd()) {
      return count;
    }
  }
}

ConnectOutcome TakeAnchors(const std::string& path, SSL_CTX* context) {
  std::string text;
  const int error = support::ReadFile(path, kMaxAnchorBytes, text);
  if (error != 0) return FileFailure(path, error);
  if (AddAnchors(text, ::SSL_CTX_get_cert_store(context)) == 0) {
    return ConnectFailure{EINVAL, "no certificate in " + path};
  }
  return std::nullopt;
}

/// The unit's certificate, then those of the CAs between it and its root.
ConnectOutcome TakeCertificate(const std::string& path, SSL_CTX* context) {
  std::string text;
  const int error = support::ReadFile(path, kMaxIdentityBytes, text);
  if (error != 0) return FileFailure(path, error);
  const Bio bio = Reader(text);
  Certificate certificate = NextCertificate(bio.get());
  if (!certificate || ::SSL_CTX_use_certificate(context, certificate.get()) != 1) {
    return ConnectFailure{EINVAL, "no usable certificate in " + path};
  }
  while ((certificate = NextCertificate(bio.get()))) {
    if (::SSL_CTX_add1_chain_cert(context, certificate.get()) != 1) {
      return ConnectFailure{EINVAL, "an unusable certificate in " + path};
    }
  }
  return std::nullopt;
}

ConnectOutcome TakeKey(const std::string& path, SSL_CTX* context) {
  std::string text;
  const int error = support::ReadFile(path, kMaxIdentityBytes, text);
  if (error != 0) return FileFailure(path, error);
  const Key key(::PEM_read_bio_PrivateKey(Reader(text).get(), nullptr, NoPassphrase, nullptr));
  ::OPENSSL_cleanse(text.data(), text.size());
  if (!key) return ConnectFailure{EINVAL, "no usable key in " + path};
  if (::SSL_CTX_use_PrivateKey(context, key.get()) != 1) {
    return ConnectFailure{EINVAL, "the key in " + path + " is not that of the certificate"};
  }
  return std::nullopt;
}

ConnectOutcome TakeIdentity(const ServiceConfig& service, SSL_CTX* context) {
  if (service.certFile.empty()) return std::nullopt;
  if (auto failure = TakeCertificate(service.certFile, context)) return failure;
  return TakeKey(service.keyFile, context);
}

std::shared_ptr<SSL_CTX> NewContext() {
  std::shared_ptr<SSL_CTX> context(::SSL_CTX_new(::TLS_client_method()), ::SSL_CTX_free);
  if (!context) throw std::bad_alloc();
  ::SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
  ::SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
  ::SSL_CTX_set_mode(context.get(),
                     SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  ::SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
  ::SSL_CTX_set_read_ahead(context.get(), 1);
  ::SSL_CTX_set_default_read_buffer_len(context.get(), kReadAhead);
  ::SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
  // Anchors are what the file holds, whether they signed themselves or not (RFC 5280 section 6.1).
  ::X509_VERIFY_PARAM_set_flags(::SSL_CTX_get0_param(context.get()), X509_V_FLAG_PARTIAL_CHAIN);
  return context;
}

std::string AnchorFileOf(const HostConfig& config, const ServiceConfig& service) {
  if (!service.caFile.empty()) return service.caFile;
  return config.trustStoreDirectory + "/factory/" + FileNameOf(service.bundle) + ".pem";
}

}  // namespace

TlsContext::TlsContext(std::shared_ptr<ssl_ctx_st> settings, std::string anchors)
    : context(std::move(settings)), anchorFile(std::move(anchors)) {}

Connected<TlsContext> TlsContext::Load(const HostConfig& config, const ServiceConfig& service) {
  TlsContext loaded(NewContext(), AnchorFileOf(config, service));
  if (auto failure = TakeAnchors(loaded.anchorFile, loaded.context.get())) return *failure;
  if (auto failure = TakeIdentity(service, loaded.context.get())) return *failure;
  return loaded;
}

}  // namespace platform_host
