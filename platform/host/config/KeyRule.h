/// What a key of the configuration holds, as a row of a table, free of the TOML library. For
/// ConfigText and the tables of keys beside it. Plain values.
#ifndef PLATFORM_HOST_CONFIG_KEYRULE_H
#define PLATFORM_HOST_CONFIG_KEYRULE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace platform_host {

/// Why a value cannot be used, as a part of a sentence; none: it was taken.
using Refusal = std::optional<std::string>;

/// Why a table cannot be used although each of its values can.
struct KeyRefusal {
  std::string_view key;  ///< the one to put right
  std::string reason;
};

/// One key of a table whose values go into a Target. Each `take` checks the value and keeps it.
template <typename Target>
struct KeyRule {
  using TakeText = Refusal (*)(const std::string&, Target&);
  using TakeNumber = Refusal (*)(std::int64_t, Target&);
  using TakeTexts = Refusal (*)(const std::vector<std::string>&, Target&);

  std::string_view key;
  std::variant<TakeText, TakeNumber, TakeTexts> take;  ///< its kind is the kind of the value
};

}  // namespace platform_host

#endif
