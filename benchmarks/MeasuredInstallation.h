/// What the benchmarks of installations share: a fresh unit in a folder, one installation on it by
/// the client, and a process whose costs the kernel counts. Called from one thread.
#ifndef BENCHMARKS_MEASUREDINSTALLATION_H
#define BENCHMARKS_MEASUREDINSTALLATION_H

#include <string>
#include <vector>

namespace benchmarks {

/// What the kernel counted for a process that has ended.
struct Cost {
  double cpuSeconds = 0;  ///< in user and kernel mode
  double peakMib = 0;     ///< the largest resident set
  int waitStatus = 0;     ///< as waitpid gives it; 0 after a good end
};

/// Runs `command` to its end, its standard output closed. Throws std::runtime_error when it cannot
/// be started. A child's peak memory begins with that of its parent, so keep the caller small.
[[nodiscard]] Cost RunAndCount(const std::vector<std::string>& command);

/// Makes a unit below `directory`: the root of the test chain "p256-3" provisioned, `switches` as
/// its switches file, an empty store, its log in the file "log". Needs TSUC_TEST_PKI.
void MakeUnit(const std::string& directory, const std::string& switches);

/// Installs the file `container` on that unit in this process. Returns the status.
[[nodiscard]] int InstallByClient(const std::string& container, const std::string& directory);

}  // namespace benchmarks

#endif
