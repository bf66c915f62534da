#include "platform/host/config/HostConfig.h"

#include <cerrno>
#include <cstdlib>
#include <map>
#include <utility>

#include "platform/host/config/ConfigText.h"
#include "support/FileContents.h"
#include "support/Mutex.h"

namespace platform_host {
namespace {

/// Every configuration that this process has read, by path. Never destroyed: threads may ask until
/// the very end.
class LoadedConfigs {
 public:
  const Result<HostConfig>& Get(const std::string& path) EXCLUDES(mutex) {
    if (const auto* known = Find(path)) return *known;
    auto loaded = HostConfig::Load(path);
    const support::MutexLock lock(mutex);
    // Of two threads that read it at once the first decides, and both use the same.
    return configs.emplace(path, std::move(loaded)).first->second;
  }

 private:
  const Result<HostConfig>* Find(const std::string& path) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    const auto found = configs.find(path);
    return found == configs.end() ? nullptr : &found->second;
  }

  support::Mutex mutex;
  std::map<std::string, Result<HostConfig>> configs GUARDED_BY(mutex);
};

}  // namespace

Result<HostConfig> HostConfig::Parse(std::string_view text, const std::string& fileName) {
  if (text.size() > kSizeLimit) return Error::OfErrno(EFBIG).WithContext(fileName);
  return ParseConfigText(text, fileName);
}

Result<HostConfig> HostConfig::Load(const std::string& path) {
  std::string text;
  const int error = support::ReadFile(path, kSizeLimit, text);
  if (error == ENOENT) {
    HostConfig defaults;
    defaults.missingFile = path;
    return defaults;
  }
  if (error != 0) return Error::OfErrno(error).WithContext(path);
  return Parse(text, path);
}

const Result<HostConfig>& HostConfig::OfProcess() {
  static auto* const configs = new LoadedConfigs;
  const char* named = ::secure_getenv(kPathVariable);
  return configs->Get(named != nullptr && *named != '\0' ? named : kDefaultPath);
}

}  // namespace platform_host
