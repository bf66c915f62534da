/// Whole files, read and replaced: every byte arrives or an errno says why not. Used by the client
/// and the host platform alike; any thread, no state. Header-only; an implementation of the
/// platform keeps this file as it is.
#ifndef SUPPORT_FILECONTENTS_H
#define SUPPORT_FILECONTENTS_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>
#include <system_error>

#include "support/UniqueFd.h"

namespace support {

/// What an errno means, for log lines.
[[nodiscard]] inline std::string ErrorText(int error) {
  return std::generic_category().message(error);
}

/// Reads all of `path` into `contents`. Returns 0 or an errno: EFBIG when it holds more than
/// `limit` bytes; then, and after every other failure, `contents` is empty. A growing or endless
/// file ends at the limit.
[[nodiscard]] inline int ReadFile(const std::string& path, std::size_t limit,
                                  std::string& contents) {
  contents.clear();
  // Not to block on a pipe that nobody writes to; one with a writer is waited for.
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file.IsOpen() || ::fcntl(file.Get(), F_SETFL, 0) != 0) return errno;
  struct stat status {};
  if (::fstat(file.Get(), &status) != 0) return errno;
  const auto announced = static_cast<std::size_t>(status.st_size > 0 ? status.st_size : 0);
  if (announced > limit) return EFBIG;
  std::string bytes;
  std::size_t used = 0;
  for (;;) {
    // One byte above the announced size shows the end of an honest file without another round.
    if (used == bytes.size()) bytes.resize(used == 0 ? announced + 1 : used + 65536);
    const ssize_t count = ::read(file.Get(), &bytes[used], bytes.size() - used);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) break;
    used += static_cast<std::size_t>(count);
    if (used > limit) return EFBIG;
  }
  bytes.resize(used);
  contents.swap(bytes);
  return 0;
}

/// Writes all of `bytes`. Returns 0 or an errno.
[[nodiscard]] inline int WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return 0;
}

/// Makes what has been renamed, made or removed in `directory` survive a power loss. Returns 0 or
/// an errno.
[[nodiscard]] inline int SyncDirectory(const std::string& directory) {
  const UniqueFd fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return fd.IsOpen() && ::fsync(fd.Get()) == 0 ? 0 : errno;
}

/// Replaces the file at `path` by one with `bytes` and `mode` (whatever the umask): readers, and
/// the disk after a power loss, hold the old file or the new one, never a part. Returns 0 or an
/// errno; after a failure the old file stands (or, when only its directory could not be synced, the
/// new one). What is no file (a directory, a device, a link to one) is not
/// replaced: EISDIR, EINVAL.
[[nodiscard]] inline int ReplaceFile(const std::string& path, std::string_view bytes, mode_t mode) {
  struct stat present {};
  const bool exists = ::stat(path.c_str(), &present) == 0;
  if (exists && !S_ISREG(present.st_mode)) {
    return S_ISDIR(present.st_mode) ? EISDIR : EINVAL;
  }
  std::string temporary = path + ".XXXXXX";
  UniqueFd file(::mkostemp(temporary.data(), O_CLOEXEC));
  if (!file.IsOpen()) return errno;
  int error = WriteAll(file.Get(), bytes);
  if (error == 0 && (::fchmod(file.Get(), mode) != 0 || ::fsync(file.Get()) != 0)) error = errno;
  if (file.Close() != 0 && error == 0) error = errno;
  if (error == 0 && ::rename(temporary.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) {
    ::unlink(temporary.c_str());
    return error;
  }
  const auto slash = path.rfind('/');
  return SyncDirectory(slash == std::string::npos ? "." : path.substr(0, slash + 1));
}

}  // namespace support

#endif
