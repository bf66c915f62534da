/// When to try again what may succeed in a moment: at once, then after pauses that grow from 1 ms
/// to half a minute, then no more. For ControlLoop. Header-only; belongs to one thread at a time.
#ifndef PLATFORM_HOST_CONTROL_RETRYPLAN_H
#define PLATFORM_HOST_CONTROL_RETRYPLAN_H

#include <chrono>
#include <optional>

namespace platform_host {

/// Nothing is due until Begin. A plain value.
class RetryPlan {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  static constexpr std::chrono::milliseconds kFirstPause{1};
  static constexpr std::chrono::milliseconds kLongestPause{32768};

  /// After a pause of `longestPause` there is no other; without any, one attempt is all.
  explicit RetryPlan(std::chrono::milliseconds longestPause = kLongestPause)
      : longest(longestPause) {}

  /// The first attempt is due now.
  void Begin(TimePoint now) {
    pause = kFirstPause;
    next = now;
  }

  /// That attempt was in vain: the next one is due after a pause, or there is none.
  void Failed(TimePoint now) {
    next.reset();
    if (pause <= longest) next = now + pause;
    pause *= 2;
  }

  /// No more attempts.
  void End() { next.reset(); }

  /// Whether to try now.
  [[nodiscard]] bool IsDue(TimePoint now) const { return next && *next <= now; }

  /// When the next attempt is due, if there is to be one.
  [[nodiscard]] std::optional<TimePoint> Next() const { return next; }

 private:
  std::chrono::milliseconds longest;
  std::chrono::milliseconds pause = kFirstPause;
  std::optional<TimePoint> next;
};

}  // namespace platform_host

#endif
