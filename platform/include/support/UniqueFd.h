/// The one owner of a file descriptor. Not synchronised: each object belongs to one thread at a
/// time. Header-only; an implementation of the platform keeps this file as it is.
#ifndef SUPPORT_UNIQUEFD_H
#define SUPPORT_UNIQUEFD_H

#include <unistd.h>

#include <utility>

namespace support {

/// Closes its descriptor at the end of its life. Move-only; -1 means none.
class UniqueFd {
 public:
  explicit UniqueFd(int descriptor = -1) : fd(descriptor) {}
  UniqueFd(UniqueFd&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    std::swap(fd, other.fd);
    return *this;
  }
  ~UniqueFd() {
    if (fd >= 0) ::close(fd);
  }

  [[nodiscard]] int Get() const { return fd; }
  [[nodiscard]] bool IsOpen() const { return fd >= 0; }

  /// Gives the descriptor away: the caller's to close.
  [[nodiscard]] int Release() { return std::exchange(fd, -1); }

  /// Closes now and tells the result of close(2): 0, or -1 with errno set. For files whose last
  /// write may still fail.
  [[nodiscard]] int Close() { return ::close(std::exchange(fd, -1)); }

 private:
  int fd;
};

}  // namespace support

#endif
