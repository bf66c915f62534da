/// Numbers of things in sentences. No state; any thread.
#ifndef TOOLS_TSC_COUNTED_H
#define TOOLS_TSC_COUNTED_H

#include <cstddef>
#include <string>

namespace tsc {

/// "1 bundle", "2 bundles": the number and its `noun`, which is given in the singular.
[[nodiscard]] inline std::string Counted(std::size_t number, const std::string& noun) {
  return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

}  // namespace tsc

#endif
