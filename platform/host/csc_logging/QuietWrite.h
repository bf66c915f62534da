/// Writing to what may be a broken pipe without a signal. Any thread.
#ifndef PLATFORM_HOST_CSC_LOGGING_QUIETWRITE_H
#define PLATFORM_HOST_CSC_LOGGING_QUIETWRITE_H

#include <signal.h>

#include <cstddef>
#include <string_view>

namespace platform_host {

/// write(2), but the process hears of a broken pipe by EPIPE alone: a SIGPIPE would interrupt
/// whoever logs, and one whose handling is logged would come again and again. Other SIGPIPEs, those
/// that wait included, are not touched. Returns the number of bytes, or -1 and errno.
[[nodiscard]] std::ptrdiff_t QuietWrite(int descriptor, std::string_view bytes) noexcept;

/// The same for calls into a library that does not tell of each write: while it lives, this thread
/// gets no SIGPIPE, and one that came meanwhile is taken back in the end, unless one waited before.
/// Keeps errno.
class BrokenPipeShield {
 public:
  BrokenPipeShield() noexcept;
  ~BrokenPipeShield();
  BrokenPipeShield(const BrokenPipeShield&) = delete;
  BrokenPipeShield& operator=(const BrokenPipeShield&) = delete;

 private:
  sigset_t former{};
  bool waitedBefore = false;
};

}  // namespace platform_host

#endif
