/// The least that an installation has to do, written straight down: the yardstick of
/// installation_benchmark.
#ifndef BENCHMARKS_INSTALLATIONFLOOR_H
#define BENCHMARKS_INSTALLATIONFLOOR_H

#include <string>

namespace benchmarks {

/// Reads the container, decodes it, constructs every certificate by the library, validates the
/// signer's path, verifies the signature, and writes each bundle and two records durably below
/// `directory`. No check beyond that, no log, no second process to mind. Returns 0; throws or
/// aborts on anything unexpected.
[[nodiscard]] int InstallFloor(const std::string& containerFile, const std::string& directory);

}  // namespace benchmarks

#endif
