/// `tsc inspect`: shows what a container says. Any thread; blocks for as long as the file system
/// does.
#ifndef TOOLS_TSC_INSPECTCOMMAND_H
#define TOOLS_TSC_INSPECTCOMMAND_H

#include <iosfwd>
#include <string>

namespace tsc {

/// The command's options as they were given.
struct InspectOptions {
  std::string file;
  bool json = false;
};

/// Shows the container on `out`, outside text without its control characters; what is wrong goes to
/// `err` as one line. Returns a code of ExitCode.h.
[[nodiscard]] int RunInspect(const InspectOptions& options, std::ostream& out, std::ostream& err);

}  // namespace tsc

#endif
