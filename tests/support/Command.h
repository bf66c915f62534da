/// Programs that tests run as processes of their own. One object belongs to one thread.
#ifndef TESTS_SUPPORT_COMMAND_H
#define TESTS_SUPPORT_COMMAND_H

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "support/UniqueFd.h"

namespace tests {

/// A process that runs until it ends or its object does.
class Command {
 public:
  /// Runs `words`, the first one being the program's path; what it writes goes to the file at
  /// `outputPath`. Throws std::system_error when it cannot be started.
  Command(std::vector<std::string> words, const std::string& outputPath) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    // Opened here: whoever reads it at once finds it, though the process may not have begun.
    const support::UniqueFd output(
        ::open(outputPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    for (const int stream : {1, 2})
      ::posix_spawn_file_actions_adddup2(&actions, output.Get(), stream);
    const int error =
        ::posix_spawn(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::system_error(error, std::generic_category(), words[0]);
  }

  /// Kills it if need be.
  ~Command() { Kill(SIGKILL); }
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  void Signal(int number) const { ::kill(process, number); }

  /// Sends `number` and waits for the end. Does nothing when it has ended.
  void Kill(int number) {
    if (process < 0) return;
    Signal(number);
    static_cast<void>(Wait());
  }

  /// Waits for the end. Returns the exit status, or -1 after a signal.
  [[nodiscard]] int Wait() {
    int status = 0;
    ::waitpid(std::exchange(process, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t process = -1;
};

}  // namespace tests

#endif
