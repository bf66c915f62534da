/// The command line of `tsc`: reads the options and runs the command. The process's main thread.
#ifndef TOOLS_TSC_TSCPROGRAM_H
#define TOOLS_TSC_TSCPROGRAM_H

#include <iosfwd>
#include <string>
#include <vector>

namespace tsc {

/// Runs the command that `arguments` (without the program's name) ask for. Answers go to `out`,
/// what is wrong to `err`. Returns the exit code: that of a file that cannot be written when `out`
/// does not take all of the answer. Does not throw but for exhausted memory.
[[nodiscard]] int RunTsc(std::vector<std::string> arguments, std::ostream& out, std::ostream& err);

}  // namespace tsc

#endif
