#include "tests/other_platform/TrustStoreInMemory.h"

#include <exception>
#include <filesystem>
#include <system_error>

#include "csc_logging/CSCLogging.h"
#include "support/FileContents.h"

namespace other_platform {
namespace {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

bool HoldsCertificate(const std::string& pem) {
  const auto begin = pem.find("-----BEGIN CERTIFICATE-----");
  return begin != std::string::npos &&
         pem.find("-----END CERTIFICATE-----", begin) != std::string::npos;
}

}  // namespace

TrustStoreInMemory::TrustStoreInMemory(const std::string& factoryFolder) {
  std::error_code noFolder;
  for (const auto& entry : std::filesystem::directory_iterator(factoryFolder, noFolder)) {
    std::string pem;
    if (entry.path().extension() != ".pem") continue;
    if (support::ReadFile(entry.path(), kBundleLimit, pem) == 0) {
      provisioned[entry.path().stem()] = pem;
    }
  }
}

int TrustStoreInMemory::ReadCertificateBundle(const std::string& name, std::string& pem) {
  pem.clear();
  const auto older = provisioned.find(name);
  try {
    const support::MutexLock lock(mutex);
    const auto newer = installed.find(name);
    if (newer == installed.end() && older == provisioned.end()) return 1;
    const bool hides =
        newer != installed.end() && (older == provisioned.end() || HoldsCertificate(newer->second));
    pem = hides ? newer->second : older->second;
    return 0;
  } catch (const std::exception&) {
    return 1;
  }
}

int TrustStoreInMemory::InstallCertificateBundle(const std::string& name, const std::string& pem) {
  if (name.size() > kNameLimit) {
    CSCLogging::LogError(CSCLogEntry()
                         << "other_platform: a bundle's name has " << name.size() << " bytes");
    return 1;
  }
  try {
    const support::MutexLock lock(mutex);
    installed.insert_or_assign(name, pem);
  } catch (const std::exception&) {
    CSCLogging::LogError("other_platform: no memory for a bundle");
    return 1;
  }
  CSCLogging::LogInfo(CSCLogEntry() << "other_platform: bundle '" << name << "' installed, "
                                    << pem.size() << " bytes");
  return 0;
}

int TrustStoreInMemory::RemoveAllTrustStores() {
  {
    const support::MutexLock lock(mutex);
    installed.clear();
  }
  CSCLogging::LogInfo("other_platform: installed bundles removed");
  return 0;
}

}  // namespace other_platform
