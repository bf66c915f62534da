/// ostra::tee: the trust store of this platform. It lasts as long as the process, so that nothing
/// of it is durable; all else is as the header demands.
#ifndef TESTS_OTHER_PLATFORM_TRUSTSTOREINMEMORY_H
#define TESTS_OTHER_PLATFORM_TRUSTSTOREINMEMORY_H

#include <map>
#include <string>

#include "ostra/tee/TrustStoreUpdateAPI.h"
#include "support/Mutex.h"

namespace other_platform {

/// Any thread.
class TrustStoreInMemory : public ostra::tee::TrustStoreUpdateAPI {
 public:
  /// Bytes of one provisioned bundle.
  static constexpr std::size_t kBundleLimit = 1U << 20U;

  /// Bytes of the name of a bundle that can be installed.
  static constexpr std::size_t kNameLimit = 244;

  /// Nothing is installed; `factoryFolder`/NAME.pem is provisioned as NAME.
  explicit TrustStoreInMemory(const std::string& factoryFolder);

  [[nodiscard]] int ReadCertificateBundle(const std::string& name, std::string& pem) override
      EXCLUDES(mutex);
  [[nodiscard]] int InstallCertificateBundle(const std::string& name,
                                             const std::string& pem) override EXCLUDES(mutex);
  [[nodiscard]] int RemoveAllTrustStores() override EXCLUDES(mutex);

 private:
  using Bundles = std::map<std::string, std::string>;

  Bundles provisioned;  ///< constant after construction
  support::Mutex mutex;
  Bundles installed GUARDED_BY(mutex);
};

}  // namespace other_platform

#endif
