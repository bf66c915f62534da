#include "platform/host/csc_logging/CapturedLog.h"

#include <new>
#include <utility>

#include "platform/host/csc_logging/LogSinks.h"
#include "support/Mutex.h"

namespace platform_host {

class CapturedLog::Sink : public LogSink {
 public:
  void Write(LogLevel level, std::string_view text) noexcept override EXCLUDES(mutex) {
    try {
      Line line{level, std::string(text)};
      const support::MutexLock lock(mutex);
      lines.push_back(std::move(line));
    } catch (const std::bad_alloc&) {
      // The line is lost, as in every sink that is full.
    }
  }

  [[nodiscard]] std::vector<Line> Copy() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return lines;
  }

  void Clear() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    lines.clear();
  }

 private:
  mutable support::Mutex mutex;
  std::vector<Line> lines GUARDED_BY(mutex);
};

CapturedLog::CapturedLog() : sink(std::make_shared<Sink>()) {
  BeginLogCapture(sink);
}

CapturedLog::~CapturedLog() {
  EndLogCapture(sink.get());
}

std::vector<std::string> CapturedLog::Lines() const {
  return Lines(LogLevel::kVerbose);
}

std::vector<std::string> CapturedLog::Lines(LogLevel level) const {
  std::vector<std::string> texts;
  for (const Line& line : sink->Copy()) {
    if (line.level < level) continue;
    texts.push_back(std::string(NameOf(line.level)) + ": " + line.text);
  }
  return texts;
}

std::vector<CapturedLog::Line> CapturedLog::Records() const {
  return sink->Copy();
}

void CapturedLog::Clear() {
  sink->Clear();
}

}  // namespace platform_host
