// lumo_connector: one listener of each kind, Unix sockets for peers, and a pipe for a broker.
#include "lumo_connector/LumoConnector.h"

#include <cstdlib>
#include <exception>
#include <functional>
#include <utility>

#include "support/Mutex.h"
#include "tests/other_platform/EventThread.h"
#include "tests/other_platform/LineReader.h"
#include "tests/other_platform/Streams.h"
#include "tests/other_platform/Surroundings.h"

namespace lumo_connector {
namespace {

constexpr std::int32_t kSuccess = 1;
constexpr std::int32_t kNotConfigured = 2;
constexpr std::uint8_t kConnected = 2;

std::vector<std::uint8_t> BytesOf(const std::string& digits) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t at = 0; at + 1 < digits.size(); at += 2) {
    const std::string pair = digits.substr(at, 2);
    bytes.push_back(static_cast<std::uint8_t>(std::strtoul(pair.c_str(), nullptr, 16)));
  }
  return bytes;
}

}  // namespace

/// The session, and what it has to tell. No listener is called with the lock held: they are told
/// by events, which look for them when their turn has come.
class LumoConnector::Impl {
 public:
  explicit Impl(LumoSessionCallbackIf* callback) : sessionListener(callback) {}

  void Start() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    if (begun) return;
    begun = true;
    status = SessionStatus::kStarted;
    if (sessionListener == nullptr) return;
    events.Post([this] { sessionListener->LumoConnectorStatus(SessionStatus::kStarted); });
  }

  // The pipe's reader goes first: it posts events.
  void Stop() EXCLUDES(mutex) {
    {
      const support::MutexLock lock(mutex);
      begun = true;
      status = SessionStatus::kStopped;
      topicListener = nullptr;
    }
    streams.Stop();
    EndJobs();
    events.Stop();
  }

  [[nodiscard]] SessionStatus Status() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return status;
  }

  [[nodiscard]] bool IsStarted() const { return Status() == SessionStatus::kStarted; }

  std::uint32_t SubscribeState(const std::string& type, LumoServiceControllerCallbackIf* callback)
      EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    if (callback == nullptr || (begun && status != SessionStatus::kStarted)) return 0;
    events.Post([=] { callback->LumoSCConnectionState({type, kConnected}); });
    return ++lastSubscription;
  }

  std::int32_t Listen(LumoPubSubCallbackIf* callback) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    if (status != SessionStatus::kStarted || callback == nullptr) return 2;
    if (topicListener != nullptr) return 3;
    topicListener = callback;
    return 0;
  }

  /// Tells whoever listens to topics by then.
  void TellOfTopics(std::function<void(LumoPubSubCallbackIf&)> tell) EXCLUDES(mutex) {
    events.Post([this, tell = std::move(tell)] {
      if (LumoPubSubCallbackIf* listener = TopicListener()) tell(*listener);
    });
  }

  // Messages wait in the pipe until there is a subscription.
  LumoPubSubResult Subscribe(const std::string& topic) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    if (status != SessionStatus::kStarted) return {2, 0};
    if (!HasJobsOf(topic)) return {4, 0};
    const std::uint16_t request = ++lastRequest;
    events.Post([this, topic, request] {
      if (LumoPubSubCallbackIf* listener = TopicListener()) {
        listener->LumoSubscribeAcknowledgeReceived(topic, 0, request);
      }
    });
    return {0, request};
  }

  std::int32_t StopListening() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return std::exchange(topicListener, nullptr) == nullptr ? 2 : 0;
  }

  other_platform::Streams streams;

 private:
  bool HasJobsOf(const std::string& topic) REQUIRES(mutex) {
    if (jobs != nullptr) return true;
    try {
      jobs = std::make_unique<other_platform::LineReader>(
          other_platform::kJobsPipe, [this, topic](const std::string& line) {
            TellOfTopics([topic, payload = BytesOf(line)](LumoPubSubCallbackIf& listener) {
              listener.LumoPublishReceived(topic, payload, 1);
            });
          });
      return true;
    } catch (const std::exception&) {
      return false;
    }
  }

  LumoPubSubCallbackIf* TopicListener() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return topicListener;
  }

  void EndJobs() EXCLUDES(mutex) {
    std::unique_ptr<other_platform::LineReader> ending;
    const support::MutexLock lock(mutex);
    ending.swap(jobs);
  }

  LumoSessionCallbackIf* const sessionListener;
  mutable support::Mutex mutex;
  SessionStatus status GUARDED_BY(mutex) = SessionStatus::kStopped;
  bool begun GUARDED_BY(mutex) = false;
  LumoPubSubCallbackIf* topicListener GUARDED_BY(mutex) = nullptr;
  std::uint32_t lastSubscription GUARDED_BY(mutex) = 0;
  std::uint16_t lastRequest GUARDED_BY(mutex) = 0;
  std::unique_ptr<other_platform::LineReader> jobs GUARDED_BY(mutex);
  other_platform::EventThread events;
};

LumoConnector::LumoConnector(LumoSessionCallbackIf* callback)
    : impl(std::make_unique<Impl>(callback)) {}

LumoConnector::~LumoConnector() {
  Stop();
}

void LumoConnector::Start() {
  impl->Start();
}

void LumoConnector::Stop() {
  impl->Stop();
}

SessionStatus LumoConnector::GetSessionStatus() const {
  return impl->Status();
}

std::uint32_t LumoConnector::SubscribeTransactionTypeState(
    const std::string& transactionTypeId, LumoServiceControllerCallbackIf* callback,
    std::uint32_t /*options*/) {
  return impl->SubscribeState(transactionTypeId, callback);
}

LumoTokenResult LumoConnector::GetToken(const std::string& /*operationTypeId*/) const {
  return {kSuccess, "token"};
}

SCUrlResult LumoConnector::GetInvocationUrl(const std::string& operationTypeId) const {
  return {kSuccess, operationTypeId, "http://peer/" + operationTypeId};
}

LumoSocketResult LumoConnector::SocketConnect(const std::string& operationTypeId,
                                              const std::string& /*host*/, std::uint16_t /*port*/) {
  return impl->streams.Connect(operationTypeId);
}

std::int32_t LumoConnector::PubSubConnect(LumoPubSubCallbackIf* callback) {
  return impl->Listen(callback);
}

LumoPubSubResult LumoConnector::PubSubSubscribe(const std::string& topic, bool /*persistent*/) {
  return impl->Subscribe(topic);
}

std::int32_t LumoConnector::PubSubPublish(const std::string& /*topic*/,
                                          const std::vector<std::uint8_t>& /*payload*/,
                                          std::uint32_t /*timeToLive*/, std::uint32_t /*priority*/,
                                          std::uint32_t /*payloadFormat*/,
                                          const std::string& /*contentType*/, bool /*reliable*/) {
  return kNotConfigured;
}

std::int32_t LumoConnector::PubSubDisconnect() {
  return impl->StopListening();
}

}  // namespace lumo_connector
