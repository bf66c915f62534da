#include "platform/host/lumo_connector/MosquittoClient.h"

#include <linux/tcp.h>
#include <mosquitto.h>
#include <netdb.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <new>
#include <string_view>
#include <utility>

#include "support/FileContents.h"

namespace lumo_connector {

using platform_host::BrokerConfig;
using platform_host::Error;
using platform_host::Result;

namespace {

constexpr int kQualityOfService = 1;

/// Packets to look at for the end of a connection that we closed.
constexpr int kCloseAttempts = 16;

/// MQTT 3.1.1 section 3.2.2.3.
constexpr int kBadUserNameOrPassword = 4;
constexpr int kNotAuthorised = 5;

/// MQTT 3.1.1 section 3.9.3: the subscription failed.
constexpr int kSubscriptionRefused = 0x80;

/// Once a process, and never undone: a thread may still talk when the process ends.
void InitialiseLibrary() {
  static const int result = ::mosquitto_lib_init();
  static_cast<void>(result);
}

/// The library's texts end with a full stop.
std::string WithoutFullStop(std::string_view text) {
  if (!text.empty() && text.back() == '.') text.remove_suffix(1);
  return std::string(text);
}

/// Results of a request that say nothing about the request are about the connection.
MqttClientIf::Sent::Outcome OutcomeOf(int result) {
  switch (result) {
    case MOSQ_ERR_SUCCESS:
      return MqttClientIf::Sent::Outcome::kSent;
    case MOSQ_ERR_NOMEM:
    case MOSQ_ERR_INVAL:
    case MOSQ_ERR_PAYLOAD_SIZE:
    case MOSQ_ERR_MALFORMED_UTF8:
    case MOSQ_ERR_OVERSIZE_PACKET:
      return MqttClientIf::Sent::Outcome::kImpossible;
    default:
      return MqttClientIf::Sent::Outcome::kNoConnection;
  }
}

}  // namespace

/// None lets an exception pass: the library is written in C.
class MosquittoClient::Callbacks {
 public:
  static void Set(mosquitto* library) {
    ::mosquitto_connect_callback_set(library, Answered);
    ::mosquitto_subscribe_callback_set(library, Subscribed);
    ::mosquitto_publish_callback_set(library, Published);
    ::mosquitto_message_callback_set(library, Arrived);
    ::mosquitto_log_callback_set(library, Log);
  }

 private:
  template <typename Action>
  static void HandOn(void* object, Action action) noexcept {
    auto& client = *static_cast<MosquittoClient*>(object);
    client.hasProgress = true;
    if (client.listener == nullptr) return;
    try {
      action(client, *client.listener);
    } catch (const std::bad_alloc&) {
      client.isOutOfMemory = true;
    }
  }

  static void Answered(mosquitto*, void* object, int code) {
    HandOn(object, [code](MosquittoClient& client, MqttListenerIf& told) {
      client.isAccepted = code == 0;
      if (client.isAccepted && client.isSessionSpoilt) return;  // only to end it
      if (client.isAccepted) return told.Accepted();
      client.refusal = WithoutFullStop(::mosquitto_connack_string(code));
      if (code == kBadUserNameOrPassword || code == kNotAuthorised) {
        told.CredentialsRefused(client.refusal);
      }
    });
  }

  static void Subscribed(mosquitto*, void* object, int number, int count, const int* granted) {
    HandOn(object, [=](MosquittoClient&, MqttListenerIf& told) {
      told.SubscribeAnswered(number, count > 0 && granted[0] < kSubscriptionRefused);
    });
  }

  static void Published(mosquitto*, void* object, int number) {
    HandOn(object,
           [number](MosquittoClient&, MqttListenerIf& told) { told.PublishAcknowledged(number); });
  }

