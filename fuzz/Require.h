/// How fuzz targets state what must hold. Any thread.
#ifndef FUZZ_REQUIRE_H
#define FUZZ_REQUIRE_H

#include <cstdio>
#include <cstdlib>

namespace fuzz {

/// Ends the process with `claim` on standard error unless `holds`: what a fuzzer counts as a crash,
/// in every build.
inline void Require(bool holds, const char* claim) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", claim);
  std::abort();
}

}  // namespace fuzz

#endif
