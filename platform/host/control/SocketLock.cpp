#include "platform/host/control/SocketLock.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>

#include "platform/host/files/Directories.h"

namespace platform_host {
namespace {

constexpr mode_t kMode = 0600;

/// Closed by a holder or by somebody else who waits; removed or replaced.
constexpr unsigned kEvents = IN_CLOSE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;

int LockWhole(int fd) {
  struct flock range {};
  range.l_type = F_WRLCK;
  range.l_whence = SEEK_SET;
  if (::fcntl(fd, F_OFD_SETLK, &range) == 0) return 0;
  return errno == EACCES ? EAGAIN : errno;
}

}  // namespace

int SocketLock::Acquire() {
  int error = TryLock();
  // The holder may end before anybody watches, so there is an attempt after that; and the file that
  // is watched may be replaced.
  while (error == EAGAIN && !watch.IsOpen()) {
    error = StartWatching();
    if (error == 0) error = TryLock();
  }
  if (error == 0) watch = support::UniqueFd();
  return error;
}

void SocketLock::Clear() const {
  alignas(inotify_event) std::array<char, 4096> events{};
  while (::read(watch.Get(), events.data(), events.size()) > 0) {
  }
}

void SocketLock::Release() {
  watch = support::UniqueFd();
  file = support::UniqueFd();
}

int SocketLock::TryLock() {
  if (!IsFileInPlace()) {
    const int error = OpenFile();
    if (error != 0) return error;
  }
  const int error = LockWhole(file.Get());
  // Between opening and locking the file may have been replaced.
  return error == 0 && !IsFileInPlace() ? EAGAIN : error;
}

int SocketLock::OpenFile() {
  Release();
  const int error = MakeDirectories(path.substr(0, std::max<std::size_t>(path.rfind('/'), 1)));
  if (error != 0) return error;
  file = support::UniqueFd(
      ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, kMode));
  if (!file.IsOpen()) return errno;
  struct stat status {};
  if (::fstat(file.Get(), &status) != 0) return errno;
  // Under a strange umask nobody else could open it and wait. Another user's file stays as it is.
  const bool isToChange = (status.st_mode & 07777U) != kMode && status.st_uid == ::geteuid();
  return isToChange && ::fchmod(file.Get(), kMode) != 0 ? errno : 0;
}

int SocketLock::StartWatching() {
  if (watch.IsOpen()) return 0;
  support::UniqueFd started(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  if (!started.IsOpen()) return errno;
  if (::inotify_add_watch(started.Get(), path.c_str(), kEvents | IN_DONT_FOLLOW) < 0) {
    // Just removed: the next attempt makes it anew.
    return errno == ENOENT ? 0 : errno;
  }
  watch = std::move(started);
  return 0;
}

bool SocketLock::IsFileInPlace() const {
  struct stat opened {};
  struct stat found {};
  return ::fstat(file.Get(), &opened) == 0 && ::lstat(path.c_str(), &found) == 0 &&
         opened.st_dev == found.st_dev && opened.st_ino == found.st_ino;
}

}  // namespace platform_host
