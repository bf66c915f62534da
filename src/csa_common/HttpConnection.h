/// HTTP/1.1 requests over streams that the unit's connector opens: one stream a request, closed
/// after it. The exchanges with the backend and with OCSP responders make one each.
#ifndef CSA_COMMON_HTTPCONNECTION_H
#define CSA_COMMON_HTTPCONNECTION_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "csa_common/HttpConnectionIf.h"
#include "csa_common/HttpProtocol.h"
#include "lumo_connector/LumoConnector.h"

namespace csa_common {

/// A URL in parts.
struct ParsedUrl {
  std::string scheme;  ///< up to and including "://"
  std::string host;
  std::uint16_t port = 0;
  std::string path;  ///< from the first "/" after the host; "/" when there is none
};

/// Keeps nothing between requests, so that one object serves several threads. A response is
/// complete when the server closes the stream or sends nothing for the next-chunk timeout; its
/// header has no say in that, and how much may come is the connector's to bound.
///
/// Requests are made on threads that block all signals: an interrupted wait counts as a failed one.
/// A write to a server that has gone raises SIGPIPE, which programs ignore.
class HttpConnection : public HttpConnectionIf {
 public:
  /// Knows no server: every request names its URL.
  explicit HttpConnection(std::shared_ptr<lumo_connector::LumoConnector> lumoConnector);

  /// Requests with an empty URL go to `host` and `port`. `text` is kept for connections that need
  /// one.
  HttpConnection(const std::string& host, unsigned short port, const std::string& text,
                 std::shared_ptr<lumo_connector::LumoConnector> lumoConnector);

  /// As the first, with shorter waits than a server is given in the field: for tests.
  HttpConnection(std::shared_ptr<lumo_connector::LumoConnector> lumoConnector,
                 std::chrono::milliseconds firstAnswer, std::chrono::milliseconds nextChunk);

  /// Each sets RequestTarget and Host of `protocol` from `url` (an empty one leaves them as they
  /// are), sends the request and parses the response into `protocol`. Returns kHttpSuccess,
  /// kHttpBadUrl, kHttpConnectFailed or kHttpReceiveFailed, the failures with an error line each.
  ///
  /// After kHttpReceiveFailed the stream is left open, and nobody closes it any more; after
  /// everything else, an exception included, it is closed. Blocks for the connector's
  /// SocketConnect, up to 20 + 10 s for the first answer, 10 s between two pieces of it.
  [[nodiscard]] unsigned int Get(HttpProtocol& protocol, const std::string& service,
                                 const std::string& url) const override;
  [[nodiscard]] unsigned int Post(HttpProtocol& protocol, const std::string& service,
                                  const std::string& url) const override;

  /// Sends the body each time the server answers 100, and ends with the first other answer, or when
  /// none comes: the status code is 100 then.
  [[nodiscard]] unsigned int Put(HttpProtocol& protocol, const std::string& service,
                                 const std::string& url) const override;
  [[nodiscard]] unsigned int Test(const std::string& service,
                                  const std::string& url) const override;

  /// These do nothing and return kHttpNotSupported.
  [[nodiscard]] unsigned int Get(HttpProtocol* protocol) const override;
  [[nodiscard]] unsigned int Post(HttpProtocol* protocol) const override;
  [[nodiscard]] unsigned int Put(HttpProtocol* protocol) const override;
  [[nodiscard]] unsigned int Test() const override;

  /// Splits `url`. A colon begins a port only before the first "/"; without one, the port follows
  /// from the scheme (80 for http, 443 for https). Returns 0, or kHttpBadUrl with an error line:
  /// no "://", a host that begins with a colon, a scheme without a port of its own, a port that is
  /// not a decimal number from 1 to 65535 and nothing else. `parsed` holds parts after a failure.
  [[nodiscard]] unsigned int UrlParser(const std::string& url, ParsedUrl& parsed) const;

  /// Tells by the same results whether `url` can be split.
  [[nodiscard]] static unsigned int UrlParser(std::string url);

  /// Returns a descriptor that is the caller's to close, or a negative number with an error line.
  [[nodiscard]] int OpenConnection(const std::string& service, const std::string& host,
                                   unsigned short port) const;

  /// Makes one write of all of `data`, also of an empty one. Returns its result: a short write is
  /// not continued.
  std::ptrdiff_t Send(int descriptor, const std::string& data) const;

  /// Waits for something to read, or the end of the stream. Returns the result of poll: 0 after
  /// `timeoutMs`, -1 for an error.
  [[nodiscard]] int Poll(int timeoutMs, int descriptor) const;

  /// Replaces `response` by all that comes. Returns 0, or kHttpReceiveFailed with an error line
  /// when poll fails; `response` is as before then. A silent server is a response too: an empty
  /// one. Uses at most twice the memory of the response while it grows.
  [[nodiscard]] unsigned int ReceiveResponse(int descriptor, std::string& response) const;

  void CloseConnection(int descriptor) const;

 private:
  /// Builds the text of a request.
  using Builder = std::string (HttpProtocol::*)();

  enum class Received { kAnswer, kNothing, kFailed };
  class OpenStream;

  /// Opens the stream of a request, as the connector's operation of this name tells. For classes
  /// whose streams come from elsewhere.
  [[nodiscard]] virtual lumo_connector::LumoSocketResult SocketConnect(
      const std::string& operationTypeId, const std::string& host, std::uint16_t port) const;

  [[nodiscard]] unsigned int Exchange(HttpProtocol& protocol, const std::string& service,
                                      const std::string& url, Builder builder) const;

  /// Tells where a request to `url` goes. Returns 0 or kHttpBadUrl.
  [[nodiscard]] unsigned int FindServer(const std::string& url, ParsedUrl& server) const;

  /// Returns the descriptor of a stream to `server`, or a negative number with an error line.
  [[nodiscard]] int Connect(const std::string& service, const ParsedUrl& server) const;

  /// Receives a response and parses it. Throws what HttpProtocol::ParseResponse throws.
  [[nodiscard]] Received Receive(int descriptor, HttpProtocol& protocol) const;

  std::shared_ptr<lumo_connector::LumoConnector> connector;
  std::string defaultHost;
  std::uint16_t defaultPort = 0;
  std::string furtherText;
  std::uint64_t receiveChunkSize = 1500;
  std::int32_t firstAnswerTimeout = 20000;  ///< milliseconds
  std::int32_t nextChunkTimeout = 10000;    ///< milliseconds
};

}  // namespace csa_common

#endif
