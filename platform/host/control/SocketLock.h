/// Decides which of several processes serves the control socket: who holds the lock on the file
/// beside it. The kernel frees the lock when its holder ends, however it ends. For ControlLoop; one
/// thread at a time.
///
/// Who waits is told by inotify(7) when somebody closes the file, and need not wake up before. The
/// kernel tells that a moment before it frees the lock: try more than once.
#ifndef PLATFORM_HOST_CONTROL_SOCKETLOCK_H
#define PLATFORM_HOST_CONTROL_SOCKETLOCK_H

#include <string>

#include "support/UniqueFd.h"

namespace platform_host {

/// The lock belongs to the open file (F_OFD_SETLK in fcntl(2)), so that two of one process keep
/// each other out as well.
class SocketLock {
 public:
  /// `lockFile` is an absolute path. Touches nothing yet.
  explicit SocketLock(std::string lockFile) : path(std::move(lockFile)) {}

  /// Tries to take the lock, making the file (mode 0600, whatever the umask) and its directories
  /// (0755) if need be. Returns 0; EAGAIN when another has it: then Descriptor tells when to try
  /// again; or another errno. Links are not followed. Does not wait.
  [[nodiscard]] int Acquire();

  /// Readable when the lock may have become free; -1 while nobody waits for it.
  [[nodiscard]] int Descriptor() const { return watch.Get(); }

  /// Until something else happens, Descriptor is readable no more.
  void Clear() const;

  /// Gives the lock to whoever waits.
  void Release();

 private:
  /// Tries once. Returns as Acquire does.
  [[nodiscard]] int TryLock();

  /// Returns 0 or an errno.
  [[nodiscard]] int OpenFile();
  [[nodiscard]] int StartWatching();

  /// Whether the open file is still the one that others find: somebody may have cleared the
  /// directory.
  [[nodiscard]] bool IsFileInPlace() const;

  const std::string path;
  support::UniqueFd file;
  support::UniqueFd watch;
};

}  // namespace platform_host

#endif
