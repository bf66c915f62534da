// The host platform's configuration: any text is either refused with a reason that names the file,
// or gives settings that its libraries can use.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/host/config/HostConfig.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using platform_host::HostConfig;
  const auto* text = reinterpret_cast<const char*>(data);
  const auto result = HostConfig::Parse(std::string_view(size == 0 ? "" : text, size), "f.toml");
  if (!result.Ok()) {
    Require(result.Failure().Text().compare(0, 6, "f.toml") == 0);
    return 0;
  }
  const HostConfig& config = result.Value();
  Require(size <= HostConfig::kSizeLimit);
  Require(config.trustStoreDirectory.front() == '/');
  Require(config.persistencyDirectory.front() == '/');
  for (const auto& file : config.logFiles) Require(file.front() == '/');
  return 0;
}
