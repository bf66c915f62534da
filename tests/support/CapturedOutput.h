/// What a test's code writes to standard output, as a text. One at a time, on the test's thread.
#ifndef TESTS_SUPPORT_CAPTUREDOUTPUT_H
#define TESTS_SUPPORT_CAPTUREDOUTPUT_H

#include <iostream>
#include <sstream>
#include <string>

namespace tests {

/// While it lives, std::cout writes here and nowhere else.
class CapturedOutput {
 public:
  CapturedOutput() : former(std::cout.rdbuf(output.rdbuf())) {}
  ~CapturedOutput() { std::cout.rdbuf(former); }
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  /// Everything written since construction or the last Clear.
  [[nodiscard]] std::string Text() const { return output.str(); }

  /// Forgets what was written.
  void Clear() { output.str(""); }

 private:
  std::ostringstream output;
  std::streambuf* former;
};

}  // namespace tests

#endif
