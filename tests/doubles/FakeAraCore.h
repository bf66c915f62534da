/// What a FakeAra and the objects of the platform that it plays share. Only those use it. Any
/// thread.
#ifndef TESTS_DOUBLES_FAKEARACORE_H
#define TESTS_DOUBLES_FAKEARACORE_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ara/stm/ComponentClient.h"
#include "support/Mutex.h"
#include "tests/doubles/FakeAra.h"

namespace tests {

/// No handler is called with the mutex held.
class FakeAraCore {
 public:
  /// All that the operations work on.
  struct State {
    bool failReports = false;
    std::string componentError;
    std::optional<std::pair<unsigned int, std::string>> requestDuringCreation;
    std::string failingHealthObject;
    std::function<void()> inConfirmations;
    FakeAra::Checkpoints checkpoints = FakeAra::Checkpoints::kSucceed;
    std::vector<std::string> calls;
    ara::stm::StateChangeHandler handler;  ///< of the component client
    ara::stm::ComponentClient* client = nullptr;
    const ara::stm::ComponentClient* handling = nullptr;  ///< whose handler is being called
  };

  /// That of the FakeAra alive; another that fails everything without one.
  static std::shared_ptr<FakeAraCore> Current();
  static void SetCurrent(std::shared_ptr<FakeAraCore> core);

  /// Runs `action` on the state under the lock and returns its result.
  template <typename Action>
  auto With(Action action) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return action(state);
  }

  void Record(const std::string& call);

  /// Calls the handler on a thread of its own, one call at a time, and returns when it has.
  void RequestState(unsigned int sequence, const std::string& requested) EXCLUDES(mutex);

  /// The component client ends: waits for a call of its handler, none follows.
  void EndClient(const ara::stm::ComponentClient* client) EXCLUDES(mutex);

  [[nodiscard]] bool IsHandling() EXCLUDES(mutex);

 private:
  support::Mutex mutex;
  support::ConditionVariable changed;
  State state GUARDED_BY(mutex);
};

}  // namespace tests

#endif
