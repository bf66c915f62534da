/// The log of this process as a list in memory, for tests that compare lines and for tools that
/// show them.
#ifndef PLATFORM_HOST_CSC_LOGGING_CAPTUREDLOG_H
#define PLATFORM_HOST_CSC_LOGGING_CAPTUREDLOG_H

#include <memory>
#include <string>
#include <vector>

#include "platform/host/config/LogLevel.h"

namespace platform_host {

/// While it lives, every line of every thread and level is kept here and goes nowhere else,
/// CSCLogging::InitLogging or not. Of several, the newest receives. Its operations may be called
/// from any thread; none blocks for long.
class CapturedLog {
 public:
  /// One line as it was logged: unescaped, uncut.
  struct Line {
    LogLevel level;
    std::string text;
  };

  /// Lines go here from now on.
  CapturedLog();

  /// Lines go again where they went before. A line under way on another thread is lost.
  ~CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  /// The lines so far, oldest first, each as "LEVEL: TEXT" with the level's name: "error: disk
  /// full".
  [[nodiscard]] std::vector<std::string> Lines() const;

  /// As Lines, of `level` and above only.
  [[nodiscard]] std::vector<std::string> Lines(LogLevel level) const;

  /// The lines so far, oldest first, level and text apart.
  [[nodiscard]] std::vector<Line> Records() const;

  /// Forgets the lines so far.
  void Clear();

 private:
  class Sink;
  std::shared_ptr<Sink> sink;
};

}  // namespace platform_host

#endif
