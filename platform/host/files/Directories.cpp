#include "platform/host/files/Directories.h"

#include <sys/stat.h>

#include <cerrno>

#include "support/FileContents.h"

namespace platform_host {
namespace {

constexpr mode_t kMode = 0755;

std::string ParentOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

/// Returns 0 or an errno.
int CheckDirectory(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return errno;
  return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
}

/// Another process may have made it first: then its mode is that process's business.
int MakeDirectory(const std::string& path) {
  int error = CheckDirectory(path);
  if (error != ENOENT) return error;
  if (::mkdir(path.c_str(), kMode) != 0) {
    error = errno == EEXIST ? CheckDirectory(path) : errno;
    // A link that leads nowhere is in the way, not missing.
    return error == ENOENT ? ENOTDIR : error;
  }
  if (::chmod(path.c_str(), kMode) != 0) return errno;
  return support::SyncDirectory(ParentOf(path));
}

}  // namespace

int MakeDirectories(const std::string& path) {
  for (auto slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    const int error = MakeDirectory(path.substr(0, slash));
    if (error != 0) return error;
  }
  return MakeDirectory(path);
}

}  // namespace platform_host
