/// Answers to poll(2) as a test plans them, so that no test waits for a silence and every failure
/// can be had. A program that links planned_poll has its own calls of poll sent here by the linker;
/// calls of shared libraries are not. Each thread has a plan of its own.
#ifndef TESTS_DOUBLES_PLANNEDPOLL_H
#define TESTS_DOUBLES_PLANNEDPOLL_H

#include <deque>
#include <optional>
#include <vector>

namespace tests {

/// Fresh: every call goes to the system.
struct PlannedPoll {
  /// The timeouts of the calls so far, oldest first.
  std::vector<int> timeouts;

  /// What the next calls return without asking the system: 0 for a silence, -1 for an error (errno
  /// EINTR). None, and whatever comes after the last: what the system says.
  std::deque<std::optional<int>> results;

  /// No call waits longer than so many milliseconds; none: as long as it asks for.
  std::optional<int> longest;

  /// The plan of this thread.
  static PlannedPoll& OfThread();
};

}  // namespace tests

#endif
