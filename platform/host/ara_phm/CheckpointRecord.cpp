#include "platform/host/ara_phm/CheckpointRecord.h"

#include <algorithm>

namespace platform_host {

using std::chrono::ceil;
using std::chrono::duration_cast;
using std::chrono::milliseconds;

void CheckpointRecord::Expect(const std::optional<CheckpointRule>& newRule, Clock::time_point now) {
  if (rule == newRule) return;
  rule = newRule;
  start = now;
  times.clear();
  oldest = 0;
  lastWarning.reset();
}

CheckpointRecord::Arrival CheckpointRecord::Reached(Clock::time_point now) {
  Arrival arrival;
  if (rule) {
    const Clock::time_point due = Due();
    if (now > due) arrival.lateness = ceil<milliseconds>(now - due);
    Remember(now);
  }
  last = last ? std::max(*last, now) : now;
  ++count;
  if (arrival.lateness.count() == 0) return arrival;
  ++lateCount;
  const auto pause = std::max<milliseconds>(kWarningPause, rule->cycle);
  if (lastWarning && now - *lastWarning < pause) return arrival;
  lastWarning = now;
  arrival.isWarningDue = true;
  return arrival;
}

CheckpointRecord::Verdict CheckpointRecord::VerdictAt(Clock::time_point now) const {
  if (!rule) return Verdict::kNotConfigured;
  if (now <= start + rule->cycle) return Verdict::kStarting;
  return now <= Due() ? Verdict::kInTime : Verdict::kLate;
}

std::optional<milliseconds> CheckpointRecord::AgeAt(Clock::time_point now) const {
  if (!last) return std::nullopt;
  return std::max(milliseconds(0), duration_cast<milliseconds>(now - *last));
}

std::size_t CheckpointRecord::Watched() const {
  return std::min<std::size_t>(rule->indications, kTimesLimit);
}

CheckpointRecord::Clock::time_point CheckpointRecord::Due() const {
  const Clock::time_point startEnd = start + rule->cycle;
  if (times.size() < Watched()) return startEnd;
  const Clock::duration period = Clock::duration(rule->cycle) / rule->indications;
  // Half the time between two is left to delays. With all of it a single one could be missing, and
  // then whether the next came in time would be a matter of microseconds.
  const auto window = period * static_cast<Clock::rep>(Watched()) + period / 2;
  return std::max(startEnd, times[oldest] + window);
}

void CheckpointRecord::Remember(Clock::time_point now) {
  if (times.size() < Watched()) {
    times.push_back(now);
    return;
  }
  times[oldest] = now;
  oldest = (oldest + 1) % times.size();
}

}  // namespace platform_host
