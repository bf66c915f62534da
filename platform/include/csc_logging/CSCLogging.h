/// The unit's log. Every component writes through these operations; where the lines go is the
/// platform's business.
///
/// All operations may be called from any thread, before InitLogging too, and until the process has
/// ended. None throws, and none fails in a way that a caller could act on. The text is outside text
/// in places: an implementation must not let its control characters forge lines.
#ifndef CSC_LOGGING_CSCLOGGING_H
#define CSC_LOGGING_CSCLOGGING_H

#include <string>
#include <string_view>

#include "csc_logging/CSCLogEntry.h"

namespace csc_logging {

/// The log of the process: one line a call, in the order of the calls of each thread.
class CSCLogging {
 public:
  /// Names the application to the log (DLT's application id, at most four characters) and opens the
  /// sinks. Lines written earlier go to standard error at level info and above.
  static void InitLogging(const std::string& applicationId) noexcept;

  static void LogVerbose(std::string_view text) noexcept;
  static void LogDebug(std::string_view text) noexcept;
  static void LogInfo(std::string_view text) noexcept;
  static void LogWarning(std::string_view text) noexcept;
  static void LogError(std::string_view text) noexcept;

  static void LogVerbose(const CSCLogEntry& entry) noexcept { LogVerbose(entry.Text()); }
  static void LogDebug(const CSCLogEntry& entry) noexcept { LogDebug(entry.Text()); }
  static void LogInfo(const CSCLogEntry& entry) noexcept { LogInfo(entry.Text()); }
  static void LogWarning(const CSCLogEntry& entry) noexcept { LogWarning(entry.Text()); }
  static void LogError(const CSCLogEntry& entry) noexcept { LogError(entry.Text()); }
};

}  // namespace csc_logging

#endif
