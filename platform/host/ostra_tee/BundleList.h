/// What a reader of the trust store would find, for the control socket: every bundle with its
/// origin and number of certificates. No state: any thread.
#ifndef PLATFORM_HOST_OSTRA_TEE_BUNDLELIST_H
#define PLATFORM_HOST_OSTRA_TEE_BUNDLELIST_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace platform_host {

/// How many whole certificates in PEM there are: each a BEGIN line with an END line behind it
/// (of a file that was cut off, the end may be missing).
[[nodiscard]] std::size_t CountCertificates(std::string_view pem);

/// One bundle. Plain values.
struct ListedBundle {
  /// Bundles that are listed.
  static constexpr std::size_t kCountLimit = 4096;

  std::string name;
  bool isInstalled = false;  ///< otherwise the unit was provisioned with it
  std::size_t certificates = 0;

  /// The bundles of the trust store in `directory`, by name, as TrustStoreDirectory reads them:
  /// what is installed hides what was provisioned. What cannot be read is left out. Blocks for
  /// reading, of one bundle at a time; waits for nobody, so a change under way shows as far as it
  /// has come. Throws std::runtime_error above kCountLimit, and std::bad_alloc.
  static std::vector<ListedBundle> AllIn(const std::string& directory);
};

}  // namespace platform_host

#endif
