// The trust store container tool.
#include <csignal>
#include <iostream>

#include "tools/tsc/TscProgram.h"

int main(int argc, char** argv) {
  // Who goes away while the tool writes, a responder or a pager, ends the write and not the
  // process.
  std::signal(SIGPIPE, SIG_IGN);
  return tsc::RunTsc({argv + 1, argv + argc}, std::cout, std::cerr);
}
