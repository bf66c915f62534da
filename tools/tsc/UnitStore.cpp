#include "tools/tsc/UnitStore.h"

#include <cerrno>

#include "platform/host/config/HostConfig.h"
#include "platform/host/files/FileName.h"
#include "platform/host/ostra_tee/TrustStoreDirectory.h"

namespace tsc {

using platform_host::Error;
using platform_host::FileNameOf;

namespace {

std::string Told(const std::string& name, const Error& error) {
  return error.WithContext("cannot install bundle " + name).WithContext("libtruststore").Text();
}

}  // namespace

bool FitsStore(const std::string& name) {
  return FileNameOf(name).size() <= kMaxBundleFileNameBytes;
}

std::string StoreFailure(const std::string& name, const std::string& pem) {
  if (pem.size() > platform_host::TrustStoreDirectory::kBundleLimit) {
    return Told(name, Error::OfErrno(EFBIG));
  }
  if (FitsStore(name)) return "";
  const std::string installed = platform_host::HostConfig().trustStoreDirectory + "/installed/";
  const std::string path = installed + FileNameOf(name) + ".pem";
  return Told(name, Error::OfErrno(ENAMETOOLONG).WithContext(path));
}

}  // namespace tsc
