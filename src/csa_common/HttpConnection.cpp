#include "csa_common/HttpConnection.h"

#include <poll.h>
#include <unistd.h>

#include <charconv>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "csa_common/ReceivedText.h"
#include "csc_logging/CSCLogging.h"

namespace csa_common {
namespace {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

constexpr std::string_view kSchemeEnd = "://";
constexpr std::uint16_t kHttpPort = 80;
constexpr std::uint16_t kHttpsPort = 443;
constexpr std::uint16_t kInterimStatus = 100;

void LogDebugText(const char* before, const std::string& text) {
  CSCLogging::LogDebug(CSCLogEntry() << "HttpConnection: " << before << "\n-----\n"
                                     << text << "\n-----\n\n");
}

void LogDebugSize(const char* before, std::size_t size) {
  CSCLogging::LogDebug(CSCLogEntry()
                       << "HttpConnection: " << before << " payload " << size << " bytes\n\n");
}

void LogServer(const char* before, const ParsedUrl& server) {
  CSCLogging::LogInfo(CSCLogEntry() << "HttpConnection: " << before << " to " << server.host << ":"
                                    << server.port);
}

bool Contains(const std::string& text, std::string_view piece) {
  return text.find(piece) != std::string::npos;
}

/// The port of a URL that names none. Returns 0 or kHttpBadUrl.
unsigned int DefaultPort(const std::string& scheme, std::uint16_t& port) {
  if (Contains(scheme, "http://")) {
    port = kHttpPort;
    CSCLogging::LogInfo("Received URL missing port number. Default HTTP port used: 80");
  } else if (Contains(scheme, "https://")) {
    port = kHttpsPort;
    CSCLogging::LogInfo("Received URL missing port number. Default HTTPS port used: 443");
  } else {
    CSCLogging::LogError("URL parsing failed! Port number not found!");
    return kHttpBadUrl;
  }
  return kHttpSuccess;
}

/// Reads all of `text` as a port. Returns 0 or kHttpBadUrl.
unsigned int ReadPort(std::string_view text, std::uint16_t& port) {
  const char* const end = text.data() + text.size();
  const auto [parsedEnd, error] = std::from_chars(text.data(), end, port);
  if (error == std::errc() && parsedEnd == end && port != 0) return kHttpSuccess;
  CSCLogging::LogError(CSCLogEntry()
                       << "URL parsing failed! Not able to parse port number: " << text);
  return kHttpBadUrl;
}

}  // namespace

/// Closes a stream at the end of its life, unless that is left to nobody.
class HttpConnection::OpenStream {
 public:
  OpenStream(const HttpConnection& opener, int openDescriptor)
      : connection(opener), descriptor(openDescriptor) {}
  ~OpenStream() {
    if (descriptor >= 0) connection.CloseConnection(descriptor);
  }
  OpenStream(const OpenStream&) = delete;
  OpenStream& operator=(const OpenStream&) = delete;

  [[nodiscard]] int Get() const { return descriptor; }
  void LeaveOpen() { descriptor = -1; }

