#include "ostra/tee/TrustStoreUpdateAPI.h"

#include <map>
#include <stdexcept>

#include "csc_logging/CSCLogging.h"
#include "platform/host/config/HostConfig.h"
#include "platform/host/control/ControlBoard.h"
#include "platform/host/ostra_tee/BundleList.h"
#include "platform/host/ostra_tee/TrustStoreDirectory.h"
#include "platform/host/work_lock/WorkLock.h"
#include "support/Mutex.h"

namespace platform_host {
namespace {

/// The store that the configuration names. It asks for the configuration at every operation, so
/// that a broken one stops each of them and is told each time.
class ConfiguredTrustStore : public ostra::tee::TrustStoreUpdateAPI {
 public:
  int ReadCertificateBundle(const std::string& name, std::string& pem) override {
    pem.clear();
    auto* const store = Store();
    return store == nullptr ? 1 : store->ReadCertificateBundle(name, pem);
  }

  int InstallCertificateBundle(const std::string& name, const std::string& pem) override {
    auto* const store = Store();
    return store == nullptr ? 1 : store->InstallCertificateBundle(name, pem);
  }

  int RemoveAllTrustStores() override {
    auto* const store = Store();
    return store == nullptr ? 1 : store->RemoveAllTrustStores();
  }

 private:
  /// Null when the configuration cannot be used; the reason is in the log then.
  TrustStoreDirectory* Store() EXCLUDES(mutex) {
    const auto& config = HostConfig::OfProcess();
    if (!config.Ok()) {
      csc_logging::CSCLogging::LogError(config.Failure().WithContext("libtruststore").Text());
      return nullptr;
    }
    const std::string& directory = config.Value().trustStoreDirectory;
    WorkLock& lock = WorkLock::OfProcess(config.Value().WorkLockFile());
    const support::MutexLock guard(mutex);
    return &stores.try_emplace(directory, directory, lock).first->second;
  }

  /// What the control socket shows; a broken configuration is the part's error.
  [[nodiscard]] static nlohmann::json Bundles() {
    const auto& config = HostConfig::OfProcess();
    if (!config.Ok()) throw std::runtime_error(config.Failure().Text());
    nlohmann::json bundles = nlohmann::json::array();
    for (const auto& bundle : ListedBundle::AllIn(config.Value().trustStoreDirectory)) {
      bundles.push_back({{"name", bundle.name},
                         {"from", bundle.isInstalled ? "installed" : "factory"},
                         {"certificates", bundle.certificates}});
    }
    return bundles;
  }

  support::Mutex mutex;
  std::map<std::string, TrustStoreDirectory> stores GUARDED_BY(mutex);  ///< one, but in tests
  const std::unique_ptr<ControlBoard::Offer> offer =
      ControlBoard::OfProcess().OfferStatus("bundles", Bundles);
};

}  // namespace
}  // namespace platform_host

namespace ostra::tee {

std::shared_ptr<TrustStoreUpdateAPI> TrustStoreUpdateAPI::get_instance() {
  // Never destroyed: threads may work until the very end.
  static const auto* const instance = new std::shared_ptr<TrustStoreUpdateAPI>(
      std::make_shared<platform_host::ConfiguredTrustStore>());
  return *instance;
}

}  // namespace ostra::tee
