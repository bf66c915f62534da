/// The form of a log line in files and on standard error. Pure functions: any thread. They throw
/// std::bad_alloc only.
#ifndef PLATFORM_HOST_CSC_LOGGING_LINEFORMAT_H
#define PLATFORM_HOST_CSC_LOGGING_LINEFORMAT_H

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "platform/host/config/LogLevel.h"

namespace platform_host {

/// Bytes of the longest line, its line feed included: what Linux writes to a pipe in one piece
/// (PIPE_BUF), so that lines of several processes never mix, and far below the length at which the
/// journal would begin a line of its own.
inline constexpr std::size_t kLineLimit = 4096;

/// Ends a line of which a part was cut off.
inline constexpr std::string_view kCutMark = " [cut]";

/// `text` with every byte that is a control character (C1 ones and DEL too) or no UTF-8 written as
/// "\xNN". At most `limit` bytes (at least the size of kCutMark); a longer one ends with kCutMark,
/// never inside a character.
[[nodiscard]] std::string EscapeLine(std::string_view text, std::size_t limit);

/// One line for files and terminals, UTC: "2024-07-05T11:02:03.004Z info TU text\n".
[[nodiscard]] std::string FormatLine(LogLevel level, std::string_view applicationId,
                                     std::string_view text,
                                     std::chrono::system_clock::time_point time);

/// One line for systemd's journal, which keeps the time itself and reads the priority from the
/// front (sd-daemon(3)):
/// "<6>TU text\n".
[[nodiscard]] std::string FormatJournalLine(LogLevel level, std::string_view applicationId,
                                            std::string_view text);

}  // namespace platform_host

#endif
