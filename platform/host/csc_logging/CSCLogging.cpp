#include "csc_logging/CSCLogging.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "platform/host/config/HostConfig.h"
#include "platform/host/csc_logging/BearerTokens.h"
#include "platform/host/csc_logging/DescriptorSink.h"
#include "platform/host/csc_logging/DltSink.h"
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
    if (const auto capture = NewestCapture()) return capture->Write(lineLevel, text);
    const LogSinkList receivers = SinksFor(lineLevel);
    if (receivers.empty()) return;
    // Here rather than in the sinks: no sink, of whatever kind, is ever given a token to write.
    std::string storage;
    const std::string_view shown = HideBearerTokens(text, storage);
    for (const auto& sink : receivers) sink->Write(lineLevel, shown);
  }

 private:
  Log() : sinks{MakeStandardErrorSink(kNoApplication)} {}

  std::shared_ptr<LogSink> NewestCapture() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return captures.empty() ? nullptr : captures.back();
  }

  LogSinkList SinksFor(LogLevel lineLevel) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
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

/// Opens what `config` names. Reasons for what cannot be opened are appended to `failures`.
LogSinkList OpenSinks(const HostConfig& config, const std::string& application,
                      std::vector<Error>& failures) {
  LogSinkList sinks;
  if (config.logToStandardError) sinks.push_back(MakeStandardErrorSink(application));
  for (const auto& path : config.logFiles) {
    if (auto sink = OpenFileSink(path, application)) {
      sinks.push_back(std::move(sink));
    } else {
      failures.push_back(Error::OfErrno(errno).WithContext("cannot open log file " + path));
    }
  }
  if (!config.logToDlt) return sinks;
  if (auto sink = OpenDltSink(application, config.logLevel); sink.Ok()) {
    sinks.push_back(std::move(sink).Take());
  } else {
    failures.push_back(sink.Failure());
  }
  return sinks;
}

/// A file that was named is expected to be there; one at the default path is not.
void WarnOfMissingFile(const HostConfig& config) {
  if (config.missingFile.empty() || config.missingFile == HostConfig::kDefaultPath) return;
  csc_logging::CSCLogging::LogWarning(
      Error::OfErrno(ENOENT).WithContext("libaralog: " + config.missingFile).Text() +
      ": every default holds");
}

void OpenConfiguredSinks(const std::string& application) {
  const auto& result = HostConfig::OfProcess();
  std::vector<Error> failures;
  if (!result.Ok()) failures.push_back(result.Failure());
  const HostConfig config = result.Ok() ? result.Value() : HostConfig{};
  LogSinkList sinks = OpenSinks(config, application, failures);
  if (sinks.empty()) sinks.push_back(MakeStandardErrorSink(application));
  ReplaceLogSinks(std::move(sinks), config.logLevel);
  for (const auto& failure : failures) {
    csc_logging::CSCLogging::LogError(failure.WithContext("libaralog").Text());
  }
  WarnOfMissingFile(config);
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
    platform_host::OpenConfiguredSinks(applicationId.substr(0, platform_host::kApplicationIdLimit));
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
