/// The states that somebody at the control socket demands of this process's component, from the
/// request to the component's confirmation. HostComponentClient hands them to the component.
#ifndef PLATFORM_HOST_ARA_STM_STATEREQUESTS_H
#define PLATFORM_HOST_ARA_STM_STATEREQUESTS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "platform/host/control/ControlReply.h"
#include "support/Mutex.h"

namespace platform_host {

/// Numbers requests from 1 on. Any thread; answers are given with no lock held.
class StateRequests {
 public:
  /// Requests that wait for the component to take them; more are refused.
  static constexpr std::size_t kWaitingLimit = 16;

  /// Requests that wait for their confirmation; of more, the oldest is refused. A component that
  /// never confirms can still be asked.
  static constexpr std::size_t kUnconfirmedLimit = 64;

  /// A component in a state. The sequence is the number of a request.
  struct Step {
    std::uint32_t sequence;
    std::string state;
  };

  explicit StateRequests(std::string componentName);

  /// `reply` is answered once the component has confirmed `state`, or refused: at once for a state
  /// that no component knows, above kWaitingLimit and after End; later when the component confirms
  /// another state or a later request first. Throws std::bad_alloc, and then nothing has changed.
  void Add(const std::string& state, const ControlReply& reply) EXCLUDES(mutex);

  /// Waits for the oldest request that has not been taken yet. Returns none after End.
  [[nodiscard]] std::optional<Step> Next() EXCLUDES(mutex);

  /// The component is in `state`, as the request of this `sequence` demanded. A confirmation that
  /// fits no request is told in a warning. Does not block. Throws std::bad_alloc.
  void Confirm(std::uint32_t sequence, const std::string& state) EXCLUDES(mutex);

  /// Refuses every request that waits and all that follow. Confirmations are still recorded.
  void End() EXCLUDES(mutex);

  /// What the control socket shows: the component's name, the last request, the confirmation of the
  /// latest one. Throws std::bad_alloc.
  [[nodiscard]] nlohmann::json Status() const EXCLUDES(mutex);

 private:
  struct Unconfirmed {
    Step demanded;
    ControlReply reply;
  };
  using Unconfirmeds = std::list<Unconfirmed>;

  /// Why no request is taken; null when it is.
  [[nodiscard]] const char* Refusal() const REQUIRES(mutex);

  /// Moves those away that a confirmation of `sequence` decides.
  [[nodiscard]] Unconfirmeds TakeUpTo(std::uint32_t sequence) REQUIRES(mutex);

  const std::string name;

  mutable support::Mutex mutex;
  support::ConditionVariable changed;
  bool hasEnded GUARDED_BY(mutex) = false;
  std::deque<Step> waiting GUARDED_BY(mutex);       ///< oldest first
  Unconfirmeds unconfirmed GUARDED_BY(mutex);       ///< oldest first
  std::optional<Step> requested GUARDED_BY(mutex);  ///< the last request
  std::optional<Step> confirmed GUARDED_BY(mutex);  ///< with the highest sequence
};

}  // namespace platform_host

#endif
