/// The socket that clients of the control socket connect to. For ControlLoop, once it holds the
/// SocketLock. One thread at a time.
#ifndef PLATFORM_HOST_CONTROL_CONTROLLISTENER_H
#define PLATFORM_HOST_CONTROL_CONTROLLISTENER_H

#include <sys/types.h>

#include <memory>
#include <string>

#include "platform/host/config/Result.h"
#include "support/UniqueFd.h"

namespace platform_host {

/// Removes its socket at its end, and never another's.
class ControlListener {
 public:
  /// Connections that the system keeps until they are accepted.
  static constexpr int kBacklog = 16;

  /// Listens at `path`, an absolute path in a directory that exists. A socket at which
  /// nobody listens, as a killed process leaves it, is replaced; anything else there is left alone.
  /// The mode is 0600 from the first instant, whatever the umask. Fails with "PATH: reason". Does
  /// not block.
  static Result<std::unique_ptr<ControlListener>> Open(const std::string& path);

  /// Whether some process listens at `path`. Its lock may have been lost: a lock file can be
  /// removed under its holder; or the process is just being killed, and the system has not closed
  /// its socket yet. Connects, so that process may notice. Does not block.
  [[nodiscard]] static bool IsServed(const std::string& path);

  ~ControlListener();
  ControlListener(const ControlListener&) = delete;
  ControlListener& operator=(const ControlListener&) = delete;

  /// Readable while a client waits.
  [[nodiscard]] int Descriptor() const { return socket.Get(); }

  /// The next client, non-blocking; none with errno EAGAIN when nobody waits, or another errno.
  [[nodiscard]] support::UniqueFd Accept() const;

 private:
  explicit ControlListener(std::string socketPath) : path(std::move(socketPath)) {}

  /// Returns 0 or an errno.
  [[nodiscard]] int Listen();

  /// Whether what stands at the path is what this object has made.
  [[nodiscard]] bool IsSocketInPlace() const;

  const std::string path;
  support::UniqueFd socket;
  dev_t device = 0;  ///< these two: of the path, 0 before it is there
  ino_t node = 0;
};

}  // namespace platform_host

#endif
