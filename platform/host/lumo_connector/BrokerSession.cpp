#include "platform/host/lumo_connector/BrokerSession.h"

#include <algorithm>
#include <utility>

#include "platform/host/lumo_connector/ConnectorLog.h"

namespace lumo_connector {

using platform_host::BrokerConfig;

namespace {

/// The client library wants to look at its clock several times in a keep-alive period; a unit that
/// sleeps wants to be woken seldom.
std::chrono::seconds AttentionFor(std::chrono::seconds keepAlive) {
  return std::clamp(keepAlive / 4, std::chrono::seconds(1), std::chrono::seconds(15));
}

}  // namespace

BrokerSession::BrokerSession(const BrokerConfig& broker, std::unique_ptr<MqttClientIf> mqttClient,
                             Parties listeners, std::function<double()> randomFraction,
                             std::function<TimePoint()> now)
    : peer(AddressOf(broker)),
      attention(AttentionFor(broker.keepAlive)),
      client(std::move(mqttClient)),
      parties(std::move(listeners)),
      clock(std::move(now)),
      pause(std::move(randomFraction)) {}

std::optional<BrokerSession::Wait> BrokerSession::Turn(short events, TimePoint now) {
  turnTime = now;
  if (state == State::kConnecting || state == State::kConnected) Serve(events, now);
  if (state == State::kConnecting && now >= due) {
    Lose("no answer within " + std::to_string(kAcceptLimit.count()) + " seconds", now);
  }
  if (state == State::kPausing && now >= due) Connect();
  if (state == State::kConnected) parties.requests.SendTo(*client);
  parties.events.ReportDrops(now);
  if (state == State::kRejected) return std::nullopt;
  return NextWait(now);
}

void BrokerSession::Fail(const std::string& reason, TimePoint now) {
  Lose(reason, now);
}

void BrokerSession::End() {
  client->Close();
}

std::string BrokerSession::AddressOf(const BrokerConfig& broker) {
  const bool isIpv6 = broker.host.find(':') != std::string::npos;
  return (isIpv6 ? "[" + broker.host + "]" : broker.host) + ":" + std::to_string(broker.port);
}

void BrokerSession::Connect() {
  const auto error = client->Connect();
  // The resolution of the broker's name may have used up more than the whole limit.
  const TimePoint now = clock();
  if (error) return Lose(error->Text(), now);
  state = State::kConnecting;
  due = now + kAcceptLimit;
}

void BrokerSession::Serve(short events, TimePoint now) {
  const auto error = client->Serve(events, *this);
  if (state == State::kRejected) {
    client->Close();
    LogError("the broker " + peer + " refuses the credentials of this unit: " + rejection);
    parties.requests.End();
    parties.rejected();
    return;
  }
  if (error) Lose(error->Text(), now);
}

void BrokerSession::Lose(const std::string& reason, TimePoint now) {
  const bool wasConnected = state == State::kConnected;
  if (wasConnected && now - acceptedAt >= kGoodSession) pause.Reset();
  state = State::kPausing;
  due = now + pause.Next();
  client->Close();
  if (!std::exchange(isOutageTold, true)) {
    LogError("no connection to the broker " + peer + ": " + reason);
  }
  if (wasConnected) Announce(false);
}

// The transaction types come last: who hears of a connection there finds it everywhere.
void BrokerSession::Announce(bool isConnected) {
  if (isConnected) {
    parties.events.ConnectionChanged(true);
    parties.requests.Connected();
    parties.states.Set(TransactionTypeStates::kConnected);
  } else {
    parties.requests.Lost();
    parties.events.ConnectionChanged(false);
    parties.states.Set(TransactionTypeStates::kNoConnection);
  }
}

BrokerSession::Wait BrokerSession::NextWait(TimePoint now) {
  if (state == State::kPausing) return {{-1, 0}, due};
  const TimePoint next = now + attention;
  return {client->WaitsFor(), state == State::kConnecting ? std::min(due, next) : next};
}

void BrokerSession::Accepted() {
  if (state != State::kConnecting) return;  // said again
  state = State::kConnected;
  acceptedAt = turnTime;
  isOutageTold = false;
  LogInfo("connected to the broker " + peer);
  Announce(true);
}

void BrokerSession::CredentialsRefused(const std::string& reason) {
  if (state != State::kConnecting) return;  // too late
  state = State::kRejected;
  rejection = reason;
}

void BrokerSession::SubscribeAnswered(int number, bool isGranted) {
  parties.requests.SubscribeAnswered(number, isGranted);
}

void BrokerSession::PublishAcknowledged(int number) {
  parties.requests.PublishAcknowledged(number);
}

void BrokerSession::PublicationsForgotten() {
  parties.requests.PublicationsForgotten();
}

void BrokerSession::MessageArrived(const std::string& topic, std::vector<std::uint8_t> payload,
                                   std::uint16_t messageId) {
  parties.events.MessageArrived(topic, std::move(payload), messageId);
}

void BrokerSession::OversizedMessageArrived() {
  parties.events.OversizedMessageArrived();
}

}  // namespace lumo_connector
