/// A second process for tests that need one. POSIX fork without exec: made while the test runs no
/// other thread.
#ifndef TESTS_DOUBLES_CHILDPROCESS_H
#define TESTS_DOUBLES_CHILDPROCESS_H

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace tests {

/// Runs an action and leaves with its result; killed when the object ends and the process still
/// runs. Belongs to one thread.
class ChildProcess {
 public:
  /// `action` returns the exit code, 0 to 255. It runs in the child only, which leaves without
  /// destructors.
  template <typename Action>
  explicit ChildProcess(Action action) : pid(::fork()) {
    if (pid == 0) ::_exit(action());
  }
  ~ChildProcess() {
    if (pid > 0) Kill();
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Kills the process and waits until the kernel has closed its files.
  void Kill() {
    ::kill(pid, SIGKILL);
    static_cast<void>(Wait());
  }

  /// Sends it a signal.
  void Signal(int number) const { ::kill(pid, number); }

  /// Waits for the end. Returns the exit code, or -1 when there was none.
  [[nodiscard]] int Wait() {
    int status = 0;
    const pid_t ended = ::waitpid(pid, &status, 0);
    pid = -1;
    return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid;
};

}  // namespace tests

#endif
