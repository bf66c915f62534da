/// `tsc create`: writes a signed container. Any thread; blocks for as long as the file system does.
#ifndef TOOLS_TSC_CREATECOMMAND_H
#define TOOLS_TSC_CREATECOMMAND_H

#include <iosfwd>
#include <string>
#include <vector>

namespace tsc {

/// The command's options as they were given.
struct CreateOptions {
  std::string keyFile;
  std::vector<std::string> chainFiles;  ///< leaf first
  std::string id;
  std::string timestamp = "now";
  std::vector<std::string> bundles;  ///< each NAME=FILE, or NAME= for a bundle without certificates
  std::string outputFile;
  std::string algorithm = "ES256";
  bool noCheck = false;  ///< write what a unit would refuse, too
  bool json = false;
};

/// Writes the container and tells about it on `out`; what is wrong goes to `err`, a line each, and
/// then nothing is written. Returns a code of ExitCode.h.
[[nodiscard]] int RunCreate(const CreateOptions& options, std::ostream& out, std::ostream& err);

}  // namespace tsc

#endif
