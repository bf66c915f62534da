#include "lumo_connector/LumoConnector.h"

#include <cerrno>
#include <exception>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <utility>

#include "platform/host/config/HostConfig.h"
#include "platform/host/lumo_connector/BrokerThread.h"
#include "platform/host/lumo_connector/CallbackThread.h"
#include "platform/host/lumo_connector/ConnectorControl.h"
#include "platform/host/lumo_connector/ConnectorLog.h"
#include "platform/host/lumo_connector/Exchanges.h"
#include "platform/host/lumo_connector/MosquittoClient.h"
#include "platform/host/lumo_connector/Services.h"
#include "platform/host/lumo_connector/TopicEvents.h"
#include "platform/host/lumo_connector/TopicRequests.h"
#include "platform/host/lumo_connector/TransactionTypeStates.h"
#include "support/Mutex.h"

namespace lumo_connector {

using platform_host::HostConfig;

namespace {

constexpr std::int32_t kNotConfigured = 2;  ///< status of GetToken, GetInvocationUrl and PubSub

// Statuses of PubSubConnect.
constexpr std::int32_t kConnected = 0;
constexpr std::int32_t kInProgress = 1;
constexpr std::int32_t kListenedAlready = 3;

/// From 0 to 1.
double RandomFraction() {
  std::random_device device;
  return std::uniform_real_distribution<double>(0, 1)(device);
}

}  // namespace

/// The session, and what belongs to it. The callback thread exists from the construction on and
/// waits: a connector that could be made can be started, and Start never leaves its caller waiting
/// for a callback that cannot come.
class LumoConnector::Impl : public CallbackSource {
 public:
  explicit Impl(LumoSessionCallbackIf* sessionCallback)
      : callback(sessionCallback),
        states(callbacks),
        events(callbacks),
        requests(events),
        control(platform_host::ControlBoard::OfProcess(),
                {states, requests, [this] { return Status(); }, [this] { return Broker(); }}) {
    callbacks.Begin({this, &states, &events});
  }

  ~Impl() override { Stop(); }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void Start() EXCLUDES(mutex) {
    {
      const support::MutexLock lock(mutex);
      if (started) return;
      started = isStartDue = true;
    }
    callbacks.Wake();
  }

  void Stop() EXCLUDES(mutex) {
    {
      const support::MutexLock lock(mutex);
      started = stopped = true;
      config = nullptr;
    }
    requests.End();
    exchanges.Stop();
    broker.Stop();
    callbacks.Stop();
    const support::MutexLock lock(mutex);
    status = SessionStatus::kStopped;
  }

  [[nodiscard]] SessionStatus Status() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return status;
  }

  [[nodiscard]] std::uint32_t SubscribeState(const std::string& transactionTypeId,
                                             LumoServiceControllerCallbackIf* listener)
      EXCLUDES(mutex) {
    if (listener == nullptr || IsStopped()) return 0;
    try {
      const std::uint32_t id = states.Subscribe(transactionTypeId, listener);
      WantBroker();
      return id;
    } catch (const std::bad_alloc&) {
      return 0;
    }
  }

