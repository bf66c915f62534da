/// The control socket of this process: a Unix stream socket, mode 0600, on which `tsuc-platformctl`
/// asks, a line of JSON each way (docs/host-platform.md). State management starts it.
#ifndef PLATFORM_HOST_CONTROL_CONTROLSERVER_H
#define PLATFORM_HOST_CONTROL_CONTROLSERVER_H

#include <memory>
#include <string>
#include <thread>

#include "platform/host/config/Result.h"
#include "platform/host/control/ControlBoard.h"

namespace platform_host {

class ControlLoop;

/// Serves on a thread of its own, "HostControl", while it lives. Its end waits for a request under
/// way, removes the socket and leaves no thread. Made and ended on any thread but its own.
class ControlServer {
 public:
  /// Serves requests at `path`, an absolute one, with `board`, which outlives the server; makes the
  /// directories above `path` if need be. While another process serves there (a daemon beside a run
  /// with `-f`), this one waits, without waking up, and takes its place when it ends. Fails with
  /// "PATH: reason" when the socket, or the lock file beside it, cannot be made. Does not wait.
  static Result<std::unique_ptr<ControlServer>> Start(const std::string& path, ControlBoard& board);

  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

 private:
  explicit ControlServer(std::unique_ptr<ControlLoop> opened);

  const std::unique_ptr<ControlLoop> loop;
  std::thread thread;
};

}  // namespace platform_host

#endif
