/// Log lines to a file or to standard error, each by one write(2), so that lines of several threads
/// and processes never mix. Any thread.
#ifndef PLATFORM_HOST_CSC_LOGGING_DESCRIPTORSINK_H
#define PLATFORM_HOST_CSC_LOGGING_DESCRIPTORSINK_H

#include <chrono>
#include <memory>
#include <string>

#include "platform/host/csc_logging/LogSinks.h"
#include "support/Mutex.h"
#include "support/UniqueFd.h"

namespace platform_host {

/// Writes to one descriptor. Write retries after a signal, and waits for a reader that is behind;
/// but a full disk loses the line, and so does a pipe or a terminal that nobody reads; a broken
/// pipe raises no signal. Once a wait was in vain no further line waits until there is room again,
/// so that a log that nobody reads never stops the unit.
class DescriptorSink : public LogSink {
 public:
  enum class Style { kTimestamp, kJournal };

  /// How long a line waits for room.
  static constexpr std::chrono::milliseconds kPatience{1000};

  /// Writes to `descriptor`, which is not closed and outlives this object. `applicationId` stands
  /// in each line.
  DescriptorSink(int descriptor, Style lineStyle, std::string applicationId,
                 std::chrono::milliseconds patience = kPatience);

  /// Writes to `descriptor` with timestamps, and closes it in the end.
  DescriptorSink(support::UniqueFd descriptor, std::string applicationId);

  void Write(LogLevel level, std::string_view text) noexcept override EXCLUDES(mutex);

 private:
  /// Whether a line can be written without blocking; waits for that at most `wait`, unless an
  /// earlier line waited in vain.
  bool AwaitRoom() REQUIRES(mutex);

  const support::UniqueFd owned;
  const int fd;
  const Style style;
  const std::string application;
  const std::chrono::milliseconds wait;

  /// Held from finding room to having written, lest another thread takes the room meanwhile.
  support::Mutex mutex;
  bool isStalled GUARDED_BY(mutex) = false;  ///< the last wait was in vain
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
