#include "TruststoreUpdateClient/UpdateNotification.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "support/FileContents.h"
#include "support/UniqueFd.h"

namespace truststore_update_client {

namespace {

constexpr mode_t kDefaultMode = 0666;

// O_NONBLOCK: not to wait for the reader of a pipe. Truncated later: first it must be the right
// file.
constexpr int kOpenFlags = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

// What stands is opened without O_CREAT: in a directory like /tmp kernels refuse that flag even to
// the superuser when the file is another user's (fs.protected_regular).
int OpenOrMake(const std::string& path) {
  const int file = ::open(path.c_str(), kOpenFlags, kDefaultMode);
  if (file >= 0 || errno != ENOENT) return file;
  return ::open(path.c_str(), kOpenFlags | O_CREAT, kDefaultMode);
}

int CheckKind(int file) {
  struct stat status {};
  if (::fstat(file, &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  return status.st_nlink > 1 ? EMLINK : 0;
}

}  // namespace

int WriteUpdateNotification(const std::string& path, unsigned char value) {
  support::UniqueFd file(OpenOrMake(path));
  if (!file.IsOpen()) return errno;
  int error = CheckKind(file.Get());
  if (error == 0 && ::ftruncate(file.Get(), 0) != 0) error = errno;
  if (error == 0) error = support::WriteAll(file.Get(), std::to_string(unsigned{value}));
  if (file.Close() != 0 && error == 0) error = errno;
  return error;
}

}  // namespace truststore_update_client
