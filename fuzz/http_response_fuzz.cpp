// Splitting a response against a model that walks it byte by byte: same header, status and payload,
// same refusals, whether the response is copied or moved.

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "csa_common/HttpProtocol.h"
#include "fuzz/Require.h"

namespace {

using csa_common::HttpOption;
using csa_common::HttpProtocol;

constexpr int kStatusBefore = 404;

/// What a response is split into. No status: the conversion throws.
struct Expected {
  std::string header;
  std::optional<int> status;
  std::string payload;
};

bool IsBlankLine(const std::string& text, std::size_t at) {
  return at + 4 <= text.size() && text[at] == '\r' && text[at + 1] == '\n' &&
         text[at + 2] == '\r' && text[at + 3] == '\n';
}

/// The number that begins in the three characters after the first blank.
std::optional<int> StatusNumber(const std::string& response) {
  std::size_t at = 0;
  while (at < response.size() && response[at] != ' ') ++at;
  if (at == response.size()) return std::nullopt;
  std::string digits;
  for (std::size_t i = at + 1; i < response.size() && digits.size() < 3; ++i) digits += response[i];
  char* end = nullptr;
  const long number = std::strtol(digits.c_str(), &end, 10);
  if (end == digits.c_str()) return std::nullopt;
  return static_cast<int>(number);
}

int KnownOrUnknown(int status) {
  for (const int known : {100, 101, 200, 201, 202, 203, 204, 205, 206, 301, 302, 303, 304,
                          305, 307, 400, 401, 402, 403, 404, 405, 406, 407, 408, 409, 410,
                          411, 412, 413, 414, 415, 416, 417, 500, 501, 502, 503, 504, 505}) {
    if (status == known) return known;
  }
  return 255;
}

Expected Model(const std::string& response, bool headerOnly) {
  std::size_t end = 0;
  while (end < response.size() && !IsBlankLine(response, end)) ++end;
  Expected expected{response.substr(0, end), kStatusBefore, ""};
  if (expected.header.substr(0, 4) != "HTTP") return expected;
  expected.status = StatusNumber(response);
  if (!expected.status) return expected;
  expected.status = KnownOrUnknown(*expected.status);
  const std::size_t body = end == response.size() ? 3 : end + 4;
  if (!headerOnly) expected.payload = response.substr(body);
  return expected;
}

void Compare(const HttpProtocol& protocol, const Expected& expected, bool threw) {
  fuzz::Require(threw == !expected.status, "throws when there is no number, and only then");
  fuzz::Require(protocol.ResponseHeader() == expected.header, "the header of the model");
  fuzz::Require(protocol.ResponseStatusCode() == expected.status.value_or(kStatusBefore),
                "the status of the model");
  fuzz::Require(protocol.ResponsePayload() == expected.payload, "the payload of the model");
}

template <typename Response>
void Check(Response&& response, const Expected& expected, bool headerOnly) {
  HttpProtocol protocol;
  protocol.ParseResponse("HTTP/1.1 404 Not Found\r\n\r\nbefore");
  if (headerOnly) protocol.SetOption(HttpOption::HeaderOnly);
  bool threw = false;
  try {
    protocol.ParseResponse(std::forward<Response>(response));
  } catch (const std::invalid_argument& error) {
    threw = std::string(error.what()) == "stoi";
  } catch (const std::out_of_range& error) {
    threw = std::string(error.what()) == "stoi";
  }
  Compare(protocol, expected, threw);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string response(reinterpret_cast<const char*>(data), size);
  for (const bool headerOnly : {false, true}) {
    const Expected expected = Model(response, headerOnly);
    Check(response, expected, headerOnly);
    Check(std::string(response), expected, headerOnly);
  }
  return 0;
}
