/// Where the lines of this process's log go. For the host platform and for programs and tests that
/// want the lines themselves; the client only knows CSCLogging. Any thread.
#ifndef PLATFORM_HOST_CSC_LOGGING_LOGSINKS_H
#define PLATFORM_HOST_CSC_LOGGING_LOGSINKS_H

#include <memory>
#include <string_view>
#include <vector>

#include "platform/host/config/LogLevel.h"

namespace platform_host {

/// Receives log lines. Write is called from any thread, from several at once, without a lock held.
class LogSink {
 public:
  virtual ~LogSink() = default;

  /// Takes one line. `text` is outside text and may hold any byte; it lives for the call only. A
  /// line that cannot be kept is lost: there is nobody to tell.
  virtual void Write(LogLevel level, std::string_view text) noexcept = 0;
};

using LogSinkList = std::vector<std::shared_ptr<LogSink>>;

/// Sends every later line of `level` and above to `sinks` and nowhere else, until the next call or
/// the next CSCLogging::InitLogging. Access tokens in a line reach no sink (BearerTokens.h). A line
/// under way on another thread may still reach a sink that was replaced, which lives until then.
void ReplaceLogSinks(LogSinkList sinks, LogLevel level);

/// Sends every later line of every level to `capture` alone, exactly as it was logged, whatever the
/// sinks and the level are or become, until EndLogCapture. Captures nest: the newest one receives.
/// Tokens are not hidden from it: it is for the process itself, and writes to nobody else.
void BeginLogCapture(std::shared_ptr<LogSink> capture);

/// Ends what BeginLogCapture began; the order of ending does not matter. Does nothing for an
/// unknown sink.
void EndLogCapture(const LogSink* capture);

}  // namespace platform_host

#endif
