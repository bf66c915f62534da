/// Reading and writing small files in tests, by other code than the product's. No state.
#ifndef TESTS_SUPPORT_FILES_H
#define TESTS_SUPPORT_FILES_H

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace tests {

/// Writes `text` to `path`, whatever was there. Throws std::runtime_error when it cannot.
inline void WriteText(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path);
}

/// Every byte of the file at `path`. Throws std::runtime_error when it cannot be opened.
[[nodiscard]] inline std::string ReadText(const std::string& path) {
  const std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot open " + path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

/// The names in `directory`, sorted. Throws std::filesystem::filesystem_error.
[[nodiscard]] inline std::vector<std::string> NamesIn(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

/// A file of `size` bytes, all zero, that takes no room on the disk. Throws std::runtime_error and
/// std::filesystem::filesystem_error.
inline void WriteSparse(const std::string& path, std::size_t size) {
  WriteText(path, "");
  std::filesystem::resize_file(path, size);
}

}  // namespace tests

#endif
