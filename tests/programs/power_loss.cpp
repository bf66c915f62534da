// Preloaded into a program, ends it in the middle of its work on files, as a power loss would.
//
//   POWER_LOSS_AT=N        SIGKILL at its Nth call that writes to a file, renames, syncs, makes or
//                          removes one: nothing of it happens, or half of what a write brings
//   POWER_LOSS_CALLS=FILE  the name of each of these calls, a line each, is appended to FILE
//
// Sockets, pipes and terminals do not count: they survive nothing anyway. Any thread.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>

namespace {

// What the program would have called; the C library's own, or a sanitizer's.
template <typename Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

[[noreturn]] void LosePower() {
  ::kill(::getpid(), SIGKILL);
  for (;;) ::pause();
}

// By the kernel's own call: the C library's is counted here.
void WriteDown(const std::string& name) {
  static const char* const file = std::getenv("POWER_LOSS_CALLS");
  static const int calls =
      file == nullptr ? -1 : ::open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (calls == -1) return;
  const std::string line = name + "\n";
  ::syscall(SYS_write, calls, line.data(), line.size());
}

// Counts a call; whether it is the last one.
bool IsLast(const char* name) {
  static std::atomic<long> made{0};
  static const char* const text = std::getenv("POWER_LOSS_AT");
  static const long last = text == nullptr ? 0 : std::strtol(text, nullptr, 10);
  WriteDown(name);
  return ++made == last;
}

void Count(const char* name) {
  if (IsLast(name)) LosePower();
}

bool IsFile(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

extern "C" {

ssize_t write(int descriptor, const void* bytes, size_t size) {
  static auto* const next = Next<decltype(write)>("write");
  if (!IsFile(descriptor) || !IsLast("write")) return next(descriptor, bytes, size);
  next(descriptor, bytes, size / 2);
  LosePower();
}

ssize_t writev(int descriptor, const struct iovec* pieces, int count) {
  static auto* const next = Next<decltype(writev)>("writev");
  if (!IsFile(descriptor) || !IsLast("writev")) return next(descriptor, pieces, count);
  next(descriptor, pieces, count / 2);
  LosePower();
}

ssize_t pwrite64(int descriptor, const void* bytes, size_t size, off64_t offset) {
  static auto* const next = Next<decltype(pwrite64)>("pwrite64");
  if (!IsFile(descriptor) || !IsLast("pwrite")) return next(descriptor, bytes, size, offset);
  next(descriptor, bytes, size / 2, offset);
  LosePower();
}

ssize_t pwrite(int descriptor, const void* bytes, size_t size, off_t offset) {
  return pwrite64(descriptor, bytes, size, offset);
}

int ftruncate64(int descriptor, off64_t size) noexcept {
  static auto* const next = Next<int(int, off64_t)>("ftruncate64");
  Count("ftruncate");
  return next(descriptor, size);
}

int ftruncate(int descriptor, off_t size) noexcept {
  return ftruncate64(descriptor, size);
}

int fsync(int descriptor) {
  static auto* const next = Next<decltype(fsync)>("fsync");
  Count("fsync");
  return next(descriptor);
}

int fdatasync(int descriptor) {
  static auto* const next = Next<decltype(fdatasync)>("fdatasync");
  Count("fdatasync");
  return next(descriptor);
}

int rename(const char* from, const char* to) noexcept {
  static auto* const next = Next<int(const char*, const char*)>("rename");
  Count("rename");
  return next(from, to);
}

int renameat(int fromFolder, const char* from, int toFolder, const char* to) noexcept {
  static auto* const next = Next<int(int, const char*, int, const char*)>("renameat");
  Count("renameat");
  return next(fromFolder, from, toFolder, to);
}

int unlink(const char* path) noexcept {
  static auto* const next = Next<int(const char*)>("unlink");
  Count("unlink");
  return next(path);
}

int unlinkat(int folder, const char* path, int flags) noexcept {
  static auto* const next = Next<int(int, const char*, int)>("unlinkat");
  Count("unlinkat");
  return next(folder, path, flags);
}

int remove(const char* path) noexcept {
  static auto* const next = Next<int(const char*)>("remove");
  Count("remove");
  return next(path);
}

int rmdir(const char* path) noexcept {
  static auto* const next = Next<int(const char*)>("rmdir");
  Count("rmdir");
  return next(path);
}

int mkdir(const char* path, mode_t mode) noexcept {
  static auto* const next = Next<int(const char*, mode_t)>("mkdir");
  Count("mkdir");
  return next(path, mode);
}

}  // extern "C"
