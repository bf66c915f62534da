#include "platform/host/lumo_connector/Services.h"

#include <cerrno>

#include "csc_logging/CSCLogging.h"
#include "platform/host/config/ValueChecks.h"
#include "support/FileContents.h"

namespace platform_host {
namespace {

constexpr std::int32_t kSuccess = 1;
constexpr std::int32_t kNotConfigured = 2;
constexpr std::int32_t kUnreadable = 3;

/// "\r\n" is the longest line break that may end a token's file.
constexpr std::size_t kMaxFileBytes = kMaxTokenBytes + 2;

const ServiceConfig* Find(const HostConfig& config, const std::string& operationTypeId) {
  const auto found = config.services.find(operationTypeId);
  return found == config.services.end() ? nullptr : &found->second;
}

void RemoveLineBreak(std::string& text) {
  if (!text.empty() && text.back() == '\n') text.pop_back();
  if (!text.empty() && text.back() == '\r') text.pop_back();
}

Result<std::string> ReadToken(const std::string& path) {
  std::string text;
  const int error = support::ReadFile(path, kMaxFileBytes, text);
  if (error != 0) return Error::OfErrno(error);
  RemoveLineBreak(text);
  if (text.empty()) return Error("the file is empty");
  if (!IsToken(text)) {
    return Error("the file holds something other than 1 to " + std::to_string(kMaxTokenBytes) +
                 " visible ASCII characters and a line break");
  }
  return text;
}

void LogNotConfigured(const char* what, const std::string& operationTypeId) {
  csc_logging::CSCLogging::LogError(std::string("libLumoConnectorShared: no ") + what +
                                    " is configured for " + operationTypeId);
}

}  // namespace

lumo_connector::LumoTokenResult TokenOf(const HostConfig& config,
                                        const std::string& operationTypeId) {
  const auto* service = Find(config, operationTypeId);
  if (service != nullptr && service->token) return {kSuccess, *service->token};
  if (service == nullptr || service->tokenFile.empty()) {
    LogNotConfigured("token", operationTypeId);
    return {kNotConfigured, ""};
  }
  auto token = ReadToken(service->tokenFile);
  if (token.Ok()) return {kSuccess, std::move(token).Take()};
  csc_logging::CSCLogging::LogError(
      token.Failure()
          .WithContext("libLumoConnectorShared: cannot read token " + service->tokenFile)
          .Text());
  return {kUnreadable, ""};
}

lumo_connector::SCUrlResult UrlOf(const HostConfig& config, const std::string& operationTypeId) {
  const auto* service = Find(config, operationTypeId);
  if (service == nullptr || service->url.empty()) {
    LogNotConfigured("URL", operationTypeId);
    return {kNotConfigured, operationTypeId, ""};
  }
  return {kSuccess, operationTypeId, service->url};
}

}  // namespace platform_host
