#include "platform/host/csc_logging/DescriptorSink.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <new>
#include <utility>

#include "platform/host/csc_logging/LineFormat.h"
#include "platform/host/csc_logging/QuietWrite.h"

namespace platform_host {

DescriptorSink::DescriptorSink(int descriptor, Style lineStyle, std::string applicationId,
                               std::chrono::milliseconds patience)
    : fd(descriptor), style(lineStyle), application(std::move(applicationId)), wait(patience) {}

DescriptorSink::DescriptorSink(support::UniqueFd descriptor, std::string applicationId)
    : owned(std::move(descriptor)),
      fd(owned.Get()),
      style(Style::kTimestamp),
      application(std::move(applicationId)),
      wait(kPatience) {}

void DescriptorSink::Write(LogLevel level, std::string_view text) noexcept {
  const int callersErrno = errno;
  try {
    const std::string line =
        style == Style::kJournal
            ? FormatJournalLine(level, application, text)
            : FormatLine(level, application, text, std::chrono::system_clock::now());
    const support::MutexLock lock(mutex);
    // A line is at most PIPE_BUF long: where poll(2) finds room on a pipe, there is room for it.
    while (AwaitRoom() && QuietWrite(fd, line) < 0 && errno == EINTR) {
    }
  } catch (const std::bad_alloc&) {
    // The line is lost, as on a full disk.
  }
  errno = callersErrno;
}

bool DescriptorSink::AwaitRoom() {
  pollfd target{fd, POLLOUT, 0};
  const auto timeout = isStalled ? 0 : static_cast<int>(wait.count());
  int ready = ::poll(&target, 1, timeout);
  // Waiting anew would have no end under a steady stream of signals.
  if (ready < 0 && errno == EINTR) ready = ::poll(&target, 1, 0);
  isStalled = ready <= 0;
  return !isStalled;
}

bool IsJournal(int descriptor, const char* journalStream) {
  struct stat status {};
  if (journalStream == nullptr || ::fstat(descriptor, &status) != 0) return false;
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == journalStream;
}

std::shared_ptr<LogSink> MakeStandardErrorSink(const std::string& applicationId) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the client never changes its environment
  const char* journalStream = std::getenv("JOURNAL_STREAM");
  const auto style = IsJournal(STDERR_FILENO, journalStream) ? DescriptorSink::Style::kJournal
                                                             : DescriptorSink::Style::kTimestamp;
  return std::make_shared<DescriptorSink>(STDERR_FILENO, style, applicationId);
}

std::shared_ptr<LogSink> OpenFileSink(const std::string& path, const std::string& applicationId) {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  support::UniqueFd file(::open(path.c_str(), kFlags, 0640));
  if (!file.IsOpen()) return nullptr;
  return std::make_shared<DescriptorSink>(std::move(file), applicationId);
}

}  // namespace platform_host
