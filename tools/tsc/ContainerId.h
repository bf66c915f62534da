/// What a unit can make of a container's id. No state; any thread.
#ifndef TOOLS_TSC_CONTAINERID_H
#define TOOLS_TSC_CONTAINERID_H

#include <string>
#include <string_view>
#include <vector>

namespace tsc {

/// True when JSON has to escape a character of `text`. Units take names and ids as raw JSON text:
/// an escape would arrive as written.
[[nodiscard]] bool NeedsEscape(std::string_view text);

/// One text for each objection to `id`; empty when a unit can install and record a container of
/// that id. Does not throw but for exhausted memory.
[[nodiscard]] std::vector<std::string> IdObjections(std::string_view id);

}  // namespace tsc

#endif
