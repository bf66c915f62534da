/// What `tsuc-platformctl` does once its options are read. For PlatformctlProgram; the process's
/// main thread. Each asks at the socket `path`, writes its answer to `out` or what is wrong to
/// `err`, and returns the exit code.
#ifndef TOOLS_PLATFORMCTL_COMMANDS_H
#define TOOLS_PLATFORMCTL_COMMANDS_H

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>

namespace platformctl {

/// How long the process may take to answer what it can answer at once.
inline constexpr std::chrono::seconds kAnswerLimit{10};

/// The longest time that a confirmation may be waited for.
inline constexpr std::int64_t kMostTimeoutSeconds = 86400;

struct StatusOptions {
  bool json = false;
};

struct StateOptions {
  std::string state;
  std::int64_t timeoutSeconds = 30;  ///< 1 to kMostTimeoutSeconds
};

struct ConnectionOptions {
  std::string state;  ///< "1" to "4", or "auto"
};

/// Shows the status: lines, or the JSON as the process gives it.
[[nodiscard]] int RunStatus(const std::string& path, const StatusOptions& options,
                            std::ostream& out, std::ostream& err);

/// Requests a state and waits for its confirmation.
[[nodiscard]] int RunState(const std::string& path, const StateOptions& options, std::ostream& out,
                           std::ostream& err);

/// Holds the connection state, or lets it follow the broker.
[[nodiscard]] int RunConnection(const std::string& path, const ConnectionOptions& options,
                                std::ostream& out, std::ostream& err);

}  // namespace platformctl

#endif
