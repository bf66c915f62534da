/// One HTTP request at a time to an operation of the backend. Implemented by HttpConnection and by
/// tests; held by those who exchange something with the backend.
#ifndef CSA_COMMON_HTTPCONNECTIONIF_H
#define CSA_COMMON_HTTPCONNECTIONIF_H

#include <string>

namespace csa_common {

class HttpProtocol;

/// Results of the request operations.
inline constexpr unsigned int kHttpSuccess = 0;         ///< the response has been parsed
inline constexpr unsigned int kHttpConnectFailed = 1;   ///< no stream to the server
inline constexpr unsigned int kHttpBadUrl = 2;          ///< the URL cannot be used
inline constexpr unsigned int kHttpReceiveFailed = 3;   ///< waiting for the response failed
inline constexpr unsigned int kHttpNotSupported = 255;  ///< this connection does not do that

/// `service` names the operation of the backend, `url` is its address. Each request blocks until
/// the server closes the stream or falls silent, has its response in the protocol on
/// kHttpSuccess, and throws what HttpProtocol::ParseResponse throws. Success says nothing about the
/// status code of the response. Any thread; a protocol belongs to one request at a time.
class HttpConnectionIf {
 public:
  virtual ~HttpConnectionIf() = default;

  /// Fetches what `url` names.
  [[nodiscard]] virtual unsigned int Get(HttpProtocol& protocol, const std::string& service,
                                         const std::string& url) const = 0;

  /// Has `url` process the payload.
  [[nodiscard]] virtual unsigned int Post(HttpProtocol& protocol, const std::string& service,
                                          const std::string& url) const = 0;

  /// Stores the payload at `url`.
  [[nodiscard]] virtual unsigned int Put(HttpProtocol& protocol, const std::string& service,
                                         const std::string& url) const = 0;

  /// Opens a connection and closes it.
  [[nodiscard]] virtual unsigned int Test(const std::string& service,
                                          const std::string& url) const = 0;

  /// For connections that know their server without being told.
  [[nodiscard]] virtual unsigned int Get(HttpProtocol* protocol) const = 0;
  [[nodiscard]] virtual unsigned int Post(HttpProtocol* protocol) const = 0;
  [[nodiscard]] virtual unsigned int Put(HttpProtocol* protocol) const = 0;
  [[nodiscard]] virtual unsigned int Test() const = 0;
};

}  // namespace csa_common

#endif
