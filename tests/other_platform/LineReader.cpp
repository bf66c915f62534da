#include "tests/other_platform/LineReader.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "support/WorkerThread.h"

namespace other_platform {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

// Open for writing too: the pipe then has no end when a writer closes it.
LineReader::LineReader(const std::string& path, LineHandler handler)
    : handle(std::move(handler)), pipe(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)) {
  int ends[2] = {-1, -1};
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category());
  endRead = support::UniqueFd(ends[0]);
  endWrite = support::UniqueFd(ends[1]);
  thread = support::StartThread("PlatformLines", [this] { Run(); });
}

LineReader::~LineReader() {
  endWrite = support::UniqueFd();
  thread.join();
}

void LineReader::Run() {
  char bytes[256];
  while (AwaitBytes()) {
    const ssize_t count = ::read(pipe.Get(), bytes, sizeof bytes);
    if (count <= 0 && errno != EAGAIN) return;
    for (ssize_t index = 0; index < count; ++index) Take(bytes[index]);
  }
}

// False at the end. A descriptor of -1 is never ready.
bool LineReader::AwaitBytes() const {
  pollfd waiting[2] = {{endRead.Get(), POLLIN, 0}, {pipe.Get(), POLLIN, 0}};
  while (::poll(waiting, 2, -1) < 0) {
    if (errno != EINTR) return false;
  }
  return waiting[0].revents == 0;
}

void LineReader::Take(char byte) {
  if (byte != '\n') {
    if (line.size() < kLineLimit) line += byte;
    return;
  }
  const std::string whole = std::exchange(line, {});
  try {
    handle(whole);
  } catch (const std::exception& exception) {
    CSCLogging::LogError(CSCLogEntry()
                         << "other_platform: a listener failed: " << exception.what());
  }
}

}  // namespace other_platform
