/// From TOML text to HostConfig: the only place that knows the TOML library. For HostConfig alone.
/// Any thread.
#ifndef PLATFORM_HOST_CONFIG_CONFIGTEXT_H
#define PLATFORM_HOST_CONFIG_CONFIGTEXT_H

#include <string>
#include <string_view>

#include "platform/host/config/HostConfig.h"

namespace platform_host {

/// See HostConfig::Parse. REQUIRES: `text` is within HostConfig::kSizeLimit.
Result<HostConfig> ParseConfigText(std::string_view text, const std::string& fileName);

}  // namespace platform_host

#endif
