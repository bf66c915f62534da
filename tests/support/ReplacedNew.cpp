#include "tests/support/ReplacedNew.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>
#include <string_view>

namespace {

std::atomic<tests::AllocationRule> ruleInForce{nullptr};

std::atomic<const char*> shortOfMemory{nullptr};
std::atomic<int> grantedYet{0};
std::atomic<int> refusedYet{0};

bool GrantsToOthers(std::size_t /*size*/) {
  const char* const thread = shortOfMemory;
  char name[16] = "";
  if (thread == nullptr || ::pthread_getname_np(::pthread_self(), name, sizeof name) != 0 ||
      std::string_view(name) != thread) {
    return true;
  }
  return grantedYet-- > 0 || refusedYet-- <= 0;
}

void* Allocate(std::size_t size) noexcept {
  const tests::AllocationRule rule = ruleInForce;
  if (rule != nullptr && !rule(size)) return nullptr;
  return std::malloc(std::max<std::size_t>(size, 1));
}

void* AllocateOrThrow(std::size_t size) {
  void* const memory = Allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size) {
  return AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace tests {

void SetAllocationRule(AllocationRule rule) noexcept {
  ruleInForce = rule;
}

void RefuseMemory(const char* thread, int granted, int refused) noexcept {
  shortOfMemory = nullptr;
  grantedYet = granted;
  refusedYet = refused;
  shortOfMemory = thread;
  SetAllocationRule(GrantsToOthers);
}

int RefusalsLeft() noexcept {
  return std::max<int>(refusedYet, 0);
}

void GrantMemory() noexcept {
  SetAllocationRule(nullptr);
}

}  // namespace tests
