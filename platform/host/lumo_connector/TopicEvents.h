/// What the broker has said about topics and the listener has not heard yet: messages, answers,
/// changes of the connection. The broker's thread adds, the callback thread tells. Any thread.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_TOPICEVENTS_H
#define PLATFORM_HOST_LUMO_CONNECTOR_TOPICEVENTS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "lumo_connector/LumoCallbacks.h"
#include "platform/host/lumo_connector/CallbackThread.h"
#include "platform/host/lumo_connector/DropCounter.h"
#include "support/Mutex.h"

namespace lumo_connector {

/// One row of events in the order in which they came. While nobody listens, messages and answers
/// wait; changes of the connection do not, as Connect tells the state.
class TopicEvents : public CallbackSource {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// Messages between the broker and the end of the listener's callback; of more, the newest are
  /// dropped.
  static constexpr std::size_t kMessageLimit = 256;

  /// Larger payloads are dropped.
  static constexpr std::size_t kPayloadLimit = 65536;

  /// Changes of the connection that wait; of more, the oldest two are forgotten, a loss and the
  /// return after it.
  static constexpr std::size_t kChangeLimit = 16;

  /// States as the listener hears them.
  static constexpr std::int32_t kConnected = 0;
  static constexpr std::int32_t kLost = 1;

  /// `callbackThread` outlives this object.
  explicit TopicEvents(CallbackThread& callbackThread) : thread(callbackThread) {}

  /// Begins to tell `callback`, which is not null. Returns whether it does: false when somebody
  /// listens already. `isConnected` becomes the state from which changes count.
  [[nodiscard]] bool Listen(LumoPubSubCallbackIf* callback, bool& isConnected) EXCLUDES(mutex);

  /// Returns false when nobody listened.
  [[nodiscard]] bool Unlisten() EXCLUDES(mutex);

  /// The connection came or went. Called when that changes.
  void ConnectionChanged(bool isConnected) EXCLUDES(mutex);

  /// A message came. Drops it when a limit is passed.
  void MessageArrived(const std::string& topic, std::vector<std::uint8_t> payload,
                      std::uint16_t messageId) EXCLUDES(mutex);

  /// A message came whose payload, above kPayloadLimit, nobody has copied.
  void OversizedMessageArrived() EXCLUDES(mutex);

  /// Logs what has been dropped, each kind at most once in DropCounter::kInterval.
  void ReportDrops(TimePoint now) EXCLUDES(mutex);

  // Answers to requests, as LumoPubSubCallbackIf tells them.
  void SubscribeAnswered(const std::string& topic, std::int32_t status, std::uint16_t requestId)
      EXCLUDES(mutex);
  void SubscribeFailed(const std::string& topic, std::uint16_t requestId) EXCLUDES(mutex);
  void PublishAcknowledged(const std::string& topic, std::uint16_t requestId) EXCLUDES(mutex);
  void PublishFailed(const std::string& topic, std::uint16_t requestId) EXCLUDES(mutex);

  /// Answers that nobody has heard yet. Whoever makes requests bounds them by it.
  [[nodiscard]] std::size_t WaitingAnswers() EXCLUDES(mutex);

  bool TellNext() override EXCLUDES(mutex);

 private:
  using Tell = std::function<void(LumoPubSubCallbackIf&)>;

  enum class Kind { kChange, kMessage, kAnswer };

  struct Event {
    Kind kind;
    Tell tell;
  };

  /// Counts a message as waiting until its callback has ended, however it ends.
  class Told;

  void AddAnswer(Tell tell) EXCLUDES(mutex);

  /// Adds an event while its kind has room.
  void Add(Kind kind, Tell tell) REQUIRES(mutex);

  /// Takes the first `limit` events of `kind` out of the row.
  void Forget(Kind kind, std::size_t limit) REQUIRES(mutex);

  [[nodiscard]] std::size_t& CountOf(Kind kind) REQUIRES(mutex);

  CallbackThread& thread;

  support::Mutex mutex;
  LumoPubSubCallbackIf* listener GUARDED_BY(mutex) = nullptr;
  bool connected GUARDED_BY(mutex) = false;
  std::deque<Event> events GUARDED_BY(mutex);  ///< oldest first
  std::size_t changes GUARDED_BY(mutex) = 0;   ///< events of each kind, the one being told included
  std::size_t messages GUARDED_BY(mutex) = 0;
  std::size_t answers GUARDED_BY(mutex) = 0;
  DropCounter surplus GUARDED_BY(mutex);
  DropCounter oversized GUARDED_BY(mutex);
};

}  // namespace lumo_connector

#endif
