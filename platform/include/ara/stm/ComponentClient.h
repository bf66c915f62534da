/// How a component hears from state management which state it is to enter, and tells that it has.
/// The client creates one.
#ifndef ARA_STM_COMPONENTCLIENT_H
#define ARA_STM_COMPONENTCLIENT_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace ara::stm {

/// One component's connection to state management. Any thread but the handler's may end it.
class ComponentClient {
 public:
  /// Waits for a call of the handler under way; none follows.
  virtual ~ComponentClient() = default;
  ComponentClient(const ComponentClient&) = delete;
  ComponentClient& operator=(const ComponentClient&) = delete;

  /// Tells state management that the component is in `state` ("kOn", "kPrepSD"), as the request of
  /// this `sequence` demanded. Any thread, the handler's too. Does not block; what cannot be
  /// delivered is logged by the platform.
  virtual void ConfirmState(std::uint32_t sequence, const std::string& state) noexcept = 0;

 protected:
  ComponentClient() = default;
};

/// Hears that the component is to enter `state`; the number of the request, `sequence`, goes into
/// the confirmation. Called on a thread of the platform, one call at a time, with no lock held,
/// never from inside a call into it, perhaps before createComponentClient has returned. It may take
/// as long as the component needs. What it throws is logged and goes no further.
using StateChangeHandler = std::function<void(const ComponentClient& client, std::uint32_t sequence,
                                              const std::string& state)>;

/// What createComponentClient gives: a client, or the reason why there is none.
struct ComponentClientResult {
  std::unique_ptr<ComponentClient> client;
  std::string error;  ///< in words, without a client only
};

/// Makes the component known to state management as `name`. A process has one client at a time: a
/// further one fails. Does not throw and waits for no peer.
[[nodiscard]] ComponentClientResult createComponentClient(const std::string& name,
                                                          StateChangeHandler handler) noexcept;

}  // namespace ara::stm

#endif
