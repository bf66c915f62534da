/// `tsc switches`: shows the development switches of a unit, or writes their file. The process's
/// main thread: it takes standard output for as long as it runs.
#ifndef TOOLS_TSC_SWITCHESCOMMAND_H
#define TOOLS_TSC_SWITCHESCOMMAND_H

#include <iosfwd>
#include <string>

namespace tsc {

/// The command's options as they were given.
struct SwitchesOptions {
  std::string file;    ///< empty: the unit's own
  bool init = false;   ///< write the default file instead
  bool force = false;  ///< with init: also over a file that exists
  bool json = false;
};

/// Shows each switch and its value on `out`, or writes the file; what the reader of the file
/// reports goes to `err`. A missing file is no failure: every switch is off then. One that cannot
/// be read or written is told with its cause. Returns a code of ExitCode.h.
[[nodiscard]] int RunSwitches(const SwitchesOptions& options, std::ostream& out, std::ostream& err);

}  // namespace tsc

#endif
