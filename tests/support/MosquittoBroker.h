/// A real broker on loopback, for tests: the mosquitto program with a folder and a port of its own.
/// One object belongs to one thread.
#ifndef TESTS_SUPPORT_MOSQUITTOBROKER_H
#define TESTS_SUPPORT_MOSQUITTOBROKER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/UniqueFd.h"
#include "tests/support/Command.h"
#include "tests/support/TemporaryDirectory.h"

namespace tests {

/// Keeps a port of 127.0.0.1 for one program to listen on, which sets SO_REUSEADDR; no other is
/// given it meanwhile.
class KeptPort {
 public:
  /// Throws std::system_error when there is none.
  KeptPort();

  [[nodiscard]] std::uint16_t Number() const { return number; }

 private:
  const support::UniqueFd socket;
  std::uint16_t number = 0;
};

/// Whether somebody accepts connections on `port` of 127.0.0.1.
[[nodiscard]] bool Accepts(std::uint16_t port);

/// Keeps its sessions and messages over a restart.
class MosquittoBroker {
 public:
  /// Does not run yet. `settings` are lines of mosquitto.conf(5), in place of "allow_anonymous
  /// true"; DIRECTORY in them means Directory().
  explicit MosquittoBroker(const std::string& settings = "allow_anonymous true\n");

  /// Starts it and waits until it accepts connections. Throws std::runtime_error when it does not
  /// before the deadline.
  void Start();

  /// Ends it: SIGTERM lets it store what it holds.
  void Stop(int signal = SIGTERM) { process->Kill(signal); }

  /// SIGSTOP, SIGCONT.
  void Signal(int number) const { process->Signal(number); }

  /// Publishes `payload` by the mosquitto_pub program, at quality of service 1. Returns whether the
  /// broker took it. `options` are further ones of that program.
  [[nodiscard]] bool Publish(const std::string& topic, const std::string& payload,
                             const std::vector<std::string>& options = {}) const;

  [[nodiscard]] std::uint16_t Port() const { return port.Number(); }
  [[nodiscard]] const std::string& Directory() const { return directory.Path(); }

  /// What it has logged.
  [[nodiscard]] std::string Log() const;

 private:
  const TemporaryDirectory directory;
  const KeptPort port;
  std::unique_ptr<Command> process;
};

}  // namespace tests

#endif
