#include "csa_common/ReceivedText.h"

#include <sys/mman.h>

#include <cstdint>
#include <new>

namespace csa_common {
namespace {

constexpr std::size_t kGrowth = 4;

/// What the kernel can hand out at once, on most machines; a multiple of every page size.
constexpr std::uintptr_t kLargePage = std::uintptr_t{2} * 1024 * 1024;

/// Lets the kernel hand out the text's memory in large pages. It may refuse; nothing depends on it.
void WantLargePages(std::string& text) {
  const auto begin = reinterpret_cast<std::uintptr_t>(text.data());
  const std::uintptr_t first = (begin + kLargePage - 1) & ~(kLargePage - 1);
  const std::uintptr_t end = (begin + text.capacity()) & ~(kLargePage - 1);
  if (first < end) ::madvise(text.data() + (first - begin), end - first, MADV_HUGEPAGE);
}

void Grow(std::string& text, std::size_t needed) {
  try {
    text.reserve(needed <= kLongText ? kLongText : kGrowth * needed);
    WantLargePages(text);
  } catch (const std::bad_alloc&) {
    // A system that promises no more memory than it has may still have what is needed now.
  }
}

}  // namespace

void AppendReceived(std::string& text, std::string_view piece) {
  const std::size_t needed = text.size() + piece.size();
  if (needed > text.capacity() && needed > kShortText) Grow(text, needed);
  text.append(piece);
}

}  // namespace csa_common
