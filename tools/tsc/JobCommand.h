/// `tsc job`: writes the message that tells a unit which container to install. Any thread; blocks
/// for as long as the file system does.
#ifndef TOOLS_TSC_JOBCOMMAND_H
#define TOOLS_TSC_JOBCOMMAND_H

#include <iosfwd>
#include <string>

namespace tsc {

/// Stands for standard input or output in place of a file.
inline constexpr const char* kStandardStream = "-";

/// The command's options as they were given.
struct JobOptions {
  std::string id;
  std::string outputFile = kStandardStream;
  bool json = false;  ///< needs a file: two answers do not fit on standard output
};

/// Writes the message, the bytes that a unit's broker delivers, to the file or to `out`, and tells
/// about a file on `out`. What is wrong goes to `err`, a line each, and then nothing is written.
/// Returns a code of ExitCode.h.
[[nodiscard]] int RunJob(const JobOptions& options, std::ostream& out, std::ostream& err);

}  // namespace tsc

#endif
