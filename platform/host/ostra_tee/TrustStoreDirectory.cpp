#include "platform/host/ostra_tee/TrustStoreDirectory.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "platform/host/files/Directories.h"
#include "platform/host/files/FileName.h"
#include "platform/host/ostra_tee/BundleList.h"
#include "support/FileContents.h"

namespace platform_host {
namespace {

constexpr mode_t kFileMode = 0644;

void LogFailure(const Error& error) {
  csc_logging::CSCLogging::LogError(error.WithContext("libtruststore").Text());
}

std::string PathIn(const std::string& layer, const std::string& name) {
  return layer + "/" + FileNameOf(name) + ".pem";
}

/// Whether a link leads from `path` to a place that is not ours to write to.
bool IsLink(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

}  // namespace

TrustStoreDirectory::TrustStoreDirectory(std::string directory, WorkLock& workLock)
    : factory(directory + "/factory"),
      installed(directory + "/installed"),
      setAside(directory + "/removed"),
      root(std::move(directory)),
      work(workLock) {}

int TrustStoreDirectory::ReadCertificateBundle(const std::string& name, std::string& pem) {
  pem.clear();
  const auto turn = work.Begin(WorkLock::Purpose::kRead);
  if (!turn.Ok()) {
    LogFailure(turn.Failure().WithContext("cannot read bundle " + name));
    return 1;
  }
  const bool isInstalled = ReadLayer(installed, name, pem);
  if (isInstalled && CountCertificates(pem) > 0) return 0;
  std::string original;
  const bool isProvisioned = ReadLayer(factory, name, original);
  if (isProvisioned) pem.swap(original);
  return isInstalled || isProvisioned ? 0 : 1;
}

int TrustStoreDirectory::InstallCertificateBundle(const std::string& name, const std::string& pem) {
  const auto failure = Install(name, pem);
  if (failure) LogFailure(failure->WithContext("cannot install bundle " + name));
  return failure ? 1 : 0;
}

int TrustStoreDirectory::RemoveAllTrustStores() {
  const auto failure = RemoveInstalled();
  if (failure) LogFailure(failure->WithContext("cannot remove the installed bundles"));
  return failure ? 1 : 0;
}

bool TrustStoreDirectory::ReadLayer(const std::string& layer, const std::string& name,
                                    std::string& pem) const {
  const std::string path = PathIn(layer, name);
  const int error = support::ReadFile(path, kBundleLimit, pem);
  if (error == 0) return true;
  if (error != ENOENT && error != ENAMETOOLONG) {
    LogFailure(Error::OfErrno(error).WithContext(path).WithContext("cannot read bundle " + name));
  }
  return false;
}

std::optional<Error> TrustStoreDirectory::Install(const std::string& name, const std::string& pem) {
  if (pem.size() > kBundleLimit) return Error::OfErrno(EFBIG);
  const auto turn = work.Begin(WorkLock::Purpose::kChange);
  if (!turn.Ok()) return turn.Failure();
  if (turn.Value().IsStoreLost()) return Error("another process has begun a new store");
  const support::MutexLock lock(mutex);
  int error = MakeDirectories(installed);
  if (error == 0 && IsLink(installed)) error = ENOTDIR;
  if (error != 0) return Error::OfErrno(error).WithContext(installed);
  const std::string path = PathIn(installed, name);
  error = support::ReplaceFile(path, pem, kFileMode);
  if (error != 0) return Error::OfErrno(error).WithContext(path);
  return std::nullopt;
}

/// One rename takes all bundles away at once; deleting them is then no longer in anybody's sight,
/// and what a power loss leaves of it is deleted by the next removal. Temporary files go the same
/// way.
std::optional<Error> TrustStoreDirectory::RemoveInstalled() {
  auto begun = work.Begin(WorkLock::Purpose::kChange);
  if (!begun.Ok()) return begun.Failure();
  auto turn = std::move(begun).Take();
  int error = turn.BeginStore();
  if (error != 0) return Error::OfErrno(error).WithContext("cannot tell other processes");
  const support::MutexLock lock(mutex);
  error = DeleteSetAside();
  if (error != 0) return Error::OfErrno(error).WithContext(setAside);
  if (::rename(installed.c_str(), setAside.c_str()) != 0) {
    if (errno == ENOENT) return std::nullopt;
    return Error::OfErrno(errno).WithContext(installed);
  }
  error = support::SyncDirectory(root);
  if (error != 0) return Error::OfErrno(error).WithContext(root);
  error = DeleteSetAside();
  if (error != 0) {
    csc_logging::CSCLogging::LogWarning("libtruststore: cannot delete " + setAside + ": " +
                                        Error::OfErrno(error).Text());
  }
  return std::nullopt;
}

int TrustStoreDirectory::DeleteSetAside() const {
  std::error_code error;
  std::filesystem::remove_all(setAside, error);
  return error.value();
}

}  // namespace platform_host
