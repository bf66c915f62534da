/// The tables of the configuration whose values go straight into HostConfig. For ConfigText. Pure:
/// any thread.
#ifndef PLATFORM_HOST_CONFIG_HOSTKEYS_H
#define PLATFORM_HOST_CONFIG_HOSTKEYS_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/host/config/HostConfig.h"
#include "platform/host/config/KeyRule.h"

namespace platform_host {

/// The largest values of [limits]; the least is 1.
inline constexpr std::int64_t kMostResponseBytes = std::int64_t{1} << 30;
inline constexpr std::int64_t kMostExchangeSeconds = 3600;

/// Longest path of a Unix socket: what the system's address has room for (sun_path in unix(7)),
/// without the NUL byte behind it.
inline constexpr std::size_t kMaxSocketPathBytes = 107;

/// The keys of `table`, for example "logging"; null when there is no such table. Valid as long as
/// the process.
[[nodiscard]] const std::vector<KeyRule<HostConfig>>* HostKeys(std::string_view table);

}  // namespace platform_host

#endif