 private:
  const HttpConnection& connection;
  int descriptor;
};

HttpConnection::HttpConnection(std::shared_ptr<lumo_connector::LumoConnector> lumoConnector)
    : connector(std::move(lumoConnector)) {}

HttpConnection::HttpConnection(const std::string& host, unsigned short port,
                               const std::string& text,
                               std::shared_ptr<lumo_connector::LumoConnector> lumoConnector)
    : connector(std::move(lumoConnector)),
      defaultHost(host),
      defaultPort(port),
      furtherText(text) {}

HttpConnection::HttpConnection(std::shared_ptr<lumo_connector::LumoConnector> lumoConnector,
                               std::chrono::milliseconds firstAnswer,
                               std::chrono::milliseconds nextChunk)
    : connector(std::move(lumoConnector)),
      firstAnswerTimeout(static_cast<std::int32_t>(firstAnswer.count())),
      nextChunkTimeout(static_cast<std::int32_t>(nextChunk.count())) {}

unsigned int HttpConnection::Get(HttpProtocol& protocol, const std::string& service,
                                 const std::string& url) const {
  return Exchange(protocol, service, url, &HttpProtocol::GET);
}

unsigned int HttpConnection::Post(HttpProtocol& protocol, const std::string& service,
                                  const std::string& url) const {
  return Exchange(protocol, service, url, &HttpProtocol::POST);
}

unsigned int HttpConnection::Put(HttpProtocol& protocol, const std::string& service,
                                 const std::string& url) const {
  return Exchange(protocol, service, url, &HttpProtocol::PUT);
}

unsigned int HttpConnection::Test(const std::string& service, const std::string& url) const {
  ParsedUrl server;
  if (const unsigned int result = FindServer(url, server); result != kHttpSuccess) return result;
  const OpenStream stream(*this, Connect(service, server));
  if (stream.Get() < 0) return kHttpConnectFailed;
  CSCLogging::LogInfo("HttpConnection: Connection succeeded!");
  return kHttpSuccess;
}

unsigned int HttpConnection::Get(HttpProtocol* /*protocol*/) const {
  return kHttpNotSupported;
}

unsigned int HttpConnection::Post(HttpProtocol* /*protocol*/) const {
  return kHttpNotSupported;
}

unsigned int HttpConnection::Put(HttpProtocol* /*protocol*/) const {
  return kHttpNotSupported;
}

unsigned int HttpConnection::Test() const {
  return kHttpNotSupported;
}

unsigned int HttpConnection::UrlParser(const std::string& url, ParsedUrl& parsed) const {
  const std::size_t schemeEnd = url.find(kSchemeEnd);
  if (schemeEnd == std::string::npos) {
    CSCLogging::LogError("URL parsing failed! URL prefix not found!");
    return kHttpBadUrl;
  }
  parsed.scheme = url.substr(0, schemeEnd + kSchemeEnd.size());
  const std::string_view rest = std::string_view(url).substr(parsed.scheme.size());
  const std::size_t slash = rest.find('/');
  // A colon of the path belongs to the path (RFC 3986 section 3.3).
  const std::string_view authority = rest.substr(0, slash);
  const std::size_t colon = authority.find(':');
  if (colon == 0) {
    CSCLogging::LogError("URL parsing failed! Domain not found!");
    return kHttpBadUrl;
  }
  parsed.host = authority.substr(0, colon);
  parsed.path = slash == std::string_view::npos ? "/" : rest.substr(slash);
  if (colon == std::string_view::npos) return DefaultPort(parsed.scheme, parsed.port);
  return ReadPort(authority.substr(colon + 1), parsed.port);
}

unsigned int HttpConnection::UrlParser(std::string url) {
  ParsedUrl parsed;
  return HttpConnection(nullptr).UrlParser(url, parsed);
}

lumo_connector::LumoSocketResult HttpConnection::SocketConnect(const std::string& operationTypeId,
                                                               const std::string& host,
                                                               std::uint16_t port) const {
  return connector->SocketConnect(operationTypeId, host, port);
}

int HttpConnection::OpenConnection(const std::string& service, const std::string& host,
                                   unsigned short port) const {
  const lumo_connector::LumoSocketResult result = SocketConnect(service, host, port);
  if (result.status != 0) {
    CSCLogging::LogError(CSCLogEntry() << "HttpConnection: Connection not established. Status: "
                                       << result.status);
  }
  return result.descriptor;
}

std::ptrdiff_t HttpConnection::Send(int descriptor, const std::string& data) const {
  return ::write(descriptor, data.data(), data.size());
}

int HttpConnection::Poll(int timeoutMs, int descriptor) const {
  pollfd waiting{descriptor, POLLIN, 0};
  return ::poll(&waiting, 1, timeoutMs);
}

unsigned int HttpConnection::ReceiveResponse(int descriptor, std::string& response) const {
  if (Poll(firstAnswerTimeout, descriptor) == -1) {
    CSCLogging::LogError("HttpConnection: Receive Timeout!");
    return kHttpReceiveFailed;
  }
  std::vector<char> chunk(receiveChunkSize);
  std::string received;
  for (;;) {
    const int ready = Poll(nextChunkTimeout, descriptor);
    if (ready == -1) {
      CSCLogging::LogError("HttpConnection: Receive Timeout!!");
      return kHttpReceiveFailed;
    }
    if (ready == 0) break;
    const ssize_t count = ::read(descriptor, chunk.data(), chunk.size());
    if (count < 1) {
      CSCLogging::LogInfo("HttpConnection: Reception ended");
      break;
    }
    CSCLogging::LogInfo(CSCLogEntry() << "HttpConnection: Read " << count << " bytes from socket");
    AppendReceived(received, {chunk.data(), static_cast<std::size_t>(count)});
  }
  response.swap(received);
  CSCLogging::LogInfo(CSCLogEntry() << "HttpConnection: Total received " << response.size()
                                    << " bytes from socket");
  return kHttpSuccess;
}

void HttpConnection::CloseConnection(int descriptor) const {
  ::close(descriptor);
}

unsigned int HttpConnection::Exchange(HttpProtocol& protocol, const std::string& service,
                                      const std::string& url, Builder builder) const {
  ParsedUrl server;
  if (const unsigned int result = FindServer(url, server); result != kHttpSuccess) return result;
  if (!url.empty()) {
    protocol.SetOption(HttpOption::RequestTarget, server.path);
    protocol.SetOption(HttpOption::Host, server.host);
  }
  OpenStream stream(*this, Connect(service, server));
  if (stream.Get() < 0) return kHttpConnectFailed;
  LogServer("Connection established", server);

  const bool isPut = builder == &HttpProtocol::PUT;
  const std::string request = (protocol.*builder)();
  Send(stream.Get(), request);
  if (isPut) {
    LogDebugText("Sent header", protocol.RequestHeader());
  } else {
    LogDebugText("Sent request", request);
  }
  Received received = Receive(stream.Get(), protocol);
  while (isPut && received == Received::kAnswer &&
         protocol.ResponseStatusCode() == kInterimStatus) {
    Send(stream.Get(), protocol.RequestPayload());
    LogDebugSize("Sent", protocol.RequestPayload().size());
    received = Receive(stream.Get(), protocol);
  }
  if (received == Received::kFailed) {
    stream.LeaveOpen();
    return kHttpReceiveFailed;
  }
  LogDebugSize("Received", protocol.ResponsePayload().size());
  return kHttpSuccess;
}

unsigned int HttpConnection::FindServer(const std::string& url, ParsedUrl& server) const {
  if (!url.empty()) return UrlParser(url, server);
  server.host = defaultHost;
  server.port = defaultPort;
  return kHttpSuccess;
}

int HttpConnection::Connect(const std::string& service, const ParsedUrl& server) const {
  LogServer("Connecting", server);
  const int descriptor = OpenConnection(service, server.host, server.port);
  if (descriptor < 0) CSCLogging::LogError("HttpConnection: Connection failed!");
  return descriptor;
}

HttpConnection::Received HttpConnection::Receive(int descriptor, HttpProtocol& protocol) const {
  std::string response;
  if (ReceiveResponse(descriptor, response) != kHttpSuccess) return Received::kFailed;
  const bool isEmpty = response.empty();
  protocol.ParseResponse(std::move(response));
  LogDebugText("Received Response", protocol.ResponseHeader());
  return isEmpty ? Received::kNothing : Received::kAnswer;
}

}  // namespace csa_common
