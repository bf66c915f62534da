/// A process that can open no more files, for tests of what code does then.
#ifndef TESTS_SUPPORT_DESCRIPTORLIMIT_H
#define TESTS_SUPPORT_DESCRIPTORLIMIT_H

#include <sys/resource.h>
#include <unistd.h>

#include "support/UniqueFd.h"

namespace tests {

/// While it lives, every new descriptor's number is below `count`, for all threads. One at a time.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t count) {
    ::getrlimit(RLIMIT_NOFILE, &former);
    rlimit limit = former;
    limit.rlim_cur = count;
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
  ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &former); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

  /// The limit that the next descriptor would reach: under it none can be opened.
  [[nodiscard]] static rlim_t Used() {
    const support::UniqueFd lowestFree(::dup(STDERR_FILENO));
    return static_cast<rlim_t>(lowestFree.Get());
  }

 private:
  rlimit former{};
};

}  // namespace tests

#endif
