/// How a process tells execution management in which state it is.
#ifndef ARA_EXEC_APPLICATIONCLIENT_H
#define ARA_EXEC_APPLICATIONCLIENT_H

#include <cstdint>

namespace ara::exec {

/// States that a process reports of itself.
enum class ApplicationState : std::uint8_t {
  kRunning = 0,
  kTerminating = 1,
};

/// A short-lived handle; any thread, any number at a time.
class ApplicationClient {
 public:
  /// Does not throw, and blocks for a second at most: the end of the process waits for it. Returns
  /// false for a report that could not be delivered; the platform has logged why.
  [[nodiscard]] bool ReportApplicationState(ApplicationState state) noexcept;
};

}  // namespace ara::exec

#endif