  static void Arrived(mosquitto*, void* object, const mosquitto_message* message) {
    HandOn(object, [message](MosquittoClient& client, MqttListenerIf& told) {
      const auto size = static_cast<std::size_t>(message->payloadlen);
      if (size > client.limit) return told.OversizedMessageArrived();
      const auto* const bytes = static_cast<const std::uint8_t*>(message->payload);
      told.MessageArrived(message->topic, {bytes, bytes + size},
                          static_cast<std::uint16_t>(message->mid));
    });
  }

  /// What no other callback tells.
  static void Log(mosquitto*, void* object, int level, const char* line) {
    auto& client = *static_cast<MosquittoClient*>(object);
    const std::string_view text = line;
    // Of the answers to pings, nothing else tells; they are most of what a quiet broker sends.
    if (text.find(" received PINGRESP") != std::string_view::npos) client.hasProgress = true;
    if (level == MOSQ_LOG_DEBUG && IsQualityOfService2(text)) {
      client.misbehaviour = "sends a message at a quality of service that nobody asked for";
    }
    if (level == MOSQ_LOG_ERR) KeepTlsReason(client, text);
  }

  /// "Client ID received PUBLISH (d0, q2, ...": the library would keep such messages until the
  /// broker releases them, as many as come, over every reconnection.
  static bool IsQualityOfService2(std::string_view text) {
    const auto start = text.find(" received PUBLISH (d");
    return start != std::string_view::npos && text.substr(start + 21, 4) == ", q2";
  }

