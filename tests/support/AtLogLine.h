/// Something that a test does at the instant a line is logged.
#ifndef TESTS_SUPPORT_ATLOGLINE_H
#define TESTS_SUPPORT_ATLOGLINE_H

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/host/csc_logging/LogSinks.h"

namespace tests {

/// While it lives, lines go nowhere else, and the first line with this text is logged once `action`
/// has been done, on the line's thread. `action` must not throw.
class AtLogLine {
 public:
  AtLogLine(std::string text, std::function<void()> action)
      : sink(std::make_shared<Sink>(std::move(text), std::move(action))) {
    platform_host::BeginLogCapture(sink);
  }
  ~AtLogLine() { platform_host::EndLogCapture(sink.get()); }
  AtLogLine(const AtLogLine&) = delete;
  AtLogLine& operator=(const AtLogLine&) = delete;

  /// Whether the action has been done.
  [[nodiscard]] bool IsDone() const { return sink->done; }

 private:
  struct Sink : platform_host::LogSink {
    Sink(std::string awaitedLine, std::function<void()> givenAction)
        : line(std::move(awaitedLine)), action(std::move(givenAction)) {}

    void Write(platform_host::LogLevel /*level*/, std::string_view text) noexcept override {
      if (text != line || begun.exchange(true)) return;
      action();
      done = true;
    }

    const std::string line;
    const std::function<void()> action;
    std::atomic<bool> begun{false};
    std::atomic<bool> done{false};
  };

  const std::shared_ptr<Sink> sink;
};

}  // namespace tests

#endif
