/// A trust store in memory, for tests of everything that stands on one. It keeps the contract of
/// ostra::tee::TrustStoreUpdateAPI (the contract tests run against it too), fails on request, and
/// tells what was asked of it. Any thread.
#ifndef TESTS_DOUBLES_FAKETRUSTSTORE_H
#define TESTS_DOUBLES_FAKETRUSTSTORE_H

#include <map>
#include <string>
#include <vector>

#include "ostra/tee/TrustStoreUpdateAPI.h"
#include "support/Mutex.h"

namespace tests {

/// Begins empty: nothing provisioned, nothing installed, nothing fails.
class FakeTrustStore : public ostra::tee::TrustStoreUpdateAPI {
 public:
  using Bundles = std::map<std::string, std::string>;

  /// Longest name that can be installed, as in a store that keeps each bundle in a file.
  static constexpr std::size_t kNameLimit = 244;

  [[nodiscard]] int ReadCertificateBundle(const std::string& name, std::string& pem) override
      EXCLUDES(mutex);
  [[nodiscard]] int InstallCertificateBundle(const std::string& name,
                                             const std::string& pem) override EXCLUDES(mutex);
  [[nodiscard]] int RemoveAllTrustStores() override EXCLUDES(mutex);

  /// Provisions the unit with a bundle: read where none is installed, never removed. Replaces an
  /// earlier one.
  void Provision(const std::string& name, const std::string& pem) EXCLUDES(mutex);

  /// The N-th call from now (1: the next one) fails, once, and changes nothing.
  void FailRead(unsigned nth) EXCLUDES(mutex);
  void FailInstall(unsigned nth) EXCLUDES(mutex);
  void FailRemoval(unsigned nth) EXCLUDES(mutex);

  /// What is installed now, by name.
  [[nodiscard]] Bundles Installed() const EXCLUDES(mutex);

  /// Every call so far, failed ones too, oldest first: "read NAME", "install NAME" or "remove all".
  [[nodiscard]] std::vector<std::string> Calls() const EXCLUDES(mutex);

 private:
  static bool Due(unsigned& countdown);

  mutable support::Mutex mutex;
  Bundles provisioned GUARDED_BY(mutex);
  Bundles installed GUARDED_BY(mutex);
  std::vector<std::string> calls GUARDED_BY(mutex);
  unsigned readsUntilFailure GUARDED_BY(mutex) = 0;
  unsigned installsUntilFailure GUARDED_BY(mutex) = 0;
  unsigned removalsUntilFailure GUARDED_BY(mutex) = 0;
};

}  // namespace tests

#endif
