/// Checks that several keys of the configuration share. Each takes a value into its target, or says
/// why it cannot be used and leaves the target alone. For the tables of keys; IsToken also for who
/// reads a token elsewhere. Pure: any thread.
#ifndef PLATFORM_HOST_CONFIG_VALUECHECKS_H
#define PLATFORM_HOST_CONFIG_VALUECHECKS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/host/config/KeyRule.h"

namespace platform_host {

/// Longest access token.
inline constexpr std::size_t kMaxTokenBytes = 16384;

/// A range of integers, both ends included.
struct Range {
  std::int64_t least;
  std::int64_t most;
};

/// A port number; 0 means none to the system.
inline constexpr Range kPorts{1, 65535};

/// An absolute path that the system can open: a NUL byte would end it early.
[[nodiscard]] Refusal TakePath(std::string_view value, std::string& target);

/// A text of at least one character, none of them a control character.
[[nodiscard]] Refusal TakeName(const std::string& value, std::string& target);

/// As TakeName, without blanks.
[[nodiscard]] Refusal TakeHost(const std::string& value, std::string& target);

/// Refuses what is out of `range`.
[[nodiscard]] Refusal CheckRange(std::int64_t value, const Range& range);

/// A port.
[[nodiscard]] Refusal TakePort(std::int64_t value, std::uint16_t& target);

/// A number of seconds within `range`.
[[nodiscard]] Refusal TakeSeconds(std::int64_t value, const Range& range,
                                  std::chrono::seconds& target);

/// Whether `text` can be sent as an access token: 1 to kMaxTokenBytes visible ASCII characters (RFC
/// 6750 section 2.1 allows fewer, RFC 9110 section 5.5 no more without quotes).
[[nodiscard]] bool IsToken(std::string_view text);

}  // namespace platform_host

#endif
