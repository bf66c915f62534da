#include "csc_logging/CSCLogging.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/host/csc_logging/DescriptorSink.h"
#include "platform/host/csc_logging/LogSinks.h"
#include "support/Mutex.h"

namespace platform_host {
namespace {

/// Stands for the application id in the lines before InitLogging.
constexpr const char* kNoApplication = "-";

/// The most that DLT keeps of an application id.
constexpr std::size_t kApplicationIdLimit = 4;

/// The sinks of the process. Never destroyed, so that the last destructor can still log.
class Log {
 public:
  static Log& OfProcess() {
    static Log* const log = new Log;
    return *log;
  }

  void Replace(LogSinkList newSinks, LogLevel newLevel) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    // Swapped, so that the old sinks are destroyed after the lock is released.
    sinks.swap(newSinks);
    level = newLevel;
  }

  void BeginCapture(std::shared_ptr<LogSink> capture) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    captures.push_back(std::move(capture));
  }

  void EndCapture(const LogSink* capture) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    const auto found = std::find_if(captures.begin(), captures.end(),
                                    [capture](const auto& one) { return one.get() == capture; });
    if (found != captures.end()) captures.erase(found);
  }

  void Write(LogLevel lineLevel, std::string_view text) EXCLUDES(mutex) {
    for (const auto& sink : SinksFor(lineLevel)) sink->Write(lineLevel, text);
  }

 private:
  Log() : sinks{MakeStandardErrorSink(kNoApplication)} {}

  LogSinkList SinksFor(LogLevel lineLevel) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    if (!captures.empty()) return {captures.back()};
    return lineLevel >= level ? sinks : LogSinkList{};
  }

  support::Mutex mutex;
  LogSinkList sinks GUARDED_BY(mutex);
  LogLevel level GUARDED_BY(mutex) = LogLevel::kInfo;
  LogSinkList captures GUARDED_BY(mutex);
};

void WriteLine(LogLevel level, std::string_view text) noexcept {
  try {
    Log::OfProcess().Write(level, text);
  } catch (const std::bad_alloc&) {
    // Out of memory: the line is lost, its caller goes on.
  }
}

}  // namespace

void ReplaceLogSinks(LogSinkList sinks, LogLevel level) {
  Log::OfProcess().Replace(std::move(sinks), level);
}

void BeginLogCapture(std::shared_ptr<LogSink> capture) {
  Log::OfProcess().BeginCapture(std::move(capture));
}

void EndLogCapture(const LogSink* capture) {
  Log::OfProcess().EndCapture(capture);
}

}  // namespace platform_host

namespace csc_logging {

using platform_host::LogLevel;

void CSCLogging::InitLogging(const std::string& applicationId) noexcept {
  try {
    const std::string application = applicationId.substr(0, platform_host::kApplicationIdLimit);
    platform_host::ReplaceLogSinks({platform_host::MakeStandardErrorSink(application)},
                                   LogLevel::kInfo);
  } catch (const std::bad_alloc&) {
    // What was set up before goes on.
  }
}

void CSCLogging::LogVerbose(std::string_view text) noexcept {
  platform_host::WriteLine(LogLevel::kVerbose, text);
}

void CSCLogging::LogDebug(std::string_view text) noexcept {
  platform_host::WriteLine(LogLevel::kDebug, text);
}

void CSCLogging::LogInfo(std::string_view text) noexcept {
  platform_host::WriteLine(LogLevel::kInfo, text);
}

void CSCLogging::LogWarning(std::string_view text) noexcept {
  platform_host::WriteLine(LogLevel::kWarning, text);
}

void CSCLogging::LogError(std::string_view text) noexcept {
  platform_host::WriteLine(LogLevel::kError, text);
}

}  // namespace csc_logging
