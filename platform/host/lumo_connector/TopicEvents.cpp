#include "platform/host/lumo_connector/TopicEvents.h"

#include <algorithm>
#include <utility>

#include "platform/host/lumo_connector/ConnectorLog.h"

namespace lumo_connector {

class TopicEvents::Told {
 public:
  Told(TopicEvents& events, Kind eventKind) : owner(events), kind(eventKind) {}
  ~Told() {
    const support::MutexLock lock(owner.mutex);
    --owner.CountOf(kind);
  }
  Told(const Told&) = delete;
  Told& operator=(const Told&) = delete;

 private:
  TopicEvents& owner;
  const Kind kind;
};

bool TopicEvents::Listen(LumoPubSubCallbackIf* callback, bool& isConnected) {
  {
    const support::MutexLock lock(mutex);
    if (listener != nullptr) return false;
    listener = callback;
    isConnected = connected;
  }
  thread.Wake();
  return true;
}

bool TopicEvents::Unlisten() {
  const support::MutexLock lock(mutex);
  Forget(Kind::kChange, kChangeLimit);
  return std::exchange(listener, nullptr) != nullptr;
}

void TopicEvents::ConnectionChanged(bool isConnected) {
  {
    const support::MutexLock lock(mutex);
    connected = isConnected;
    if (listener == nullptr) return;
    if (changes >= kChangeLimit) Forget(Kind::kChange, 2);
    Add(Kind::kChange, [state = isConnected ? kConnected : kLost](LumoPubSubCallbackIf& heard) {
      heard.LumoPubSubConnectionState(state);
    });
  }
  thread.Wake();
}

void TopicEvents::MessageArrived(const std::string& topic, std::vector<std::uint8_t> payload,
                                 std::uint16_t messageId) {
  if (payload.size() > kPayloadLimit) return OversizedMessageArrived();
  Tell tell = [topic, bytes = std::move(payload), messageId](LumoPubSubCallbackIf& heard) {
    heard.LumoPublishReceived(topic, bytes, messageId);
  };
  {
    const support::MutexLock lock(mutex);
    if (messages >= kMessageLimit) return surplus.Add();
    Add(Kind::kMessage, std::move(tell));
  }
  thread.Wake();
}

void TopicEvents::OversizedMessageArrived() {
  const support::MutexLock lock(mutex);
  oversized.Add();
}

void TopicEvents::ReportDrops(TimePoint now) {
  std::size_t surplusCount = 0;
  std::size_t oversizedCount = 0;
  {
    const support::MutexLock lock(mutex);
    surplusCount = surplus.TakeDue(now);
    oversizedCount = oversized.TakeDue(now);
  }
  if (surplusCount > 0) {
    LogWarning("messages dropped because " + std::to_string(kMessageLimit) +
               " others wait: " + std::to_string(surplusCount));
  }
  if (oversizedCount > 0) {
    LogWarning("messages dropped because they have more than " + std::to_string(kPayloadLimit) +
               " bytes: " + std::to_string(oversizedCount));
  }
}

void TopicEvents::SubscribeAnswered(const std::string& topic, std::int32_t status,
                                    std::uint16_t requestId) {
  AddAnswer([topic, status, requestId](LumoPubSubCallbackIf& heard) {
    heard.LumoSubscribeAcknowledgeReceived(topic, status, requestId);
  });
}

void TopicEvents::SubscribeFailed(const std::string& topic, std::uint16_t requestId) {
  AddAnswer([topic, requestId](LumoPubSubCallbackIf& heard) {
    heard.LumoSubscribeFailed(topic, requestId);
  });
}

void TopicEvents::PublishAcknowledged(const std::string& topic, std::uint16_t requestId) {
  AddAnswer([topic, requestId](LumoPubSubCallbackIf& heard) {
    heard.LumoPublishAcknowledgeReceived(topic, requestId);
  });
}

void TopicEvents::PublishFailed(const std::string& topic, std::uint16_t requestId) {
  AddAnswer([topic, requestId](LumoPubSubCallbackIf& heard) {
    heard.LumoPublishFailed(topic, requestId);
  });
}

std::size_t TopicEvents::WaitingAnswers() {
  const support::MutexLock lock(mutex);
  return answers;
}

bool TopicEvents::TellNext() {
  Event event{};
  LumoPubSubCallbackIf* heard = nullptr;
  {
    const support::MutexLock lock(mutex);
    if (listener == nullptr || events.empty()) return false;
    heard = listener;
    event = std::move(events.front());
    events.pop_front();
  }
  const Told told(*this, event.kind);
  event.tell(*heard);
  return true;
}

void TopicEvents::AddAnswer(Tell tell) {
  {
    const support::MutexLock lock(mutex);
    Add(Kind::kAnswer, std::move(tell));
  }
  thread.Wake();
}

void TopicEvents::Add(Kind kind, Tell tell) {
  events.push_back({kind, std::move(tell)});
  ++CountOf(kind);
}

void TopicEvents::Forget(Kind kind, std::size_t limit) {
  std::size_t forgotten = 0;
  const auto matches = [&](const Event& event) {
    if (event.kind != kind || forgotten == limit) return false;
    ++forgotten;
    return true;
  };
  events.erase(std::remove_if(events.begin(), events.end(), matches), events.end());
  CountOf(kind) -= forgotten;
}

std::size_t& TopicEvents::CountOf(Kind kind) {
  switch (kind) {
    case Kind::kChange:
      return changes;
    case Kind::kMessage:
      return messages;
    case Kind::kAnswer:
      break;
  }
  return answers;
}

}  // namespace lumo_connector
