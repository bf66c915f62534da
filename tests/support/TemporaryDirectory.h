/// A directory of its own for a test: each test makes one, and nothing of it is left. Not
/// synchronised; processes that a test forks leave by _exit, so that only the test itself removes
/// it.
#ifndef TESTS_SUPPORT_TEMPORARYDIRECTORY_H
#define TESTS_SUPPORT_TEMPORARYDIRECTORY_H

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace tests {

/// Made under TMPDIR (or /tmp) when constructed; removed with all its contents when destroyed.
class TemporaryDirectory {
 public:
  /// Throws std::system_error when it cannot be made.
  TemporaryDirectory() : path((std::filesystem::temp_directory_path() / "tsuc-test.XXXXXX")) {
    if (::mkdtemp(path.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), path);
    }
  }

  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  /// Absolute, without a slash at its end.
  [[nodiscard]] const std::string& Path() const { return path; }

 private:
  std::string path;
};

}  // namespace tests

#endif
