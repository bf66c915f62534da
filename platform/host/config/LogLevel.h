/// Severity of a log line, and its name in the configuration and in log files. Plain values: any
/// thread.
#ifndef PLATFORM_HOST_CONFIG_LOGLEVEL_H
#define PLATFORM_HOST_CONFIG_LOGLEVEL_H

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace platform_host {

/// In rising order of severity.
enum class LogLevel { kVerbose, kDebug, kInfo, kWarning, kError };

/// Indexed by LogLevel.
inline constexpr std::array<std::string_view, 5> kLogLevelNames = {"verbose", "debug", "info",
                                                                   "warning", "error"};

/// The level's name; the view lives as long as the process.
[[nodiscard]] constexpr std::string_view NameOf(LogLevel level) {
  return kLogLevelNames.at(static_cast<std::size_t>(level));
}

/// The level called `name`, exactly in this case; none when no level is called so.
[[nodiscard]] constexpr std::optional<LogLevel> LogLevelOf(std::string_view name) {
  for (std::size_t index = 0; index < kLogLevelNames.size(); ++index) {
    if (kLogLevelNames.at(index) == name) return static_cast<LogLevel>(index);
  }
  return std::nullopt;
}

}  // namespace platform_host

#endif
