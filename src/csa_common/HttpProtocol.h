/// The text of one HTTP/1.1 exchange (RFC 9112): the request is built from options, the response is
/// split into header, status code and body. Does no input or output: HttpConnection sends the one
/// and hands over the other; who makes a request sets the options before and reads the results
/// after. Each object belongs to one thread at a time.
#ifndef CSA_COMMON_HTTPPROTOCOL_H
#define CSA_COMMON_HTTPPROTOCOL_H

#include <cstdint>
#include <string>

namespace csa_common {

/// What SetOption changes. Flags are set, texts are replaced.
enum class HttpOption : std::uint8_t {
  NoExpectContinue = 1,  ///< flag: PUT sends its body at once
  RequestTarget = 2,     ///< the path of the URL; set by HttpConnection
  Host = 3,              ///< set by HttpConnection
  Connection = 4,
  ContentType = 5,
  ContentLength = 6,  ///< a number, or HttpProtocol::kActualLength
  Authorization = 7,  ///< never sent by PUT
  Accept = 8,
  Payload = 9,      ///< the body of the request
  HeaderOnly = 10,  ///< flag: the body of the response is not kept
};

/// Nothing here blocks. Building fails by std::length_error or std::bad_alloc only. Values are
/// written as they are: no line break may stand in one.
class HttpProtocol {
 public:
  /// Value of ContentLength that stands for the length of the payload.
  static constexpr const char* kActualLength = "__actual__";

  /// The status code of a response whose number is none that HTTP/1.1 of this client knows.
  static constexpr std::uint16_t kUnknownStatus = 255;

  /// Default options and no response: status code 0.
  HttpProtocol();

  /// Resets the options, not the response: no flag, content type "text/html", content length
  /// kActualLength, all other texts empty.
  void SetDefaultValues();

  /// Sets a flag. An option that is none is ignored.
  void SetOption(HttpOption option);

  /// Replaces a text. An option that is none is ignored.
  void SetOption(HttpOption option, std::string value);

  /// Each builds the whole text of a request, keeps it and returns it: request line, a line for
  /// every text option that is not empty, blank line, body. PUT waits for the server's consent
  /// ("Expect: 100-continue") and leaves the body to be sent after it, unless NoExpectContinue is
  /// set; it never carries the Authorization line.
  std::string GET();
  std::string POST();
  std::string PUT();

  /// Splits `response`: the header is what stands before the first blank line (all of it when there
  /// is none), the status code is the number after the first blank, the payload is what follows the
  /// blank line. No header line is interpreted; a chunked body stays as it came. Costs time linear
  /// in the response.
  ///
  /// A header that does not begin with "HTTP" leaves the status code as it was and the payload
  /// empty. A number that HTTP does not know gives kUnknownStatus. Without a blank line the payload
  /// is the response less its first three characters. HeaderOnly leaves the payload empty.
  ///
  /// Throws std::invalid_argument("stoi") when no number begins within the three characters after
  /// the first blank, std::out_of_range("stoi") for one that no int holds; the header is set then,
  /// the status code as it was, the payload empty.
  void ParseResponse(const std::string& response);

  /// The same without a copy of the body: the payload takes over the memory of `response`.
  void ParseResponse(std::string&& response);

  /// The last request up to and including its blank line.
  [[nodiscard]] const std::string& RequestHeader() const { return requestHeader; }

  /// The body that requests carry.
  [[nodiscard]] const std::string& RequestPayload() const { return payload; }
  [[nodiscard]] std::uint16_t ResponseStatusCode() const { return responseStatusCode; }
  [[nodiscard]] const std::string& ResponseHeader() const { return responseHeader; }
  [[nodiscard]] const std::string& ResponsePayload() const { return responsePayload; }

 private:
  /// The text that `option` names, or null when it names none.
  [[nodiscard]] std::string* Text(HttpOption option);

  /// Builds and keeps a request; PUT differs in more than its method.
  std::string Build(const char* method, bool isPut);

  std::uint32_t requestFlags = 0;
  std::string requestTarget;
  std::string payload;
  std::string host;
  std::string connection;
  std::string contentType;
  std::string authorization;
  std::string contentLength;
  std::string accept;
  std::uint32_t responseFlags = 0;
  std::string request;
  std::string requestHeader;
  std::string responseHeader;
  std::uint16_t responseStatusCode = 0;
  std::string responsePayload;
};

}  // namespace csa_common

#endif
