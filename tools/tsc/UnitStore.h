/// What the trust store of a unit can keep, for the commands that tell it beforehand. No state; any
/// thread.
#ifndef TOOLS_TSC_UNITSTORE_H
#define TOOLS_TSC_UNITSTORE_H

#include <cstddef>
#include <string>

namespace tsc {

/// The longest file name of a bundle: 255 bytes less ".pem" and the seven of a temporary file.
inline constexpr std::size_t kMaxBundleFileNameBytes = 244;

/// Whether a unit can make the file of bundle `name`. Letters, digits, '_', '-' and inner dots take
/// one byte of the file's name, every other byte three.
[[nodiscard]] bool FitsStore(const std::string& name);

/// Why a unit does not install bundle `name` with this `pem`, as its log tells; empty when it does.
/// The file is that of a unit whose configuration names no other directory.
[[nodiscard]] std::string StoreFailure(const std::string& name, const std::string& pem);

}  // namespace tsc

#endif
