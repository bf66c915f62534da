/// The command line of `tsuc-platformctl`: reads the options and runs the command. The process's
/// main thread.
#ifndef TOOLS_PLATFORMCTL_PLATFORMCTLPROGRAM_H
#define TOOLS_PLATFORMCTL_PLATFORMCTLPROGRAM_H

#include <iosfwd>
#include <string>
#include <vector>

namespace platformctl {

/// Runs the command that `arguments` (without the program's name) ask for, at the control socket
/// that the host platform's configuration names. Answers go to `out`, what is wrong to `err`.
/// Returns the exit code: kNotDone when `out` does not take all of the answer. Does not throw but
/// for exhausted memory.
[[nodiscard]] int RunPlatformctl(std::vector<std::string> arguments, std::ostream& out,
                                 std::ostream& err);

}  // namespace platformctl

#endif
