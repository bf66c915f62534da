/// What tests of a tool's commands share: a folder and two streams. Each test has an object of its
/// own.
#ifndef TESTS_SUPPORT_COMMANDTEST_H
#define TESTS_SUPPORT_COMMANDTEST_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/TemporaryDirectory.h"

namespace tests {

/// A folder, two streams, and short ways to files.
class CommandTest : public ::testing::Test {
 protected:
  /// The path of file `name` in the test's folder.
  [[nodiscard]] std::string Path(const std::string& name) const {
    return directory.Path() + "/" + name;
  }

  /// The path of file `name` of the test certificates.
  [[nodiscard]] static std::string Pki(const std::string& name) {
    const char* const folder = std::getenv("TSUC_TEST_PKI");
    EXPECT_NE(folder, nullptr) << "TSUC_TEST_PKI names no folder";
    return std::string(folder == nullptr ? "" : folder) + "/" + name;
  }

  /// Writes a file into the test's folder and returns its path.
  std::string Write(const std::string& name, const std::string& content) const {
    std::ofstream(Path(name), std::ios::binary) << content;
    return Path(name);
  }

  /// The content of a file; empty when there is none.
  [[nodiscard]] static std::string Read(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
  }

  const TemporaryDirectory directory;
  std::ostringstream out;
  std::ostringstream err;
};

}  // namespace tests

#endif
