/// How deep a configuration's keys nest, found before the text is parsed: the TOML library recurses
/// once for each part of a key, without a bound of its own. For ConfigText. Pure: any thread.
#ifndef PLATFORM_HOST_CONFIG_KEYDEPTH_H
#define PLATFORM_HOST_CONFIG_KEYDEPTH_H

#include <cstddef>
#include <optional>
#include <string_view>

namespace platform_host {

/// Dots in one statement: a table's header, or a key with its value. A dot in a string or in a
/// comment does not count. Keys in use have two.
inline constexpr std::size_t kMaxDots = 64;

/// The line, counted from 1, on which a statement of `text` passes kMaxDots; none when all keep to
/// it. Linear and without recursion. Right as far as `text` is well formed, which is as far as a
/// parser gets.
[[nodiscard]] std::optional<std::size_t> FindDeepKey(std::string_view text);

}  // namespace platform_host

#endif
