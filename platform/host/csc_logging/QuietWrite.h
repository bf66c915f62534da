/// Writing to what may be a broken pipe without a signal. Any thread.
#ifndef PLATFORM_HOST_CSC_LOGGING_QUIETWRITE_H
#define PLATFORM_HOST_CSC_LOGGING_QUIETWRITE_H

#include <cstddef>
#include <string_view>

namespace platform_host {

/// write(2), but the process hears of a broken pipe by EPIPE alone: a SIGPIPE would interrupt
/// whoever logs, and one whose handling is logged would come again and again. Other SIGPIPEs, those
/// that wait included, are not touched. Returns the number of bytes, or -1 and errno.
[[nodiscard]] std::ptrdiff_t QuietWrite(int descriptor, std::string_view bytes) noexcept;

}  // namespace platform_host

#endif
