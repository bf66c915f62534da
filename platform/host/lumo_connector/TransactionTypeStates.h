/// Who wants to know the connection state of which transaction type, and what they have not heard
/// yet. All transaction types have the same state: the connection's, which the session sets, or one
/// that somebody at the control socket holds instead. Any thread.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_TRANSACTIONTYPESTATES_H
#define PLATFORM_HOST_LUMO_CONNECTOR_TRANSACTIONTYPESTATES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <string>

#include "lumo_connector/LumoCallbacks.h"
#include "platform/host/lumo_connector/CallbackThread.h"
#include "support/Mutex.h"

namespace lumo_connector {

/// Tells each subscriber the state at the time of its subscription, then each change, in order.
class TransactionTypeStates : public CallbackSource {
 public:
  static constexpr std::uint8_t kNoConnection = 1;
  static constexpr std::uint8_t kConnected = 2;

  /// States that wait for a subscriber which is slow to take them; of more, the oldest two are
  /// forgotten, so that a loss and the return after it are forgotten together.
  static constexpr std::size_t kWaitingLimit = 16;

  /// The state is kNoConnection. `callbackThread` outlives this object.
  explicit TransactionTypeStates(CallbackThread& callbackThread) : thread(callbackThread) {}

  /// Returns the subscription's number, never 0. `callback` outlives the last callback. Throws
  /// std::bad_alloc, and then nothing has changed.
  std::uint32_t Subscribe(const std::string& transactionTypeId,
                          LumoServiceControllerCallbackIf* callback) EXCLUDES(mutex);

  /// The state that subscribers are told.
  struct Shown {
    std::uint8_t state;
    bool isHeld;
  };

  /// The connection's state is `newState` from now on. Nobody is told while a state is held.
  void Set(std::uint8_t newState) noexcept EXCLUDES(mutex);

  /// Everybody is told `heldState`, whatever the connection does, until Follow.
  void Hold(std::uint8_t heldState) noexcept EXCLUDES(mutex);

  /// The connection's state shows again.
  void Follow() noexcept EXCLUDES(mutex);

  [[nodiscard]] Shown Present() const noexcept EXCLUDES(mutex);

  bool TellNext() override EXCLUDES(mutex);

 private:
  struct Subscription {
    std::string transactionTypeId;
    LumoServiceControllerCallbackIf* callback;
    std::array<std::uint8_t, kWaitingLimit> waiting{};  ///< oldest first
    std::size_t count = 0;

    void Add(std::uint8_t newState) noexcept;
    [[nodiscard]] std::uint8_t TakeOldest() noexcept;
  };

  /// The next subscription with something to hear; null when there is none. It stays where it is.
  [[nodiscard]] Subscription* FindWaiting() REQUIRES(mutex);

  /// The connection's state and the held one, if any, are these from now on; who subscribed hears
  /// of it if that changes what shows.
  void Change(std::uint8_t newState, std::optional<std::uint8_t> newHeld) noexcept REQUIRES(mutex);

  [[nodiscard]] std::uint8_t ShownState() const noexcept REQUIRES(mutex) {
    return held.value_or(state);
  }

  CallbackThread& thread;

  mutable support::Mutex mutex;
  std::uint8_t state GUARDED_BY(mutex) = kNoConnection;  ///< the connection's
  std::optional<std::uint8_t> held GUARDED_BY(mutex);
  std::list<Subscription> subscriptions GUARDED_BY(mutex);
};

}  // namespace lumo_connector

#endif
