/// `tsc report`: reads the status report that a unit sends to its backend. Any thread; blocks for
/// as long as the file system does.
#ifndef TOOLS_TSC_REPORTCOMMAND_H
#define TOOLS_TSC_REPORTCOMMAND_H

#include <cstddef>
#include <iosfwd>
#include <string>

namespace tsc {

/// The largest report that is read: far above any that a unit sends.
inline constexpr std::size_t kMaxReportBytes = std::size_t{64} * 1024;

/// The command's options as they were given.
struct ReportOptions {
  std::string file = "-";  ///< "-": standard input
  bool json = false;
};

/// Shows status number, its name in the backend's schema ("unknown" without one) and container id
/// on `out`, outside text without its control characters; what is wrong goes to `err` as one line.
/// Returns a code of ExitCode.h.
[[nodiscard]] int RunReport(const ReportOptions& options, std::ostream& out, std::ostream& err);

}  // namespace tsc

#endif
