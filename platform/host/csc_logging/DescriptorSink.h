/// Log lines to a file or to standard error, each by one write(2), so that lines of several threads
/// and processes never mix. Any thread.
#ifndef PLATFORM_HOST_CSC_LOGGING_DESCRIPTORSINK_H
#define PLATFORM_HOST_CSC_LOGGING_DESCRIPTORSINK_H

#include <memory>
#include <string>

#include "platform/host/csc_logging/LogSinks.h"
#include "support/UniqueFd.h"

namespace platform_host {

/// Writes to one descriptor. Write retries after a signal only: a full disk or a full pipe loses
/// the line, and never stops the unit.
class DescriptorSink : public LogSink {
 public:
  enum class Style { kTimestamp, kJournal };

  /// Writes to `descriptor`, which is not closed and outlives this object. `applicationId` stands
  /// in each line.
  DescriptorSink(int descriptor, Style lineStyle, std::string applicationId);

  /// Writes to `descriptor` with timestamps, and closes it in the end.
  DescriptorSink(support::UniqueFd descriptor, std::string applicationId);

  void Write(LogLevel level, std::string_view text) noexcept override;

 private:
  const support::UniqueFd owned;
  const int fd;
  const Style style;
  const std::string application;
};

/// Whether `descriptor` is the connection to systemd's journal that `journalStream`, the value of
/// the environment variable JOURNAL_STREAM or null, names as "device:inode" (systemd.exec(5)).
[[nodiscard]] bool IsJournal(int descriptor, const char* journalStream);

/// The sink for standard error, in the journal's style when standard error leads there.
[[nodiscard]] std::shared_ptr<LogSink> MakeStandardErrorSink(const std::string& applicationId);

/// A sink that appends to the file at `path`, which is made with mode 0640 if need be. Returns null
/// and sets errno when it cannot be opened; does not block, also when `path` is a pipe that nobody
/// reads.
[[nodiscard]] std::shared_ptr<LogSink> OpenFileSink(const std::string& path,
                                                    const std::string& applicationId);

}  // namespace platform_host

#endif
