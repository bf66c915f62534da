#include "platform/host/config/ServiceKeys.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

#include "platform/host/config/ValueChecks.h"

namespace platform_host {
namespace {

constexpr std::array<std::string_view, 2> kSchemes = {"http://", "https://"};

/// The scheme of `url`, in lower case and with its "://" (RFC 3986 section 3.1: its case does not
/// matter); empty when it is none of ours.
std::string_view SchemeOf(std::string_view url) {
  const auto* found = std::find_if(kSchemes.begin(), kSchemes.end(), [url](std::string_view one) {
    return url.size() >= one.size() && ::strncasecmp(url.data(), one.data(), one.size()) == 0;
  });
  return found == kSchemes.end() ? std::string_view() : *found;
}

bool IsVisible(char character) {
  return character > ' ' && character < '\x7F';
}

bool IsOfHost(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == '.' || character == '-' ||
         character == '_';
}

Refusal CheckPort(std::string_view digits) {
  std::int64_t port = 0;
  const char* const end = digits.data() + digits.size();
  const auto parsed = std::from_chars(digits.data(), end, port);
  const bool isNumber = parsed.ec == std::errc() && parsed.ptr == end;
  return CheckRange(isNumber ? port : 0, kPorts) ? Refusal("must have a port from 1 to 65535")
                                                 : std::nullopt;
}

Refusal CheckAuthority(std::string_view authority) {
  if (authority.find('@') != std::string_view::npos) return "must not contain a user's name";
  if (authority.find('[') != std::string_view::npos) return "must not name an IPv6 address";
  const auto colon = authority.find(':');
  const auto host = authority.substr(0, colon);
  if (host.empty()) return "must name a host";
  if (!std::all_of(host.begin(), host.end(), IsOfHost)) {
    return "must name a host by letters, digits, dots and hyphens";
  }
  return colon == std::string_view::npos ? std::nullopt : CheckPort(authority.substr(colon + 1));
}

Refusal TakeToken(const std::string& value, std::optional<std::string>& target) {
  if (!IsToken(value)) {
    return "must be 1 to " + std::to_string(kMaxTokenBytes) + " visible ASCII characters";
  }
  target = value;
  return std::nullopt;
}

using Rule = KeyRule<ServiceConfig>;
using Text = const std::string&;

constexpr std::array<Rule, 7> kRules{{
    {"url", [](Text value, ServiceConfig& service) { return TakeUrl(value, service.url); }},
    {"token_file",
     [](Text value, ServiceConfig& service) { return TakePath(value, service.tokenFile); }},
    {"token", [](Text value, ServiceConfig& service) { return TakeToken(value, service.token); }},
    {"ca_file", [](Text value, ServiceConfig& service) { return TakePath(value, service.caFile); }},
    {"bundle", [](Text value, ServiceConfig& service) { return TakeName(value, service.bundle); }},
    {"cert_file",
     [](Text value, ServiceConfig& service) { return TakePath(value, service.certFile); }},
    {"key_file",
     [](Text value, ServiceConfig& service) { return TakePath(value, service.keyFile); }},
}};

}  // namespace

const std::array<KeyRule<ServiceConfig>, 7>& ServiceKeys() {
  return kRules;
}

std::optional<KeyRefusal> CheckService(const ServiceConfig& service) {
  if (service.token && !service.tokenFile.empty()) {
    return KeyRefusal{"token", "must not stand beside token_file"};
  }
  if (!service.caFile.empty() && !service.bundle.empty()) {
    return KeyRefusal{"bundle", "must not stand beside ca_file"};
  }
  if (service.IsTls() && service.caFile.empty() && service.bundle.empty()) {
    return KeyRefusal{"url", "needs ca_file or bundle"};
  }
  if (service.certFile.empty() && !service.keyFile.empty()) {
    return KeyRefusal{"key_file", "needs cert_file"};
  }
  if (!service.certFile.empty() && service.keyFile.empty()) {
    return KeyRefusal{"cert_file", "needs key_file"};
  }
  return std::nullopt;
}

Refusal TakeUrl(const std::string& value, std::string& target) {
  const auto scheme = SchemeOf(value);
  if (scheme.empty()) return "must begin with http:// or https://";
  if (!std::all_of(value.begin(), value.end(), IsVisible)) {
    return "must be visible ASCII characters";
  }
  const auto rest = std::string_view(value).substr(scheme.size());
  if (auto refusal = CheckAuthority(rest.substr(0, rest.find('/')))) return refusal;
  target = std::string(scheme).append(rest);
  return std::nullopt;
}

bool ServiceConfig::IsTls() const {
  return SchemeOf(url) == "https://";
}

}  // namespace platform_host
