// The floor of start_benchmark.py: a process with the daemon's shared libraries, which does
// nothing.
#include <unistd.h>

int main() {
  constexpr char kLoaded[] = "loaded\n";
  if (::write(STDERR_FILENO, kLoaded, sizeof kLoaded - 1) < 0) return 1;
  ::pause();
  return 0;
}
