#include "tests/doubles/FakeTrustStore.h"

namespace tests {
namespace {

bool HoldsCertificate(const std::string& pem) {
  const auto begin = pem.find("-----BEGIN CERTIFICATE-----");
  return begin != std::string::npos &&
         pem.find("-----END CERTIFICATE-----", begin) != std::string::npos;
}

}  // namespace

bool FakeTrustStore::Due(unsigned& countdown) {
  return countdown > 0 && --countdown == 0;
}

int FakeTrustStore::ReadCertificateBundle(const std::string& name, std::string& pem) {
  const support::MutexLock lock(mutex);
  calls.push_back("read " + name);
  pem.clear();
  if (Due(readsUntilFailure)) return 1;
  const auto newer = installed.find(name);
  const auto older = provisioned.find(name);
  const bool preferNewer = newer != installed.end() && HoldsCertificate(newer->second);
  if (!preferNewer && older != provisioned.end()) {
    pem = older->second;
  } else if (newer != installed.end()) {
    pem = newer->second;
  } else {
    return 1;
  }
  return 0;
}

int FakeTrustStore::InstallCertificateBundle(const std::string& name, const std::string& pem) {
  const support::MutexLock lock(mutex);
  calls.push_back("install " + name);
  if (Due(installsUntilFailure) || name.size() > kNameLimit) return 1;
  installed[name] = pem;
  return 0;
}

int FakeTrustStore::RemoveAllTrustStores() {
  const support::MutexLock lock(mutex);
  calls.emplace_back("remove all");
  if (Due(removalsUntilFailure)) return 1;
  installed.clear();
  return 0;
}

void FakeTrustStore::Provision(const std::string& name, const std::string& pem) {
  const support::MutexLock lock(mutex);
  provisioned[name] = pem;
}

void FakeTrustStore::FailRead(unsigned nth) {
  const support::MutexLock lock(mutex);
  readsUntilFailure = nth;
}

void FakeTrustStore::FailInstall(unsigned nth) {
  const support::MutexLock lock(mutex);
  installsUntilFailure = nth;
}

void FakeTrustStore::FailRemoval(unsigned nth) {
  const support::MutexLock lock(mutex);
  removalsUntilFailure = nth;
}

FakeTrustStore::Bundles FakeTrustStore::Installed() const {
  const support::MutexLock lock(mutex);
  return installed;
}

std::vector<std::string> FakeTrustStore::Calls() const {
  const support::MutexLock lock(mutex);
  return calls;
}

}  // namespace tests
