/// A connector in memory. A test program links fake_lumo_connector in place of the host platform's
/// connector: every lumo_connector::LumoConnector it then makes is played by the FakeLumoConnector
/// alive, which says what the connector answers, tells its listeners what the test wants and
/// remembers what was asked. Any thread.
#ifndef TESTS_DOUBLES_FAKELUMOCONNECTOR_H
#define TESTS_DOUBLES_FAKELUMOCONNECTOR_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "lumo_connector/LumoConnector.h"
#include "tests/doubles/PeerStream.h"

namespace tests {

class FakeConnectorCore;

/// Made before the connector, one alive at a time, for one connector at a time. Fresh: the session
/// starts when asked to, every transaction type is connected (2), no token and no address is
/// configured, every stream is refused, and the broker grants everything at once but tells nothing.
/// Streams work before Start too.
class FakeLumoConnector {
 public:
  /// All arguments of one PubSubPublish.
  struct Publication {
    std::string topic;
    std::string payload;
    std::uint32_t timeToLive = 0;
    std::uint32_t priority = 0;
    std::uint32_t payloadFormat = 0;
    std::string contentType;
    bool reliable = false;
  };

  FakeLumoConnector();

  /// Interrupts the scripts of all peers and waits for their end. Nobody is told anything any more.
  ~FakeLumoConnector();
  FakeLumoConnector(const FakeLumoConnector&) = delete;
  FakeLumoConnector& operator=(const FakeLumoConnector&) = delete;

  /// What GetToken and GetInvocationUrl answer for an operation from now on.
  void SetToken(const std::string& operationTypeId, const std::string& token);
  void SetTokenFailure(const std::string& operationTypeId, std::int32_t status);
  void SetUrl(const std::string& operationTypeId, const std::string& url);
  void SetUrlFailure(const std::string& operationTypeId, std::int32_t status);

  /// What the next SocketConnect does: each of these is for one call, in their order; the last
  /// one stays for all further calls until another follows. Connect gives the client one end of a
  /// stream whose other end `script` plays.
  void Connect(PeerScript script);
  void RefuseConnect(std::int32_t status, const std::string& text);

  /// What every HTTP request that a peer has read so far looked like, oldest first.
  [[nodiscard]] std::vector<std::string> Requests() const;

  /// Waits for the end of the scripts of all streams so far.
  void WaitForPeers();

  /// The state that Start enters and reports, or nothing at all: the test reports it later.
  void SetStartStatus(lumo_connector::SessionStatus status);
  void HoldStart();

  /// What SubscribeTransactionTypeState delivers at once.
  void SetConnectionState(std::uint8_t state);

  /// SubscribeTransactionTypeState returns 0 from now on, not a new id: 1, 2, ...
  void FailStateSubscription();

  /// What these return from now on.
  void SetPubSubConnectStatus(std::int32_t status);
  void SetPubSubSubscribeStatus(std::int32_t status);
  void SetPubSubPublishStatus(std::int32_t status);
  void SetPubSubDisconnectStatus(std::int32_t status);

  /// Each tells the listeners on the connector's thread and returns when they have returned; does
  /// nothing without a connector or after its Stop. Not to be called inside a callback.
  void ReportSession(lumo_connector::SessionStatus status);
  void ReportConnectionState(std::uint8_t state);

  /// As these, any event of LumoPubSubCallbackIf: `tell` calls the listener's operation.
  void ReportPubSub(std::function<void(lumo_connector::LumoPubSubCallbackIf&)> tell);

  /// A message came for `topic`.
  void ReportPublished(const std::string& topic, const std::string& payload,
                       std::uint16_t messageId);

  /// Waits until the listeners have heard all there is to tell so far.
  void WaitForCallbacks();

  /// From now on runs `action` at the beginning of each call of the connector, on the caller's
  /// thread and with the call as Calls tells it: what it changes here holds for this call already.
  void OnCall(std::function<void(const std::string& call)> action);

  /// Every call of the connector so far, oldest first: its name and arguments with one blank
  /// between, "SocketConnect OPERATION HOST PORT". GetSessionStatus is not among them.
  [[nodiscard]] std::vector<std::string> Calls() const;

  /// Every PubSubPublish so far, oldest first.
  [[nodiscard]] std::vector<Publication> Publications() const;

 private:
  std::shared_ptr<FakeConnectorCore> core;
};

}  // namespace tests

#endif
