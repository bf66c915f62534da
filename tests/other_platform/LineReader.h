/// A thread that hands on the lines of a named pipe: how this platform is told something.
#ifndef TESTS_OTHER_PLATFORM_LINEREADER_H
#define TESTS_OTHER_PLATFORM_LINEREADER_H

#include <cstddef>
#include <functional>
#include <string>
#include <thread>

#include "support/UniqueFd.h"

namespace other_platform {

/// Reads while it lives.
class LineReader {
 public:
  /// Bytes of a line; of a longer one the rest is dropped.
  static constexpr std::size_t kLineLimit = 4096;

  using LineHandler = std::function<void(const std::string& line)>;

  /// From now on calls `handler` with each line of the pipe at `path`, on a thread of its own, one
  /// call at a time and with no lock held. Reads nothing where there is no pipe. Throws
  /// std::exception when there is no further thread or descriptor.
  LineReader(const std::string& path, LineHandler handler);

  /// Waits for a call under way; none follows. Not to be called inside one.
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

 private:
  void Run();
  [[nodiscard]] bool AwaitBytes() const;
  void Take(char byte);

  const LineHandler handle;
  const support::UniqueFd pipe;
  support::UniqueFd endRead;  ///< readable once the end has come
  support::UniqueFd endWrite;
  std::string line;  ///< the reading thread's
  std::thread thread;
};

}  // namespace other_platform

#endif