  /// "OpenSSL Error[0]: error:NUMBER:LIBRARY:FUNCTION:REASON"; the last one tells most.
  static void KeepTlsReason(MosquittoClient& client, std::string_view text) noexcept {
    try {
      client.tlsReason = text.substr(text.rfind(':') + 1);
    } catch (const std::bad_alloc&) {
      client.isOutOfMemory = true;
    }
  }
};

void MosquittoClient::Destroy::operator()(mosquitto* ended) const {
  ::mosquitto_destroy(ended);
}

Result<std::unique_ptr<MqttClientIf>> MosquittoClient::Make(const BrokerConfig& config,
                                                            std::size_t payloadLimit,
                                                            std::uint64_t packetLimit) {
  std::unique_ptr<MosquittoClient> client(new MosquittoClient(config, payloadLimit, packetLimit));
  if (client->library == nullptr) {
    return Error("the MQTT library does not accept the client id \"" + config.clientId + "\"");
  }
  return std::unique_ptr<MqttClientIf>(std::move(client));
}

MosquittoClient::MosquittoClient(const BrokerConfig& config, std::size_t payloadLimit,
                                 std::uint64_t mostBytes)
    : broker(config), limit(payloadLimit), packetLimit(mostBytes) {
  InitialiseLibrary();
  MakeLibrary();
}

void MosquittoClient::MakeLibrary() {
  library.reset(::mosquitto_new(broker.clientId.c_str(), /*clean_session=*/isSessionSpoilt, this));
  if (library != nullptr) Callbacks::Set(library.get());
}

MosquittoClient::~MosquittoClient() {
  Close();
}

std::optional<Error> MosquittoClient::Connect() {
  if (library == nullptr) MakeLibrary();
  if (library == nullptr) return Error::OfErrno(ENOMEM);
  if (auto error = SetCredentials()) return error;
  if (auto error = SetTls()) return error;
  isAccepted = isOutOfMemory = hasProgress = false;
  misbehaviour = nullptr;
  completeBytes = 0;
  refusal.clear();
  tlsReason.clear();
  errno = 0;
  const int result = ::mosquitto_connect_async(library.get(), broker.host.c_str(), broker.port,
                                               static_cast<int>(broker.keepAlive.count()));
  isConnecting = result == MOSQ_ERR_SUCCESS;
  if (isConnecting) return std::nullopt;
  return Reason(result, errno);
}

std::optional<Error> MosquittoClient::SetCredentials() {
  std::string password;
  if (!broker.passwordFile.empty()) {
    const int error = support::ReadFile(broker.passwordFile, kPasswordFileLimit, password);
    if (error != 0) return Error::OfErrno(error).WithContext(broker.passwordFile);
    if (password.find('\0') != std::string::npos) {
      return Error("holds a NUL").WithContext(broker.passwordFile);
    }
    if (!password.empty() && password.back() == '\n') password.pop_back();
    if (!password.empty() && password.back() == '\r') password.pop_back();
  }
  const int result = ::mosquitto_username_pw_set(
      library.get(), broker.username.empty() ? nullptr : broker.username.c_str(),
      broker.passwordFile.empty() ? nullptr : password.c_str());
  if (result != MOSQ_ERR_SUCCESS) return Reason(result, errno);
  return std::nullopt;
}

std::optional<Error> MosquittoClient::SetTls() {
  if (broker.caFile.empty()) return std::nullopt;
  // One context for the library's whole life: it never frees one that another replaces.
  if (tls != nullptr) return tls->Reload(broker);
  auto made = BrokerTls::Make(broker);
  if (!made.Ok()) return made.Failure();
  tls = std::move(made).Take();
  int result = ::mosquitto_void_option(library.get(), MOSQ_OPT_SSL_CTX, tls->Context());
  // Its defaults would demand certificates of its own and take our verification away.
  if (result == MOSQ_ERR_SUCCESS) {
    result = ::mosquitto_int_option(library.get(), MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0);
  }
  if (result == MOSQ_ERR_SUCCESS) return std::nullopt;
  tls.reset();
  return Reason(result, errno);
}

MqttClientIf::Interest MosquittoClient::WaitsFor() {
  if (library == nullptr) return {-1, 0};
  const int descriptor = ::mosquitto_socket(library.get());
  const bool isWriting = isConnecting || ::mosquitto_want_write(library.get());
  auto* const ssl = static_cast<SSL*>(::mosquitto_ssl_get(library.get()));
  return {descriptor, static_cast<short>(isWriting ? POLLIN | POLLOUT : POLLIN),
          descriptor >= 0 && ssl != nullptr && ::SSL_pending(ssl) > 0};
}

std::optional<Error> MosquittoClient::Serve(short events, MqttListenerIf& receiver) {
  if (auto error = CheckConnecting(events)) return error;
  listener = &receiver;
  const int result = Work();
  const int number = errno;
  listener = nullptr;
  if (isOutOfMemory) return Error::OfErrno(ENOMEM);
  if (IsPacketTooLong()) misbehaviour = "sends a packet above 1 MiB";
  if (misbehaviour != nullptr) {
    DropLibrary();
    receiver.PublicationsForgotten();
    isSessionSpoilt = true;
    return Error(std::string("the broker ") + misbehaviour);
  }
  if (isAccepted && isSessionSpoilt) {
    Close();
    DropLibrary();
    isSessionSpoilt = false;
    return Error("the session that the broker kept has been ended");
  }
  if (result != MOSQ_ERR_SUCCESS) return Reason(result, number);
  return std::nullopt;
}

void MosquittoClient::DropLibrary() {
  library.reset();
  tls.reset();
}

std::optional<Error> MosquittoClient::CheckConnecting(short events) {
  if (!isConnecting || events == 0) return std::nullopt;
  isConnecting = false;
  int error = 0;
  socklen_t size = sizeof error;
  if (::getsockopt(::mosquitto_socket(library.get()), SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
    error = errno;
  }
  if (error == 0) return std::nullopt;
  return Error::OfErrno(error);
}

int MosquittoClient::Work() {
  errno = 0;
  // Reading is also what goes on with a TLS handshake that waits to write.
  int result = ::mosquitto_loop_read(library.get(), 1);
  if (result == MOSQ_ERR_SUCCESS) result = ::mosquitto_loop_write(library.get(), 1);
  if (result == MOSQ_ERR_SUCCESS) result = ::mosquitto_loop_misc(library.get());
  return result;
}

bool MosquittoClient::IsPacketTooLong() {
  const std::uint64_t received = ReceivedBytes();
  if (std::exchange(hasProgress, false)) completeBytes = received;
  return received - completeBytes > packetLimit;
}

std::uint64_t MosquittoClient::ReceivedBytes() const {
  tcp_info info{};
  socklen_t size = sizeof info;
  const int descriptor = ::mosquitto_socket(library.get());
  if (::getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return completeBytes;
  return info.tcpi_bytes_received;
}

void MosquittoClient::Close() {
  if (library == nullptr) return;
  if (std::exchange(isAccepted, false)) ::mosquitto_disconnect(library.get());
  const int descriptor = ::mosquitto_socket(library.get());
  if (descriptor < 0) return;
  // The library closes what it finds ended; nothing else makes it close. A broker that goes on
  // sending can hide the end: then the next connection, or the destructor, closes.
  ::shutdown(descriptor, SHUT_RDWR);
  for (int attempt = 0; attempt < kCloseAttempts; ++attempt) {
    if (::mosquitto_socket(library.get()) < 0) return;
    if (::mosquitto_loop_read(library.get(), 1) != MOSQ_ERR_SUCCESS) return;
  }
}

MqttClientIf::Sent MosquittoClient::Subscribe(const std::string& topic) {
  // MQTT 3.1.1 section 4.7.3; the library would send it, and the broker end the connection.
  if (topic.empty()) return {Sent::Outcome::kImpossible};
  int number = 0;
  const int result =
      ::mosquitto_subscribe(library.get(), &number, topic.c_str(), kQualityOfService);
  return {OutcomeOf(result), number};
}

MqttClientIf::Sent MosquittoClient::Publish(const std::string& topic,
                                            const std::vector<std::uint8_t>& payload) {
  int number = 0;
  const int result =
      ::mosquitto_publish(library.get(), &number, topic.c_str(), static_cast<int>(payload.size()),
                          payload.data(), kQualityOfService, /*retain=*/false);
  // Without a connection the library keeps it and sends it when there is one.
  const auto outcome = OutcomeOf(result);
  return {outcome == Sent::Outcome::kNoConnection ? Sent::Outcome::kSent : outcome, number};
}

std::string MosquittoClient::TlsReason() const {
  std::string distrust = tls == nullptr ? "" : tls->Refusal();
  if (!distrust.empty()) return distrust;
  return tlsReason.empty() ? "the broker broke it off" : tlsReason;
}

Error MosquittoClient::Reason(int result, int number) const {
  switch (result) {
    case MOSQ_ERR_ERRNO:
      // What the library says when TLS fails behind the handshake.
      if (number == EPROTO) return Error("TLS: " + TlsReason());
      return number == 0 ? Error("the connection broke") : Error::OfErrno(number);
    case MOSQ_ERR_EAI:
      return Error(std::string("the name cannot be resolved: ") + ::gai_strerror(number));
    case MOSQ_ERR_CONN_REFUSED:
      return Error("the broker refuses the connection: " + refusal);
    case MOSQ_ERR_CONN_LOST:
    case MOSQ_ERR_NO_CONN:
      return Error("the broker closed the connection" +
                   (tlsReason.empty() ? "" : " (TLS: " + tlsReason + ")"));
    case MOSQ_ERR_PROTOCOL:
    case MOSQ_ERR_MALFORMED_PACKET:
    case MOSQ_ERR_MALFORMED_UTF8:
      return Error("the broker breaks the protocol");
    case MOSQ_ERR_KEEPALIVE:
      return Error("the broker no longer answers");
    case MOSQ_ERR_TLS:
    case MOSQ_ERR_TLS_HANDSHAKE:
      return Error("TLS: " + TlsReason());
    default:
      return Error(WithoutFullStop(::mosquitto_strerror(result)));
  }
}

}  // namespace lumo_connector
