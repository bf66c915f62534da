#include "platform/host/lumo_connector/TransactionTypeStates.h"

#include <algorithm>
#include <utility>

namespace lumo_connector {

std::uint32_t TransactionTypeStates::Subscribe(const std::string& transactionTypeId,
                                               LumoServiceControllerCallbackIf* callback) {
  std::uint32_t number = 0;
  {
    const support::MutexLock lock(mutex);
    subscriptions.push_back({transactionTypeId, callback});
    subscriptions.back().Add(ShownState());
    number = static_cast<std::uint32_t>(subscriptions.size());
  }
  thread.Wake();
  return number;
}

void TransactionTypeStates::Set(std::uint8_t newState) noexcept {
  {
    const support::MutexLock lock(mutex);
    Change(newState, held);
  }
  thread.Wake();
}

void TransactionTypeStates::Hold(std::uint8_t heldState) noexcept {
  {
    const support::MutexLock lock(mutex);
    Change(state, heldState);
  }
  thread.Wake();
}

void TransactionTypeStates::Follow() noexcept {
  {
    const support::MutexLock lock(mutex);
    Change(state, std::nullopt);
  }
  thread.Wake();
}

TransactionTypeStates::Shown TransactionTypeStates::Present() const noexcept {
  const support::MutexLock lock(mutex);
  return {ShownState(), held.has_value()};
}

void TransactionTypeStates::Change(std::uint8_t newState,
                                   std::optional<std::uint8_t> newHeld) noexcept {
  const std::uint8_t former = ShownState();
  state = newState;
  held = newHeld;
  if (ShownState() == former) return;
  for (Subscription& subscription : subscriptions) subscription.Add(ShownState());
}

bool TransactionTypeStates::TellNext() {
  SCConnectionStateUpdate update;
  LumoServiceControllerCallbackIf* callback = nullptr;
  {
    const support::MutexLock lock(mutex);
    Subscription* const subscription = FindWaiting();
    if (subscription == nullptr) return false;
    update.state = subscription->TakeOldest();
    update.transactionTypeId = subscription->transactionTypeId;
    callback = subscription->callback;
  }
  callback->LumoSCConnectionState(std::move(update));
  return true;
}

TransactionTypeStates::Subscription* TransactionTypeStates::FindWaiting() {
  const auto found =
      std::find_if(subscriptions.begin(), subscriptions.end(),
                   [](const Subscription& candidate) { return candidate.count > 0; });
  return found == subscriptions.end() ? nullptr : &*found;
}

void TransactionTypeStates::Subscription::Add(std::uint8_t newState) noexcept {
  if (count == waiting.size()) {
    std::copy(waiting.begin() + 2, waiting.end(), waiting.begin());
    count -= 2;
  }
  waiting[count++] = newState;
}

std::uint8_t TransactionTypeStates::Subscription::TakeOldest() noexcept {
  const std::uint8_t oldest = waiting.front();
  std::copy(waiting.begin() + 1, waiting.end(), waiting.begin());
  --count;
  return oldest;
}

}  // namespace lumo_connector
