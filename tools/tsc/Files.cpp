#include "tools/tsc/Files.h"

#include "support/FileContents.h"

namespace tsc {

namespace {

constexpr mode_t kFileMode = 0644;

}  // namespace

platform_host::Result<std::string> ReadWholeFile(const std::string& path, std::size_t limit) {
  std::string contents;
  const int error = support::ReadFile(path, limit, contents);
  if (error != 0) return platform_host::Error::OfErrno(error).WithContext(path);
  return contents;
}

std::string ReplaceWholeFile(const std::string& path, std::string_view bytes) {
  const int error = support::ReplaceFile(path, bytes, kFileMode);
  return error == 0 ? "" : platform_host::Error::OfErrno(error).WithContext(path).Text();
}

}  // namespace tsc
