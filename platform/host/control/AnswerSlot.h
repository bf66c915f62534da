/// Where the answer to one request waits for the control thread. For ControlConnection.
/// Header-only.
#ifndef PLATFORM_HOST_CONTROL_ANSWERSLOT_H
#define PLATFORM_HOST_CONTROL_ANSWERSLOT_H

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/host/control/WakeEvent.h"
#include "support/Mutex.h"

namespace platform_host {

/// Shared by the connection and whoever answers: the answer may come when the connection, and even
/// the server, are gone. Then nobody takes it. Any thread.
class AnswerSlot {
 public:
  /// `wakes` is raised when the answer is there.
  explicit AnswerSlot(std::shared_ptr<const WakeEvent> wakes) : wake(std::move(wakes)) {}

  /// Needs no memory: an answer that could be made arrives.
  void Put(std::string line) noexcept EXCLUDES(mutex) {
    {
      const support::MutexLock lock(mutex);
      answer = std::move(line);
    }
    wake->Raise();
  }

  /// The answer, once; none while there is none.
  [[nodiscard]] std::optional<std::string> Take() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return std::exchange(answer, std::nullopt);
  }

 private:
  const std::shared_ptr<const WakeEvent> wake;
  support::Mutex mutex;
  std::optional<std::string> answer GUARDED_BY(mutex);
};

}  // namespace platform_host

#endif
