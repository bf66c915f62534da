// The host platform's configuration: any text is either refused with a reason that names the file,
// or gives settings that its libraries can use.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/Require.h"
#include "platform/host/config/HostConfig.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using fuzz::Require;
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
  for (const auto& file : config.logFiles)
    Require(file.front() == '/', "a log file is an absolute path");
  return 0;
}
