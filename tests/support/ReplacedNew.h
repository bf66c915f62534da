/// The operator new of the programs that link replaced_new: tests count allocations and refuse
/// them. Any thread.
#ifndef TESTS_SUPPORT_REPLACEDNEW_H
#define TESTS_SUPPORT_REPLACEDNEW_H

#include <cstddef>
#include <limits>

namespace tests {

/// Whether an allocation of `size` bytes is granted. Called before each, on its thread; must not
/// allocate.
using AllocationRule = bool (*)(std::size_t size);

/// For all threads, from now on. Null: each is granted, as at the start.
void SetAllocationRule(AllocationRule rule) noexcept;

/// From now on the threads called `thread`, a text that stays, get `granted` allocations, then
/// `refused` times none. In place of what was refused before.
void RefuseMemory(const char* thread, int granted = 0,
                  int refused = std::numeric_limits<int>::max()) noexcept;

/// How many times memory is still to be refused.
[[nodiscard]] int RefusalsLeft() noexcept;

/// Ends what RefuseMemory has begun.
void GrantMemory() noexcept;

}  // namespace tests

#endif
