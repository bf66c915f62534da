/// `tsc verify`: what a unit would say to a container. Any thread; blocks for as long as the file
/// system does, and a responder where one is asked.
#ifndef TOOLS_TSC_VERIFYCOMMAND_H
#define TOOLS_TSC_VERIFYCOMMAND_H

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace tsc {

/// The command's options as they were given.
struct VerifyOptions {
  std::string file;
  std::vector<std::string> rootFiles;
  std::string installedId;
  std::string installedTimestamp = "0";
  std::string at = "now";
  std::string ocsp = "none";          ///< none, good or revoked
  std::vector<std::string> switches;  ///< keys of development switches that are on
  bool json = false;
  std::optional<std::string> ocspUrl = std::nullopt;  ///< asked in place of `ocsp`
  std::string ocspCa{};  ///< file of certificates that an https responder is verified against
};

/// Tells the unit's status and log lines on `out`; wrong options and files go to `err`. Nothing is
/// installed anywhere. Returns kDone when the unit would install the container, otherwise another
/// code of ExitCode.h.
[[nodiscard]] int RunVerify(const VerifyOptions& options, std::ostream& out, std::ostream& err);

}  // namespace tsc

#endif
