/// How the process ends: the table of docs/platformctl.md and of `tsuc-platformctl --help`.
/// Constant: any thread.
#ifndef TOOLS_PLATFORMCTL_EXITCODE_H
#define TOOLS_PLATFORMCTL_EXITCODE_H

namespace platformctl {

inline constexpr int kDone = 0;
inline constexpr int kNotDone = 1;  ///< refused, not in time, or nobody serves
inline constexpr int kUsage = 2;    ///< wrong options, or a configuration that cannot be used

}  // namespace platformctl

#endif
