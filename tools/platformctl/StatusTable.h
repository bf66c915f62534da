/// The status of a process as people read it. For StatusCommand. Pure: any thread.
#ifndef TOOLS_PLATFORMCTL_STATUSTABLE_H
#define TOOLS_PLATFORMCTL_STATUSTABLE_H

#include <nlohmann/json.hpp>
#include <string>

namespace platformctl {

/// Lines for `status`, an object whose members are the parts: a part that is missing is shown as
/// "-", one that could not be had with its error, one that is not known here as it is. Control
/// characters of outside text appear as "\xNN". Throws std::bad_alloc.
[[nodiscard]] std::string FormatStatus(const nlohmann::json& status);

}  // namespace platformctl

#endif
