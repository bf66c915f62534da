#include "csa_common/HttpProtocol.h"

#include <algorithm>
#include <array>
#include <utility>

namespace csa_common {
namespace {

constexpr std::uint32_t kFirstFlag = 1;
constexpr const char* kHeaderEnd = "\r\n\r\n";
constexpr std::size_t kHeaderEndLength = 4;
constexpr std::size_t kStatusDigits = 3;

/// Inclusive bounds of runs of status codes that are told apart from the unknown one. 306 is
/// unused (RFC 9110 section 15.4.7).
struct StatusRange {
  std::uint16_t first;
  std::uint16_t last;
};
constexpr std::array<StatusRange, 6> kKnownStatus{
    {{100, 101}, {200, 206}, {301, 305}, {307, 307}, {400, 417}, {500, 505}}};

bool IsKnownStatus(std::uint16_t status) {
  return std::any_of(kKnownStatus.begin(), kKnownStatus.end(), [status](const StatusRange& range) {
    return status >= range.first && status <= range.last;
  });
}

void AppendLine(std::string& header, const char* name, const std::string& value) {
  if (value.empty()) return;
  header.append("\r\n").append(name).append(": ").append(value);
}

}  // namespace

HttpProtocol::HttpProtocol() {
  SetDefaultValues();
}

void HttpProtocol::SetDefaultValues() {
  requestFlags = 0;
  responseFlags = 0;
  for (std::string* text : {&requestTarget, &payload, &host, &connection, &authorization, &accept})
    text->clear();
  contentType = "text/html";
  contentLength = kActualLength;
}

void HttpProtocol::SetOption(HttpOption option) {
  if (option == HttpOption::NoExpectContinue) requestFlags |= kFirstFlag;
  if (option == HttpOption::HeaderOnly) responseFlags |= kFirstFlag;
}

void HttpProtocol::SetOption(HttpOption option, std::string value) {
  if (std::string* const text = Text(option); text != nullptr) *text = std::move(value);
}

std::string* HttpProtocol::Text(HttpOption option) {
  switch (option) {
    case HttpOption::RequestTarget:
      return &requestTarget;
    case HttpOption::Host:
      return &host;
    case HttpOption::Connection:
      return &connection;
    case HttpOption::ContentType:
      return &contentType;
    case HttpOption::ContentLength:
      return &contentLength;
    case HttpOption::Authorization:
      return &authorization;
    case HttpOption::Accept:
      return &accept;
    case HttpOption::Payload:
      return &payload;
    default:
      return nullptr;
  }
}

std::string HttpProtocol::GET() {
  return Build("GET", false);
}

std::string HttpProtocol::POST() {
  return Build("POST", false);
}

std::string HttpProtocol::PUT() {
  return Build("PUT", true);
}

std::string HttpProtocol::Build(const char* method, bool isPut) {
  const bool bodyLater = isPut && (requestFlags & kFirstFlag) == 0;
  requestHeader = std::string(method) + " " + requestTarget + " HTTP/1.1";
  AppendLine(requestHeader, "Host", host);
  AppendLine(requestHeader, "Content-Type", contentType);
  AppendLine(requestHeader, "Accept", accept);
  if (!isPut) AppendLine(requestHeader, "Authorization", authorization);
  // RFC 9110 section 10.1.1: the server is asked before the body is sent.
  if (bodyLater) AppendLine(requestHeader, "Expect", "100-continue");
  AppendLine(requestHeader, "Connection", connection);
  AppendLine(requestHeader, "Content-Length",
             contentLength == kActualLength ? std::to_string(payload.size()) : contentLength);
  requestHeader += kHeaderEnd;
  request = requestHeader;
  if (!bodyLater) request += payload;
  return request;
}

void HttpProtocol::ParseResponse(const std::string& response) {
  ParseResponse(std::string(response));
}

void HttpProtocol::ParseResponse(std::string&& response) {
  const std::size_t headerEnd = response.find(kHeaderEnd);
  responseHeader.assign(response, 0, headerEnd);
  responsePayload = std::string();
  if (responseHeader.compare(0, 4, "HTTP") != 0) return;

  // Without a blank this reads "HTT", which is no number.
  const std::string digits = response.substr(response.find(' ') + 1, kStatusDigits);
  responseStatusCode = static_cast<std::uint16_t>(std::stoi(digits));
  if (!IsKnownStatus(responseStatusCode)) responseStatusCode = kUnknownStatus;

  if ((responseFlags & kFirstFlag) != 0) return;
  const std::size_t bodyBegin = headerEnd == std::string::npos ? 3 : headerEnd + kHeaderEndLength;
  response.erase(0, bodyBegin);
  responsePayload = std::move(response);
}

}  // namespace csa_common
