/// A container's timestamp between its texts and seconds since the epoch. Units run with their time
/// zone set to UTC, so everything here is UTC. No state; any thread.
#ifndef TOOLS_TSC_TIMESTAMPS_H
#define TOOLS_TSC_TIMESTAMPS_H

#include <cstdint>
#include <optional>
#include <string>

namespace tsc {

/// What ParseTimestamp reads, for messages.
inline constexpr const char* kTimestampForms =
    "now, YYYY-MM-DDThh:mm:ss in UTC, or seconds since the epoch";

/// Reads "now" (which is `now`), seconds since the epoch in decimal, or YYYY-MM-DDThh:mm:ss with or
/// without a Z at its end. Empty for anything else, for dates that no calendar has, and for what 32
/// bits do not hold.
[[nodiscard]] std::optional<std::uint32_t> ParseTimestamp(const std::string& text,
                                                          std::uint32_t now);

/// As a container's header writes it: YYYY-MM-DDThh:mm:ss.
[[nodiscard]] std::string FormatTimestamp(std::uint32_t timestamp);

/// The clock's seconds since the epoch.
[[nodiscard]] std::uint32_t SecondsNow();

}  // namespace tsc

#endif
