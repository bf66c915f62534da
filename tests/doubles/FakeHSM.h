/// A trust store facade in memory, for tests of what calls it and in which order.
#ifndef TESTS_DOUBLES_FAKEHSM_H
#define TESTS_DOUBLES_FAKEHSM_H

#include <map>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/HSMIf.h"

namespace tests {

/// Every check passes and every operation succeeds unless a test says otherwise. One thread.
class FakeHSM : public truststore_update_client::HSMIf {
 public:
  using Certificates = std::vector<Botan::X509_Certificate>;

  [[nodiscard]] bool GetInstalledContainerId(std::string& installedId) override {
    installedId = id;
    return id.empty();
  }
  [[nodiscard]] bool SetInstalledContainerId(const std::string& newId) override {
    return Do("set id " + newId, [&] { id = newId; });
  }
  [[nodiscard]] bool SetInstalledContainerTimestamp(std::uint32_t newTimestamp) override {
    return Do("set timestamp " + std::to_string(newTimestamp), [&] { timestamp = newTimestamp; });
  }
  [[nodiscard]] std::uint32_t GetInstalledContainerTimestamp() override { return timestamp; }
  [[nodiscard]] bool RemoveAllTrustStores() override {
    return Do("remove all", [&] {
      bundles.clear();
      id.clear();
      timestamp = 0;
    });
  }
  [[nodiscard]] bool InstallCertificateBundle(const std::string& name,
                                              const std::string& pem) override {
    return Do("install " + name, [&] { bundles[name] = pem; });
  }
  [[nodiscard]] bool Signature_Verify(const Botan::X509_Certificate&, std::string_view,
                                      std::string_view) override {
    return Do("verify signature", [] {});
  }
  [[nodiscard]] bool X5CPathValidation(const Certificates&) const override {
    return Do("validate path", [] {});
  }
  [[nodiscard]] int X5COcspValidation(const Certificates&) override {
    return Do("check revocation", [] {}) ? 1 : 0;
  }
  void DisableUpdateRetries(bool disable) override {
    calls.push_back(disable ? "disable retries" : "enable retries");
  }

  mutable std::vector<std::string> calls;  ///< oldest first, failed ones included
  mutable std::map<std::string, int>
      failing;  ///< call to how many of its next occurrences fail; -1: all
  std::map<std::string, std::string> bundles;
  std::string id;
  std::uint32_t timestamp = 0;

 private:
  template <typename Effect>
  bool Do(const std::string& call, Effect effect) const {
    calls.push_back(call);
    const auto entry = failing.find(call);
    if (entry != failing.end() && entry->second != 0) {
      if (entry->second > 0) --entry->second;
      return true;
    }
    effect();
    return false;
  }
};

}  // namespace tests

#endif
