// The host platform's configuration: any text is either refused with a reason that names the file,
// or gives settings that its libraries can use.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/Require.h"
#include "platform/host/config/HostConfig.h"

namespace {

using fuzz::Require;

bool IsPathOrEmpty(const std::string& text) {
  return text.empty() || text.front() == '/';
}

void RequireUsable(const platform_host::BrokerConfig& broker) {
  Require(!broker.host.empty() && !broker.clientId.empty(), "a broker has host and client id");
  Require(broker.port >= 1 && broker.keepAlive.count() >= 5, "its numbers are in range");
  Require(IsPathOrEmpty(broker.caFile) && IsPathOrEmpty(broker.certFile), "its files are paths");
  Require(broker.certFile.empty() == broker.keyFile.empty(), "its certificate has a key");
  Require(broker.certFile.empty() || !broker.caFile.empty(), "its TLS is verified");
}

void RequireUsable(const platform_host::ServiceConfig& service) {
  Require(!service.token || service.tokenFile.empty(), "a token has one source");
  Require(service.caFile.empty() || service.bundle.empty(), "anchors have one source");
  Require(!service.IsTls() || service.caFile != service.bundle, "TLS has anchors");
  Require(service.url.empty() || service.url.compare(0, 4, "http") == 0, "a URL has its scheme");
  Require(IsPathOrEmpty(service.tokenFile) && IsPathOrEmpty(service.caFile), "files are paths");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using platform_host::HostConfig;
  const auto* text = reinterpret_cast<const char*>(data);
  const auto result = HostConfig::Parse(std::string_view(size == 0 ? "" : text, size), "f.toml");
  if (!result.Ok()) {
    Require(result.Failure().Text().compare(0, 6, "f.toml") == 0, "a refusal names the file");
    return 0;
  }
  const HostConfig& config = result.Value();
  Require(size <= HostConfig::kSizeLimit, "a long file is refused");
  Require(config.trustStoreDirectory.front() == '/', "the trust store is an absolute path");
  Require(config.persistencyDirectory.front() == '/', "the persistency is an absolute path");
  Require(config.controlSocket.front() == '/' && config.controlSocket.size() < 108,
          "the control socket is an absolute path that fits into an address");
  for (const auto& file : config.logFiles)
    Require(file.front() == '/', "a log file is an absolute path");
  Require(config.limits.responseBytes >= 1, "an answer may have a byte");
  Require(config.limits.duration.count() >= 1, "an exchange may take a second");
  if (config.broker) RequireUsable(*config.broker);
  for (const auto& [id, service] : config.services) RequireUsable(service);
  return 0;
}
