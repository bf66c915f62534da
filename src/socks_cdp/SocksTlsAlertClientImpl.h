/// The client of the proxy's alert socket, over any stream: asks for the alerts, reads them one by
/// one, and connects again whenever the connection is lost. docs/tls-alerts.md tells the messages.
/// Owned by SocksTlsAlertClient. Any thread, its own listening thread included.
#ifndef SOCKS_CDP_SOCKSTLSALERTCLIENTIMPL_H
#define SOCKS_CDP_SOCKSTLSALERTCLIENTIMPL_H

#include <chrono>
#include <memory>
#include <thread>

#include "socks_cdp/Listening.h"
#include "socks_cdp/SocksTlsAlertClientIf.h"
#include "ssoa_socket/StreamClientConnectorIf.h"
#include "ssoa_socket/StreamProtocol.h"
#include "support/Mutex.h"

namespace socks_cdp {

/// Each start has a Listening and a thread of its own; the thread before is joined first, so that
/// at most one of them listens. No lock is held while connector, connection or callback are called.
class SocksTlsAlertClientImpl final : public SocksTlsAlertClientIf,
                                      private ssoa_socket::StreamProtocol {
 public:
  /// After a failed attempt to connect. A lost connection is made again without a pause.
  static constexpr std::chrono::seconds kReconnectPause{10};

  /// `pause` and `clock` are others in tests. REQUIRES: `streamConnector` is not empty.
  explicit SocksTlsAlertClientImpl(
      std::shared_ptr<ssoa_socket::StreamClientConnectorIf> streamConnector,
      std::chrono::milliseconds pause = kReconnectPause,
      Listening::Clock clock = std::chrono::steady_clock::now);
  ~SocksTlsAlertClientImpl() override;
  SocksTlsAlertClientImpl(const SocksTlsAlertClientImpl&) = delete;
  SocksTlsAlertClientImpl& operator=(const SocksTlsAlertClientImpl&) = delete;

  [[nodiscard]] unsigned int StartListening(SocksTlsAlertClientCallbackIf* callback) override
      EXCLUDES(mutex);
  void StopListening() override EXCLUDES(mutex);

 private:
  using Communicator = std::shared_ptr<ssoa_socket::StreamCommunicatorIf>;

  /// Makes a new listening the current one, and hands over the thread to join before it. Returns an
  /// empty pointer when one is running.
  [[nodiscard]] std::shared_ptr<Listening> Begin(SocksTlsAlertClientCallbackIf* callback,
                                                 std::thread& former) EXCLUDES(mutex);

  /// Starts the thread of what Begin has begun. Returns false, as idle as before, when there can be
  /// none.
  [[nodiscard]] bool Launch(const std::shared_ptr<Listening>& listening) EXCLUDES(mutex);

  // The listening thread.
  void ListeningThreadHandler(const std::shared_ptr<Listening>& listening) noexcept;

  /// One connection, from connecting to its end.
  void Listen(Listening& listening);

  /// Tries until it is connected. Returns an empty pointer when stopped meanwhile.
  [[nodiscard]] Communicator EstablishConnectionToSocksCdp(Listening& listening);
  [[nodiscard]] bool SendStartListeningReq(const Communicator& communicator) const;

  /// Reads alerts until the connection is of no more use.
  void WaitAlerts(const Listening& listening, const Communicator& communicator) const;
  static void ErrorWhenReadingSocket(const Listening& listening, const Communicator& communicator);

  // Constant after construction.
  const std::shared_ptr<ssoa_socket::StreamClientConnectorIf> connector;
  const std::chrono::milliseconds reconnectPause;
  const Listening::Clock now;

  support::Mutex mutex;
  support::ConditionVariable startEnded;
  bool isStarting GUARDED_BY(mutex) = false;             ///< between Begin and the end of Launch
  std::shared_ptr<Listening> current GUARDED_BY(mutex);  ///< empty when nobody wants to listen
  std::thread listeningThread GUARDED_BY(mutex);         ///< may have ended, or be about to
};

}  // namespace socks_cdp

#endif
