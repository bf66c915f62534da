/// The trust store as a directory (docs/host-platform.md describes its layout): factory/NAME.pem
/// was provisioned with the unit and is never touched, installed/NAME.pem is what updates install.
/// For the trust store library and its tests.
#ifndef PLATFORM_HOST_OSTRA_TEE_TRUSTSTOREDIRECTORY_H
#define PLATFORM_HOST_OSTRA_TEE_TRUSTSTOREDIRECTORY_H

#include <cstddef>
#include <optional>
#include <string>

#include "ostra/tee/TrustStoreUpdateAPI.h"
#include "platform/host/config/Result.h"
#include "platform/host/work_lock/WorkLock.h"
#include "support/Mutex.h"

namespace platform_host {

/// Keeps the contract of TrustStoreUpdateAPI. Every failure is one error line "libtruststore: ...",
/// but for a bundle that is simply not there. After RemoveAllTrustStores only bundles that belong
/// together stand: once another process has removed all, installing fails until this one removes
/// all again; one that never did may install. Operations block for the disk, and for another
/// process at work as WorkLock tells. Any thread; changes to one directory must go through one
/// object of the process.
class TrustStoreDirectory : public ostra::tee::TrustStoreUpdateAPI {
 public:
  /// Largest bundle that is installed or read.
  static constexpr std::size_t kBundleLimit = std::size_t{64} * 1024 * 1024;

  /// Touches nothing yet. `directory` is absolute and made when something is installed; `workLock`
  /// outlives this object.
  TrustStoreDirectory(std::string directory, WorkLock& workLock);

  [[nodiscard]] int ReadCertificateBundle(const std::string& name, std::string& pem) override;
  [[nodiscard]] int InstallCertificateBundle(const std::string& name,
                                             const std::string& pem) override;
  [[nodiscard]] int RemoveAllTrustStores() override;

 private:
  /// Whether `layer` has a readable bundle of this name, which is then in `pem` (empty otherwise).
  /// A file that cannot be read is told in the log: the other layer may still serve.
  bool ReadLayer(const std::string& layer, const std::string& name, std::string& pem) const;

  /// As InstallCertificateBundle; returns the failure, none after success.
  std::optional<Error> Install(const std::string& name, const std::string& pem) EXCLUDES(mutex);

  /// As RemoveAllTrustStores; returns the failure, none after success.
  std::optional<Error> RemoveInstalled() EXCLUDES(mutex);

  /// Deletes what was set aside; of a link, the link itself. Returns 0 or an errno.
  [[nodiscard]] int DeleteSetAside() const REQUIRES(mutex);

  const std::string factory;
  const std::string installed;
  const std::string setAside;
  const std::string root;
  WorkLock& work;

  /// Orders the changes of this process, so it is held over file operations. Taken after the turn:
  /// nobody queues behind a thread that waits for another process.
  support::Mutex mutex;
};

}  // namespace platform_host

#endif
