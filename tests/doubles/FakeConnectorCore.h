/// What a FakeLumoConnector and the connector it plays share: answers, listeners, records, peers,
/// and the thread that tells the listeners. Only those two use it. Any thread.
#ifndef TESTS_DOUBLES_FAKECONNECTORCORE_H
#define TESTS_DOUBLES_FAKECONNECTORCORE_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/Mutex.h"
#include "tests/doubles/FakeLumoConnector.h"

namespace tests {

/// No listener is called with the mutex held.
class FakeConnectorCore {
 public:
  /// Those who listen to the connector.
  struct Listeners {
    lumo_connector::LumoSessionCallbackIf* session = nullptr;
    lumo_connector::LumoPubSubCallbackIf* pubSub = nullptr;
    std::vector<std::pair<std::string, lumo_connector::LumoServiceControllerCallbackIf*>> services;
  };

  /// What a SocketConnect does.
  struct ConnectPlan {
    std::int32_t status = 0;
    std::string text;
    PeerScript script;  ///< of the stream, when the status is 0
    bool used = false;
  };

  /// What the connector answers.
  struct Answers {
    std::map<std::string, lumo_connector::LumoTokenResult> tokens;
    std::map<std::string, lumo_connector::SCUrlResult> urls;
    std::deque<ConnectPlan> connects;
    lumo_connector::SessionStatus startStatus = lumo_connector::SessionStatus::kStarted;
    bool holdStart = false;
    std::uint8_t connectionState = 2;
    bool failStateSubscription = false;
    std::int32_t pubSubConnectStatus = 0;
    std::int32_t pubSubSubscribeStatus = 0;
    std::int32_t pubSubPublishStatus = 0;
    std::int32_t pubSubDisconnectStatus = 0;
  };

  /// All that the operations work on.
  struct State {
    Answers answers;
    Listeners listeners;
    lumo_connector::SessionStatus status = lumo_connector::SessionStatus::kStopped;
    bool stopped = false;
    std::vector<std::string> calls;
    std::function<void(const std::string& call)> onCall;
    std::vector<FakeLumoConnector::Publication> publications;
    std::vector<std::shared_ptr<ScriptedPeer>> peers;
    std::uint16_t lastId = 0;
  };

  /// Something to tell the listeners that there are when its turn comes.
  using Event = std::function<void(const Listeners&)>;

  /// Starts the thread.
  FakeConnectorCore();

  /// REQUIRES: End has been called.
  ~FakeConnectorCore() = default;
  FakeConnectorCore(const FakeConnectorCore&) = delete;
  FakeConnectorCore& operator=(const FakeConnectorCore&) = delete;

  /// The core of the FakeLumoConnector alive, or null.
  static std::shared_ptr<FakeConnectorCore> Current();
  static void SetCurrent(std::shared_ptr<FakeConnectorCore> core);

  /// Runs `action` on the state under the lock and returns its result.
  template <typename Action>
  auto With(Action action) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return action(state);
  }

  /// Has the callback thread tell the listeners `event`, after all earlier ones.
  void Post(Event event) EXCLUDES(mutex);

  /// Waits until all that was posted so far has been told.
  void WaitForCallbacks() EXCLUDES(mutex);

  /// Tells `only`, or all for null, that their types are in `connectionState`.
  void PostConnectionState(std::uint8_t connectionState,
                           lumo_connector::LumoServiceControllerCallbackIf* only);

  /// Does what SocketConnect was planned to.
  [[nodiscard]] lumo_connector::LumoSocketResult Connect() EXCLUDES(mutex);

  /// Waits for the end of all scripts so far.
  void WaitForPeers() EXCLUDES(mutex);

  /// Nobody listens any more, all streams end. Waits for the callback under way.
  void Stop() EXCLUDES(mutex);

  /// Stops, and ends the thread and all scripts.
  void End() EXCLUDES(mutex);

 private:
  void RunCallbacks() EXCLUDES(mutex);
  bool NextEvent(Event& event, Listeners& listeners) EXCLUDES(mutex);

  support::Mutex mutex;
  support::ConditionVariable changed;
  State state GUARDED_BY(mutex);
  std::deque<Event> events GUARDED_BY(mutex);
  unsigned posted GUARDED_BY(mutex) = 0;
  unsigned told GUARDED_BY(mutex) = 0;
  bool telling GUARDED_BY(mutex) = false;
  bool ending GUARDED_BY(mutex) = false;
  std::thread callbacks;  ///< last: it uses the members above
};

}  // namespace tests

#endif
