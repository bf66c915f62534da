// The trust store container tool.
#include <iostream>

#include "tools/tsc/TscProgram.h"

int main(int argc, char** argv) {
  return tsc::RunTsc({argv + 1, argv + argc}, std::cout, std::cerr);
}
