/// What the client has asked of the broker, from the call to the broker's answer. The facade adds
/// on any thread; everything else is called on the broker's thread.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_TOPICREQUESTS_H
#define PLATFORM_HOST_LUMO_CONNECTOR_TOPICREQUESTS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "lumo_connector/LumoTypes.h"
#include "platform/host/lumo_connector/MqttClientIf.h"
#include "platform/host/lumo_connector/TopicEvents.h"
#include "support/Mutex.h"

namespace lumo_connector {

/// Keeps requests until there is a connection, sends them in order, and brings each answer to
/// TopicEvents under the number of the request.
class TopicRequests {
 public:
  /// Requests that have no answer, or one that the listener has not heard; more are refused.
  static constexpr std::size_t kLimit = 256;

  // Statuses of requests, as LumoConnector.h tells them.
  static constexpr std::int32_t kSent = 0;
  static constexpr std::int32_t kNoSession = 2;
  static constexpr std::int32_t kQueued = 3;
  static constexpr std::int32_t kRefused = 4;

  /// Topics whose states are kept for whoever asks; of more, the last ones are not.
  static constexpr std::size_t kTopicLimit = 64;

  /// What has become of the last request for a topic.
  enum class TopicState {
    kWaiting,  ///< no answer of the broker yet, or none before the connection was lost
    kSubscribed,
    kRefused,
  };

  /// No session yet. `topicEvents` outlives this object.
  explicit TopicRequests(TopicEvents& topicEvents) : events(topicEvents) {}

  /// Returns kSent with a connection, otherwise kQueued; kNoSession outside of a session; kRefused
  /// above kLimit. Throws std::bad_alloc, and then nothing has changed but what Topics tells.
  [[nodiscard]] LumoPubSubResult Subscribe(const std::string& topic) EXCLUDES(mutex);

  /// Returns kSent, with or without a connection; kNoSession outside of a session; kRefused above
  /// kLimit and for a payload above TopicEvents::kPayloadLimit. Throws std::bad_alloc, and then
  /// nothing has changed.
  [[nodiscard]] std::int32_t Publish(const std::string& topic,
                                     const std::vector<std::uint8_t>& payload) EXCLUDES(mutex);

  /// Requests are taken from now on. Does nothing after End.
  void Begin() EXCLUDES(mutex);

  /// Requests are not taken any more.
  void End() EXCLUDES(mutex);

  /// Whether requests are taken.
  [[nodiscard]] bool HasSession() EXCLUDES(mutex);

  /// Whether there is a connection.
  [[nodiscard]] bool IsConnected() const EXCLUDES(mutex);

  /// Every topic that was asked for. Throws std::bad_alloc.
  [[nodiscard]] std::map<std::string, TopicState> Topics() const EXCLUDES(mutex);

  /// There is a connection. What the last one left without answer is told as failed.
  void Connected() EXCLUDES(mutex);

  /// The connection is lost. What has been published is the client's to send again.
  void Lost() EXCLUDES(mutex);

  /// Hands what waits to `client`. REQUIRES: there is a connection.
  void SendTo(MqttClientIf& client) EXCLUDES(mutex);

  // Answers of the broker; unknown numbers are passed over.
  void SubscribeAnswered(int number, bool isGranted) EXCLUDES(mutex);
  void PublishAcknowledged(int number) EXCLUDES(mutex);

  /// The client will not send again what it has.
  void PublicationsForgotten() EXCLUDES(mutex);

 private:
  /// One subscription, for everybody who asked for this topic before it was sent.
  struct Subscription {
    std::string topic;
    std::vector<std::uint16_t> requestIds;
  };

  struct Publication {
    std::string topic;
    std::uint16_t requestId;
    std::vector<std::uint8_t> payload;
  };

  [[nodiscard]] bool IsTaking() const REQUIRES(mutex) { return hasBegun && !hasEnded; }

  [[nodiscard]] bool IsFull(std::size_t waitingAnswers) const REQUIRES(mutex);

  /// Keeps the state of `topic`, as far as there is room for it. Throws std::bad_alloc.
  void Note(const std::string& topic, TopicState state) REQUIRES(mutex);

  /// From 1 to 65535, then again.
  [[nodiscard]] std::uint16_t NextId() REQUIRES(mutex);

  void SendSubscription(MqttClientIf& client, Subscription subscription) EXCLUDES(mutex);
  void SendPublication(MqttClientIf& client, Publication publication) EXCLUDES(mutex);

  /// Tells everybody who asked.
  void Answer(const Subscription& subscription, std::int32_t status) EXCLUDES(mutex);
  void Fail(const Subscription& subscription) EXCLUDES(mutex);

  /// `count` requests have their answer.
  void Release(std::size_t count) EXCLUDES(mutex);

  TopicEvents& events;

  // Of the broker's thread alone: by the number that the answer will bear.
  std::map<int, Subscription> sentSubscriptions;
  std::map<int, Publication> sentPublications;
  std::deque<Subscription> lostSubscriptions;  ///< sent, and the connection lost before the answer

  mutable support::Mutex mutex;
  bool hasBegun GUARDED_BY(mutex) = false;
  bool hasEnded GUARDED_BY(mutex) = false;
  bool isConnected GUARDED_BY(mutex) = false;
  std::size_t unanswered GUARDED_BY(mutex) = 0;
  std::uint16_t lastId GUARDED_BY(mutex) = 0;
  std::deque<Subscription> subscriptions GUARDED_BY(mutex);  ///< not sent yet
  std::deque<Publication> publications GUARDED_BY(mutex);
  std::map<std::string, TopicState> topics GUARDED_BY(mutex);
};

}  // namespace lumo_connector

#endif
