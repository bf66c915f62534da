// The control tool of the host platform.
#include <csignal>
#include <iostream>

#include "tools/platformctl/PlatformctlProgram.h"

int main(int argc, char** argv) {
  // A pager that goes away ends the write and not the process.
  std::signal(SIGPIPE, SIG_IGN);
  return platformctl::RunPlatformctl({argv + 1, argv + argc}, std::cout, std::cerr);
}
