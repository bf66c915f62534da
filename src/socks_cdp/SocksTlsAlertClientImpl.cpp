#include "socks_cdp/SocksTlsAlertClientImpl.h"

#include <cstdint>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "csc_logging/CSCLogging.h"
#include "support/WorkerThread.h"

namespace socks_cdp {
namespace {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

constexpr std::uint8_t kStartListeningRequest = 1;
constexpr std::uint8_t kAlertMessage = 2;

/// The client that the calling thread listens for; null on every other thread.
thread_local const SocksTlsAlertClientImpl* clientOfThread = nullptr;

/// Calls the callback of `listening`, if there is one.
template <typename Call>
void Tell(const Listening& listening, Call call) {
  SocksTlsAlertClientCallbackIf* const callback = listening.Callback();
  if (callback == nullptr) return;
  try {
    call(*callback);
  } catch (const std::exception& error) {
    CSCLogging::LogError(CSCLogEntry() << "SocksTlsAlertClient: The callback threw an exception: "
                                       << error.what());
  } catch (...) {
    CSCLogging::LogError("SocksTlsAlertClient: The callback threw an exception of unknown kind");
  }
}

}  // namespace

SocksTlsAlertClientImpl::SocksTlsAlertClientImpl(
    std::shared_ptr<ssoa_socket::StreamClientConnectorIf> streamConnector,
    std::chrono::milliseconds pause, Listening::Clock clock)
    : connector(std::move(streamConnector)), reconnectPause(pause), now(std::move(clock)) {}

SocksTlsAlertClientImpl::~SocksTlsAlertClientImpl() {
  SocksTlsAlertClientImpl::StopListening();
  std::thread last;
  {
    const support::MutexLock lock(mutex);
    last.swap(listeningThread);
  }
  if (last.joinable()) last.join();
}

unsigned int SocksTlsAlertClientImpl::StartListening(SocksTlsAlertClientCallbackIf* callback) {
  // A callback of a listening that was stopped cannot wait for its own thread.
  if (clientOfThread == this) return kAlreadyListening;
  try {
    std::thread former;
    const std::shared_ptr<Listening> listening = Begin(callback, former);
    if (!listening) return kAlreadyListening;
    if (former.joinable()) former.join();
    return Launch(listening) ? kListeningStarted : kListeningFailed;
  } catch (const std::exception&) {
    CSCLogging::LogError("SocksTlsAlertClient: No memory to start listening");
    return kListeningFailed;
  }
}

void SocksTlsAlertClientImpl::StopListening() {
  std::shared_ptr<Listening> stopping;
  {
    const support::MutexLock lock(mutex);
    stopping.swap(current);
  }
  if (stopping) stopping->Stop();
}

std::shared_ptr<Listening> SocksTlsAlertClientImpl::Begin(SocksTlsAlertClientCallbackIf* callback,
                                                          std::thread& former) {
  auto listening = std::make_shared<Listening>(callback, now);
  const support::MutexLock lock(mutex);
  // Stopped before its thread was there: that thread has to be joined like any other.
  while (isStarting && !current) startEnded.Wait(mutex);
  if (current) return nullptr;
  isStarting = true;
  current = listening;
  former.swap(listeningThread);
  return listening;
}

bool SocksTlsAlertClientImpl::Launch(const std::shared_ptr<Listening>& listening) {
  std::thread next;
  try {
    next =
        support::StartThread("TlsAlerts", [this, listening] { ListeningThreadHandler(listening); });
  } catch (const std::exception&) {
    CSCLogging::LogError("SocksTlsAlertClient: The listening thread cannot be started");
  }
  const bool isLaunched = next.joinable();
  const support::MutexLock lock(mutex);
  isStarting = false;
  if (!isLaunched && current == listening) current.reset();
  listeningThread = std::move(next);
  startEnded.NotifyAll();
  return isLaunched;
}

void SocksTlsAlertClientImpl::ListeningThreadHandler(
    const std::shared_ptr<Listening>& listening) noexcept {
  clientOfThread = this;
  while (listening->IsRunning()) {
    try {
      Listen(*listening);
    } catch (...) {
      CSCLogging::LogError("SocksTlsAlertClient: Listening failed, trying again later");
      listening->Drop();
      listening->Pause(reconnectPause);
    }
  }
}

void SocksTlsAlertClientImpl::Listen(Listening& listening) {
  const Communicator communicator = EstablishConnectionToSocksCdp(listening);
  if (!communicator) return;
  if (!SendStartListeningReq(communicator)) {
    communicator->Disconnect();
    return;
  }
  WaitAlerts(listening, communicator);
}

SocksTlsAlertClientImpl::Communicator SocksTlsAlertClientImpl::EstablishConnectionToSocksCdp(
    Listening& listening) {
  while (listening.IsRunning()) {
    CSCLogging::LogDebug("SocksTlsAlertClient: Try to EstablishConnection to socks-cdp");
    Communicator communicator = connector->EstablishConnection();
    if (!communicator) {
      listening.Pause(reconnectPause);
      continue;
    }
    CSCLogging::LogDebug("SocksTlsAlertClient: Connection established to socks-cdp");
    if (listening.Hold(communicator)) return communicator;
    // Stopped while it connected: nobody else knows of this connection.
    communicator->Disconnect();
  }
  return nullptr;
}

bool SocksTlsAlertClientImpl::SendStartListeningReq(const Communicator& communicator) const {
  std::vector<unsigned char> request;
  InsertUint8(request, kStartListeningRequest);
  return communicator->Write(request) == static_cast<std::ptrdiff_t>(request.size());
}

void SocksTlsAlertClientImpl::WaitAlerts(const Listening& listening,
                                         const Communicator& communicator) const {
  while (listening.IsRunning()) {
    std::uint8_t type = 0;
    std::string operationId;
    std::uint8_t code = 0;
    // The length of a message of another type is unknown: nothing after it can be understood.
    if (!ReadUint8(communicator, type) || type != kAlertMessage ||
        !ReadString(communicator, operationId) || !ReadUint8(communicator, code)) {
      ErrorWhenReadingSocket(listening, communicator);
      return;
    }
    Tell(listening, [&](SocksTlsAlertClientCallbackIf& callback) {
      callback.SocksTlsAlertOccured(std::move(operationId),
                                    static_cast<tls_alert_if::ETlsAlertCode>(code));
    });
  }
}

void SocksTlsAlertClientImpl::ErrorWhenReadingSocket(const Listening& listening,
                                                     const Communicator& communicator) {
  Tell(listening, [](SocksTlsAlertClientCallbackIf& callback) { callback.SocksTlsAlertError(); });
  communicator->Disconnect();
}

}  // namespace socks_cdp
