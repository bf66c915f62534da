#include "platform/host/csc_logging/DltSink.h"

#include <dlt/dlt_user.h>
#include <signal.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "platform/host/csc_logging/DescriptorSink.h"
#include "platform/host/csc_logging/DltContexts.h"
#include "platform/host/csc_logging/LineFormat.h"
#include "platform/host/csc_logging/QuietWrite.h"
#include "support/FileContents.h"
#include "support/Mutex.h"
#include "support/WorkerThread.h"

namespace platform_host {
namespace {

constexpr const char* kDescription = "Truststore Update Client";

/// Indexed by LogLevel.
constexpr std::array<DltLogLevelType, kLogLevelNames.size()> kDltLevels = {
    DLT_LOG_VERBOSE, DLT_LOG_DEBUG, DLT_LOG_INFO, DLT_LOG_WARN, DLT_LOG_ERROR};

DltLogLevelType DltLevelOf(LogLevel level) {
  return kDltLevels.at(static_cast<std::size_t>(level));
}

/// While it lives, SIGPIPE does afterwards what it did before: libdlt has its own idea of that.
class KeptBrokenPipeAction {
 public:
  KeptBrokenPipeAction() { ::sigaction(SIGPIPE, nullptr, &former); }
  ~KeptBrokenPipeAction() { ::sigaction(SIGPIPE, &former, nullptr); }
  KeptBrokenPipeAction(const KeptBrokenPipeAction&) = delete;
  KeptBrokenPipeAction& operator=(const KeptBrokenPipeAction&) = delete;

 private:
  struct sigaction former {};
};

/// libdlt in use. One a process, never destroyed.
class DltSink : public LogSink {
 public:
  explicit DltSink(const std::string& applicationId)
      : afterwards(MakeStandardErrorSink(applicationId)) {}

  /// Whether libdlt works. Once.
  [[nodiscard]] bool Begin(const std::string& applicationId, LogLevel level) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    const support::SignalsBlocked blocked;  // libdlt's threads are to inherit it
    const KeptBrokenPipeAction kept;
    ::dlt_log_init(DLT_LOG_DROPPED);  // libdlt's own messages would be on standard output
    if (::dlt_register_app(applicationId.c_str(), kDescription) != DLT_RETURN_OK) return false;
    ::dlt_set_resend_timeout_atexit(static_cast<std::uint32_t>(kDltFarewell.count()));
    for (std::size_t index = 0; index < contexts.size(); ++index) {
      const auto& entry = kDltContexts.at(index);
      ::dlt_register_context_ll_ts(&contexts.at(index), entry.id, entry.description,
                                   DltLevelOf(level), DLT_TRACE_STATUS_OFF);
    }
    isOpen = true;
    // Registered behind libdlt's own, and so called before it.
    static DltSink* begun = nullptr;
    begun = this;
    std::atexit([] { begun->End(); });
    return true;
  }

  /// Takes leave of the daemon and ends libdlt's threads. Must precede libdlt's own exit handler,
  /// behind which its contexts point to memory that it has freed.
  void End() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    if (!isOpen) return;
    isOpen = false;
    const BrokenPipeShield shield;
    ::dlt_user_atexit_blow_out_user_buffer();
    ::dlt_unregister_app();
    ::dlt_free();
  }

  void Write(LogLevel level, std::string_view text) noexcept override EXCLUDES(mutex) {
    const int callersErrno = errno;
    try {
      const std::string line = EscapeLine(text, kDltTextLimit);
      if (!Send(DltContextOf(text), DltLevelOf(level), line)) afterwards->Write(level, text);
    } catch (const std::bad_alloc&) {
      // The line is lost, as in every sink that is full.
    }
    errno = callersErrno;
  }

 private:
  /// Whether libdlt was there to take it.
  bool Send(std::size_t context, DltLogLevelType level, const std::string& line) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    if (!isOpen) return false;
    const BrokenPipeShield shield;
    DltContextData message{};
    // Anything else: a tool of DLT's has asked for less of this context, or there is no memory.
    if (::dlt_user_log_write_start(&contexts.at(context), &message, level) == DLT_RETURN_TRUE) {
      ::dlt_user_log_write_sized_utf8_string(&message, line.data(),
                                             static_cast<std::uint16_t>(line.size()));
      ::dlt_user_log_write_finish(&message);
    }
    return true;
  }

  const std::shared_ptr<LogSink> afterwards;

  /// Held during calls into libdlt, which counts messages without a lock.
  support::Mutex mutex;
  bool isOpen GUARDED_BY(mutex) = false;
  std::array<DltContext, kDltContexts.size()> contexts GUARDED_BY(mutex){};
};

/// Where libdlt looks for the DLT daemon's pipe.
std::string PipeFolder() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the client never changes its environment
  const char* folder = std::getenv("DLT_PIPE_DIR");
  return folder != nullptr ? folder : "/tmp";
}

/// Whether the kernel follows no other people's links in sticky folders (proc(5)).
bool AreLinksProtected() {
  std::string value;
  return support::ReadFile("/proc/sys/fs/protected_symlinks", 16, value) == 0 &&
         value.compare(0, 1, "0") != 0;
}

/// libdlt opens a pipe by its name, again and again: somebody's link in its place would lead to
/// whatever file this process may write to.
bool CanLinksBePlanted(const std::string& folder) {
  struct stat status {};
  if (::stat(folder.c_str(), &status) != 0 || (status.st_mode & S_IWOTH) == 0) return false;
  return (status.st_mode & S_ISVTX) == 0 || !AreLinksProtected();
}

Result<std::shared_ptr<DltSink>> BeginSink(const std::string& applicationId, LogLevel level) {
  const std::string folder = PipeFolder();
  if (CanLinksBePlanted(folder)) return Error("anybody can plant a link in " + folder);
  auto sink = std::make_shared<DltSink>(applicationId);
  if (!sink->Begin(applicationId, level)) return Error("libdlt cannot make its pipe in " + folder);
  return sink;
}

/// libdlt's one user. Never destroyed, as lines may come until the process has ended.
const Result<std::shared_ptr<DltSink>>& SinkOfProcess(const std::string& applicationId,
                                                      LogLevel level) {
  static const auto* const sink =
      new Result<std::shared_ptr<DltSink>>(BeginSink(applicationId, level));
  return *sink;
}

}  // namespace

Result<std::shared_ptr<LogSink>> OpenDltSink(const std::string& applicationId, LogLevel level) {
  const auto& sink = SinkOfProcess(applicationId, level);
  if (!sink.Ok()) return sink.Failure().WithContext("cannot log to DLT");
  return std::shared_ptr<LogSink>(sink.Value());
}

}  // namespace platform_host
