#include "tests/doubles/PlannedPoll.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>

namespace tests {

PlannedPoll& PlannedPoll::OfThread() {
  thread_local PlannedPoll plan;
  return plan;
}

}  // namespace tests

// The names that the linker's --wrap asks for.
extern "C" {
int __real_poll(pollfd* descriptors, nfds_t count, int timeout);  // NOLINT: the linker's name
int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout);  // NOLINT: the linker's name

int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {  // NOLINT: the linker's name
  tests::PlannedPoll& plan = tests::PlannedPoll::OfThread();
  plan.timeouts.push_back(timeout);
  std::optional<int> result;
  if (!plan.results.empty()) {
    result = plan.results.front();
    plan.results.pop_front();
  }
  if (!result)
    return __real_poll(descriptors, count, std::min(timeout, plan.longest.value_or(timeout)));
  if (*result < 0) errno = EINTR;
  return *result;
}
}
