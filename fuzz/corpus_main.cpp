// Runs a fuzz target over the files of a folder, as an ordinary test: prints each name, so that the
// last one before a crash is the culprit. Exit 0 when all of them passed; a folder without seeds is
// an error.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "support/FileContents.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool RunSeed(const std::string& path) {
  std::printf("%s\n", path.c_str());
  std::fflush(stdout);
  std::string seed;
  if (support::ReadFile(path, std::numeric_limits<std::int32_t>::max(), seed) != 0) return false;
  // Exactly as long as the seed: AddressSanitizer then sees a read of the byte behind it.
  const std::vector<std::uint8_t> bytes(seed.begin(), seed.end());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  return true;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount != 2) {
    std::fprintf(stderr, "usage: %s FOLDER\n", arguments[0]);
    return 2;
  }
  std::vector<std::string> paths;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(arguments[1], error))
    paths.push_back(entry.path());
  std::sort(paths.begin(), paths.end());
  const bool passed = std::all_of(paths.begin(), paths.end(), RunSeed);
  if (error || paths.empty() || !passed) {
    std::fprintf(stderr, "unreadable or without seeds: %s\n", arguments[1]);
    return 1;
  }
  std::printf("%zu seeds passed\n", paths.size());
  return 0;
}