  /// The configuration of the present session; null without one.
  [[nodiscard]] const HostConfig* Config() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return config;
  }

  /// The broker of the present session; empty without one.
  [[nodiscard]] std::string Broker() const EXCLUDES(mutex) {
    const HostConfig* const present = Config();
    if (present == nullptr || !present->broker) return "";
    return BrokerSession::AddressOf(*present->broker);
  }

  [[nodiscard]] LumoSocketResult Connect(const std::string& operationTypeId,
                                         const std::string& host, std::uint16_t port)
      EXCLUDES(mutex) {
    if (const HostConfig* const present = Config()) {
      return exchanges.Connect(*present, operationTypeId, host, port);
    }
    const std::string text = "there is no session";
    LogError("cannot connect to " + host + ":" + std::to_string(port) + " for " + operationTypeId +
             ": " + text);
    return {ENOTCONN, -1, "", text};
  }

  [[nodiscard]] std::int32_t Listen(LumoPubSubCallbackIf* listener) EXCLUDES(mutex) {
    if (listener == nullptr || !requests.HasSession()) return kNotConfigured;
    bool isConnected = false;
    if (!events.Listen(listener, isConnected)) return kListenedAlready;
    WantBroker();
    return isConnected ? kConnected : kInProgress;
  }

  [[nodiscard]] LumoPubSubResult Subscribe(const std::string& topic) {
    const auto result = requests.Subscribe(topic);
    WantBroker();
    broker.Wake();
    return result;
  }

  [[nodiscard]] std::int32_t Publish(const std::string& topic,
                                     const std::vector<std::uint8_t>& payload) {
    const auto result = requests.Publish(topic, payload);
    WantBroker();
    broker.Wake();
    return result;
  }

  [[nodiscard]] std::int32_t Unlisten() { return events.Unlisten() ? 0 : kNotConfigured; }

  /// Tells of the session: its beginning, then the rejection. Begins that with the broker between
  /// the two.
  bool TellNext() override EXCLUDES(mutex) {
    switch (TakeDue()) {
      case Due::kStart:
        Tell(Open());
        return true;
      case Due::kBroker:
        if (!BeginBrokerSession()) Tell(SessionStatus::kFailed);
        return true;
      case Due::kRejection:
        Tell(SessionStatus::kRejected);
        return true;
      case Due::kNothing:
        break;
    }
    return false;
  }

 private:
  enum class Due { kNothing, kStart, kBroker, kRejection };

  [[nodiscard]] Due TakeDue() EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    if (std::exchange(isStartDue, false)) return Due::kStart;
    if (isBrokerWanted && config != nullptr && std::exchange(isBrokerDue, false)) {
      return Due::kBroker;
    }
    return std::exchange(isRejectionDue, false) ? Due::kRejection : Due::kNothing;
  }

  [[nodiscard]] bool IsStopped() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return stopped;
  }

  /// Whatever goes wrong gives a failed session: the client waits for its callback.
  [[nodiscard]] SessionStatus Open() noexcept EXCLUDES(mutex) {
    try {
      const auto& loaded = HostConfig::OfProcess();
      if (!loaded.Ok()) {
        LogError(loaded.Failure().Text());
        return SessionStatus::kFailed;
      }
      if (!OpenBroker(loaded.Value())) return SessionStatus::kFailed;
      const support::MutexLock lock(mutex);
      if (!stopped) config = &loaded.Value();
      return SessionStatus::kStarted;
    } catch (const std::exception& error) {
      LogError(error.what());
    }
    requests.End();
    return SessionStatus::kFailed;
  }

  /// Returns false, and one line has told why, when there can be no session with the broker.
  [[nodiscard]] bool OpenBroker(const HostConfig& loaded) {
    if (!loaded.broker) {
      states.Set(TransactionTypeStates::kConnected);
      return true;
    }
    auto client = MosquittoClient::Make(*loaded.broker, TopicEvents::kPayloadLimit);
    if (!client.Ok()) {
      LogError(client.Failure().Text());
      return false;
    }
    BrokerSession::Parties parties{states, events, requests, [this] { Reject(); }};
    auto session = std::make_unique<BrokerSession>(*loaded.broker, std::move(client).Take(),
                                                   std::move(parties), RandomFraction);
    requests.Begin();
    waitingSession = std::move(session);
    const support::MutexLock lock(mutex);
    isBrokerDue = true;
    return true;
  }

  /// Until then a process that only installs a container file leaves the broker's messages, and the
  /// unit's place at the broker, to the one that listens to them.
  void WantBroker() EXCLUDES(mutex) {
    {
      const support::MutexLock lock(mutex);
      isBrokerWanted = true;
    }
    callbacks.Wake();
  }

  /// Returns false, and one line has told why, when there can be no session with the broker.
  [[nodiscard]] bool BeginBrokerSession() noexcept {
    try {
      broker.Start(std::move(waitingSession));
      return true;
    } catch (const std::exception& error) {
      LogError(error.what());
    }
    requests.End();
    return false;
  }

  void Reject() EXCLUDES(mutex) {
    {
      const support::MutexLock lock(mutex);
      isRejectionDue = true;
    }
    callbacks.Wake();
  }

  void Tell(SessionStatus told) EXCLUDES(mutex) {
    {
      const support::MutexLock lock(mutex);
      status = told;
    }
    if (callback != nullptr) callback->LumoConnectorStatus(told);
  }

  LumoSessionCallbackIf* const callback;

  mutable support::Mutex mutex;
  bool started GUARDED_BY(mutex) = false;
  bool stopped GUARDED_BY(mutex) = false;
  bool isStartDue GUARDED_BY(mutex) = false;      ///< to be told by the callback thread
  bool isBrokerDue GUARDED_BY(mutex) = false;     ///< `waitingSession` is to be begun, when wanted
  bool isBrokerWanted GUARDED_BY(mutex) = false;  ///< somebody listens or sends
  bool isRejectionDue GUARDED_BY(mutex) = false;  ///< to be told by the callback thread
  SessionStatus status GUARDED_BY(mutex) = SessionStatus::kStopped;
  const HostConfig* config GUARDED_BY(mutex) = nullptr;

  // Each uses those above it.
  CallbackThread callbacks;
  TransactionTypeStates states;
  TopicEvents events;
  TopicRequests requests;
  std::unique_ptr<BrokerSession> waitingSession;  ///< of the callback thread
  BrokerThread broker;
  platform_host::Exchanges exchanges;
  const ConnectorControl control;  ///< nobody asks any more when the others end
};

LumoConnector::LumoConnector(LumoSessionCallbackIf* callback)
    : impl(std::make_unique<Impl>(callback)) {}

LumoConnector::~LumoConnector() = default;

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

LumoTokenResult LumoConnector::GetToken(const std::string& operationTypeId) const {
  const HostConfig* const config = impl->Config();
  if (config == nullptr) return {kNotConfigured, ""};
  return platform_host::TokenOf(*config, operationTypeId);
}

SCUrlResult LumoConnector::GetInvocationUrl(const std::string& operationTypeId) const {
  const HostConfig* const config = impl->Config();
  if (config == nullptr) return {kNotConfigured, operationTypeId, ""};
  return platform_host::UrlOf(*config, operationTypeId);
}

LumoSocketResult LumoConnector::SocketConnect(const std::string& operationTypeId,
                                              const std::string& host, std::uint16_t port) {
  return impl->Connect(operationTypeId, host, port);
}

std::int32_t LumoConnector::PubSubConnect(LumoPubSubCallbackIf* callback) {
  return impl->Listen(callback);
}

LumoPubSubResult LumoConnector::PubSubSubscribe(const std::string& topic, bool /*persistent*/) {
  return impl->Subscribe(topic);
}

std::int32_t LumoConnector::PubSubPublish(const std::string& topic,
                                          const std::vector<std::uint8_t>& payload,
                                          std::uint32_t /*timeToLive*/, std::uint32_t /*priority*/,
                                          std::uint32_t /*payloadFormat*/,
                                          const std::string& /*contentType*/, bool /*reliable*/) {
  return impl->Publish(topic, payload);
}

std::int32_t LumoConnector::PubSubDisconnect() {
  return impl->Unlisten();
}

}  // namespace lumo_connector
