/// What this process holds of the machine, for tests that find leaks. Any thread; the numbers hold
/// for the moment, while no other thread opens, starts or ends anything.
#ifndef TESTS_SUPPORT_PROCESSUSE_H
#define TESTS_SUPPORT_PROCESSUSE_H

#include <malloc.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

namespace tests {

/// Names in a folder of /proc/self that stand for something open or running.
[[nodiscard]] inline std::set<std::string> EntriesOf(const char* folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::error_code gone;
    // The descriptor that reads this folder is listed too, and is gone afterwards.
    const auto target = std::filesystem::read_symlink(entry.path(), gone);
    if (target.string().find("/proc/") != 0) names.insert(entry.path().filename().string());
  }
  return names;
}

/// The numbers of all open descriptors.
[[nodiscard]] inline std::set<std::string> OpenDescriptors() {
  return EntriesOf("/proc/self/fd");
}

/// The ids of all threads.
[[nodiscard]] inline std::set<std::string> RunningThreads() {
  return EntriesOf("/proc/self/task");
}

/// Those that run now and did not then. The system lists a thread that has been joined for a moment
/// more: one that ended just before then may be among them, or among these.
[[nodiscard]] inline std::set<std::string> ThreadsSince(const std::set<std::string>& then) {
  std::set<std::string> since;
  for (const std::string& id : RunningThreads()) {
    if (then.count(id) == 0) since.insert(id);
  }
  return since;
}

/// The names of all threads.
[[nodiscard]] inline std::multiset<std::string> RunningThreadNames() {
  std::multiset<std::string> names;
  for (const std::string& id : RunningThreads()) {
    std::string name;  // empty for a thread that has ended meanwhile
    std::ifstream file("/proc/self/task/" + id + "/comm");
    if (std::getline(file, name)) names.insert(name);
  }
  return names;
}

/// Bytes of the heap that are in use; 0 under a sanitizer, which finds leaks itself.
[[nodiscard]] inline std::size_t HeapInUse() {
  const auto use = ::mallinfo2();
  return use.uordblks + use.hblkhd;
}

}  // namespace tests

#endif
