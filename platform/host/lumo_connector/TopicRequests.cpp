#include "platform/host/lumo_connector/TopicRequests.h"

#include <algorithm>
#include <utility>

namespace lumo_connector {

namespace {

/// Statuses of an answered subscription, as LumoCallbacks.h tells them.
constexpr std::int32_t kGranted = 0;
constexpr std::int32_t kNotGranted = 1;

}  // namespace

LumoPubSubResult TopicRequests::Subscribe(const std::string& topic) {
  const std::size_t waitingAnswers = events.WaitingAnswers();
  const support::MutexLock lock(mutex);
  if (!IsTaking()) return {kNoSession, 0};
  if (IsFull(waitingAnswers)) return {kRefused, 0};
  Note(topic, TopicState::kWaiting);
  const std::uint16_t id = NextId();
  const auto same = std::find_if(subscriptions.begin(), subscriptions.end(),
                                 [&](const Subscription& other) { return other.topic == topic; });
  if (same == subscriptions.end()) {
    subscriptions.push_back({topic, {id}});
  } else {
    same->requestIds.push_back(id);
  }
  ++unanswered;
  return {isConnected ? kSent : kQueued, id};
}

std::int32_t TopicRequests::Publish(const std::string& topic,
                                    const std::vector<std::uint8_t>& payload) {
  const std::size_t waitingAnswers = events.WaitingAnswers();
  const support::MutexLock lock(mutex);
  if (!IsTaking()) return kNoSession;
  if (IsFull(waitingAnswers) || payload.size() > TopicEvents::kPayloadLimit) return kRefused;
  publications.push_back({topic, NextId(), payload});
  ++unanswered;
  return kSent;
}

void TopicRequests::Begin() {
  const support::MutexLock lock(mutex);
  hasBegun = true;
}

void TopicRequests::End() {
  const support::MutexLock lock(mutex);
  hasEnded = true;
}

bool TopicRequests::HasSession() {
  const support::MutexLock lock(mutex);
  return IsTaking();
}

bool TopicRequests::IsConnected() const {
  const support::MutexLock lock(mutex);
  return isConnected;
}

std::map<std::string, TopicRequests::TopicState> TopicRequests::Topics() const {
  const support::MutexLock lock(mutex);
  return topics;
}

void TopicRequests::Connected() {
  {
    const support::MutexLock lock(mutex);
    isConnected = true;
  }
  while (!lostSubscriptions.empty()) {
    const Subscription lost = std::move(lostSubscriptions.front());
    lostSubscriptions.pop_front();
    Fail(lost);
  }
}

void TopicRequests::Lost() {
  {
    const support::MutexLock lock(mutex);
    isConnected = false;
  }
  for (auto& [number, subscription] : sentSubscriptions) {
    lostSubscriptions.push_back(std::move(subscription));
  }
  sentSubscriptions.clear();
}

void TopicRequests::SendTo(MqttClientIf& client) {
  std::deque<Subscription> newSubscriptions;
  std::deque<Publication> newPublications;
  {
    const support::MutexLock lock(mutex);
    newSubscriptions.swap(subscriptions);
    newPublications.swap(publications);
  }
  for (Subscription& subscription : newSubscriptions) {
    SendSubscription(client, std::move(subscription));
  }
  for (Publication& publication : newPublications) {
    SendPublication(client, std::move(publication));
  }
}

void TopicRequests::SendSubscription(MqttClientIf& client, Subscription subscription) {
  const auto sent = client.Subscribe(subscription.topic);
  switch (sent.outcome) {
    case MqttClientIf::Sent::Outcome::kSent:
      sentSubscriptions[sent.number] = std::move(subscription);
      break;
    case MqttClientIf::Sent::Outcome::kNoConnection:
      lostSubscriptions.push_back(std::move(subscription));
      break;
    case MqttClientIf::Sent::Outcome::kImpossible:
      Answer(subscription, kNotGranted);
      break;
  }
}

void TopicRequests::SendPublication(MqttClientIf& client, Publication publication) {
  const auto sent = client.Publish(publication.topic, publication.payload);
  if (sent.outcome == MqttClientIf::Sent::Outcome::kImpossible) {
    Release(1);
    events.PublishFailed(publication.topic, publication.requestId);
    return;
  }
  publication.payload = {};  // the client has its own copy now
  sentPublications[sent.number] = std::move(publication);
}

void TopicRequests::SubscribeAnswered(int number, bool isGranted) {
  const auto answered = sentSubscriptions.extract(number);
  if (!answered.empty()) Answer(answered.mapped(), isGranted ? kGranted : kNotGranted);
}

void TopicRequests::PublishAcknowledged(int number) {
  const auto answered = sentPublications.extract(number);
  if (answered.empty()) return;
  Release(1);
  events.PublishAcknowledged(answered.mapped().topic, answered.mapped().requestId);
}

void TopicRequests::PublicationsForgotten() {
  for (const auto& [number, publication] : sentPublications) {
    Release(1);
    events.PublishFailed(publication.topic, publication.requestId);
  }
  sentPublications.clear();
}

void TopicRequests::Answer(const Subscription& subscription, std::int32_t status) {
  Release(subscription.requestIds.size());
  {
    const support::MutexLock lock(mutex);
    Note(subscription.topic, status == kGranted ? TopicState::kSubscribed : TopicState::kRefused);
  }
  for (const std::uint16_t id : subscription.requestIds) {
    events.SubscribeAnswered(subscription.topic, status, id);
  }
}

void TopicRequests::Fail(const Subscription& subscription) {
  Release(subscription.requestIds.size());
  for (const std::uint16_t id : subscription.requestIds) {
    events.SubscribeFailed(subscription.topic, id);
  }
}

void TopicRequests::Release(std::size_t count) {
  const support::MutexLock lock(mutex);
  unanswered -= count;
}

bool TopicRequests::IsFull(std::size_t waitingAnswers) const {
  return unanswered + waitingAnswers >= kLimit;
}

void TopicRequests::Note(const std::string& topic, TopicState state) {
  const auto found = topics.find(topic);
  if (found != topics.end()) {
    found->second = state;
  } else if (topics.size() < kTopicLimit) {
    topics.emplace(topic, state);
  }
}

std::uint16_t TopicRequests::NextId() {
  if (++lastId == 0) lastId = 1;
  return lastId;
}

}  // namespace lumo_connector
