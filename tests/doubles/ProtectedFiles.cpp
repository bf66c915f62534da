#include "tests/doubles/ProtectedFiles.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

namespace tests {

namespace {

thread_local bool inForce = false;

bool IsRefused(const char* path, int flags) {
  return inForce && (flags & O_CREAT) != 0 && ::access(path, F_OK) == 0;
}

}  // namespace

ProtectedFiles::ProtectedFiles() {
  inForce = true;
}

ProtectedFiles::~ProtectedFiles() {
  inForce = false;
}

}  // namespace tests

// The names that the linker's --wrap asks for.
extern "C" {
int __real_open(const char* path, int flags, ...);  // NOLINT: the linker's name
int __wrap_open(const char* path, int flags, ...);  // NOLINT: the linker's name

int __wrap_open(const char* path, int flags, ...) {  // NOLINT: the linker's name
  mode_t mode = 0;
  if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  if (tests::IsRefused(path, flags)) {
    errno = EACCES;
    return -1;
  }
  return __real_open(path, flags, mode);
}
}
