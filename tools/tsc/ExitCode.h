/// How the process ends: the table of docs/tsc.md and of `tsc --help`. Constant: any thread.
#ifndef TOOLS_TSC_EXITCODE_H
#define TOOLS_TSC_EXITCODE_H

namespace tsc {

inline constexpr int kDone = 0;
inline constexpr int kRefused =
    1;                            ///< a unit would refuse it, or an input is not what it should be
inline constexpr int kUsage = 2;  ///< wrong options
inline constexpr int kFileFailed = 3;  ///< a file could not be read or written

}  // namespace tsc

#endif
