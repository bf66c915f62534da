/// For tests of code that waits: a wait that does not end fails its test instead of hanging it.
#ifndef TESTS_SUPPORT_DEADLINE_H
#define TESTS_SUPPORT_DEADLINE_H

#include <chrono>
#include <future>

namespace tests {

/// Far above what anything takes on a busy machine under a sanitizer.
inline constexpr std::chrono::seconds kDeadline{30};

/// Runs `call` on a thread of its own. True when it ended before the deadline; otherwise `release`,
/// which must make it end, is called from this thread. Blocks until `call` has ended.
template <typename Call, typename Release>
[[nodiscard]] bool EndsInTime(Call call, Release release) {
  const std::future<void> ended = std::async(std::launch::async, call);
  if (ended.wait_for(kDeadline) == std::future_status::ready) return true;
  release();
  ended.wait();
  return false;
}

}  // namespace tests

#endif
