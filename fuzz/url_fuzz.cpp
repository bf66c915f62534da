// Splitting a URL: the parts put together again are the URL, a host and a port are what a server
// can be reached by, and every refusal is one error line and nothing else.

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "csa_common/HttpConnection.h"
#include "fuzz/Require.h"
#include "platform/host/csc_logging/CapturedLog.h"

namespace {

using csa_common::HttpConnection;
using csa_common::ParsedUrl;
using platform_host::CapturedLog;
using platform_host::LogLevel;

bool IsDecimal(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](char digit) { return digit >= '0' && digit <= '9'; });
}

/// What stands between host and path, as `url` was written.
std::string PortText(const std::string& url, const ParsedUrl& parsed) {
  const std::size_t begin = parsed.scheme.size() + parsed.host.size();
  return url.substr(begin, url.find('/', begin) - begin);
}

void CheckAccepted(const std::string& url, const ParsedUrl& parsed) {
  fuzz::Require(url.compare(0, parsed.scheme.size(), parsed.scheme) == 0, "begins with the scheme");
  fuzz::Require(url.find("://") + 3 == parsed.scheme.size(), "the scheme ends at the first ://");
  fuzz::Require(parsed.host.find_first_of(":/") == std::string::npos, "a host is one");
  fuzz::Require(!parsed.path.empty() && parsed.path[0] == '/', "a path begins with a slash");
  fuzz::Require(parsed.port != 0, "a port is one");
  const std::string port = PortText(url, parsed);
  const std::string whole = parsed.scheme + parsed.host + port + parsed.path;
  fuzz::Require(whole == url || whole == url + "/", "the parts are the URL");
  if (port.empty()) {
    const bool isHttp = parsed.scheme.find("http://") != std::string::npos;
    fuzz::Require(parsed.port == (isHttp ? 80 : 443), "the port of the scheme");
    return;
  }
  fuzz::Require(port[0] == ':' && IsDecimal(port.substr(1)), "a port is a decimal number");
  const std::string digits = port.substr(std::min(port.find_first_not_of("0", 1), port.size() - 1));
  fuzz::Require(digits == std::to_string(parsed.port), "the port is the number");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CapturedLog log;
  const std::string url(reinterpret_cast<const char*>(data), size);
  ParsedUrl parsed;
  const unsigned int result = HttpConnection(nullptr).UrlParser(url, parsed);
  const auto errors = log.Lines(LogLevel::kError);
  fuzz::Require(result == 0 || result == csa_common::kHttpBadUrl, "a documented result");
  fuzz::Require(errors.size() == (result == 0 ? 0 : 1), "one error line for a refusal");
  fuzz::Require(log.Lines().size() <= 1, "one line at most");
  if (result == 0) CheckAccepted(url, parsed);
  return 0;
}
