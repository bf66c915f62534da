/// A unit of its own for tests of code that uses the client's fixed paths: /run and /var/lib are
/// empty, and nothing of the machine is touched. Made while the test runs no other thread.
#ifndef TESTS_SUPPORT_FRESHUNIT_H
#define TESTS_SUPPORT_FRESHUNIT_H

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "tests/doubles/ChildProcess.h"
#include "tests/support/Deadline.h"

namespace tests {

/// Gives this process mounts of its own, as root or not, with empty directories in place of /run
/// and /var/lib. False where the kernel does not allow it. For a process that ends soon.
[[nodiscard]] inline bool TakeOwnDirectories() {
  const uid_t user = ::geteuid();
  if (::unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0) return false;
  if (user != 0) {
    // Files can only be made by users that the new namespace knows; user_namespaces(7).
    std::ofstream("/proc/self/uid_map") << user << ' ' << user << " 1";
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/gid_map") << ::getegid() << ' ' << ::getegid() << " 1";
  }
  return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         ::mount("tmpfs", "/run", "tmpfs", 0, nullptr) == 0 &&
         ::mount("tmpfs", "/var/lib", "tmpfs", 0, nullptr) == 0;
}

/// Runs `body` on a fresh unit, in a child process: its EXPECTs count, its destructors run, those
/// of the caller's objects do not. Skips the test where a unit of its own cannot be had.
template <typename Body>
void RunOnFreshUnit(Body body) {
  constexpr int kFailed = 1;
  constexpr int kNoUnit = 77;
  std::fflush(stdout);
  ChildProcess child([&] {
    if (!TakeOwnDirectories()) return kNoUnit;
    ::alarm(static_cast<unsigned>(kDeadline.count()));
    body();
    std::fflush(stdout);
    return ::testing::Test::HasFailure() ? kFailed : 0;
  });
  const int result = child.Wait();
  if (result == kNoUnit) GTEST_SKIP() << "mount namespaces are not allowed here";
  EXPECT_EQ(result, 0) << "on the fresh unit; what failed there stands above";
}

}  // namespace tests

#endif
