// What a proxy sends, over several connections: the alerts heard, encoded again, are what was sent
// up to the first thing that is no whole alert, and every connection ends with one error.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/Require.h"
#include "socks_cdp/SocksTlsAlertClientImpl.h"
#include "tests/doubles/FakeCommunicator.h"
#include "tests/doubles/FakeConnector.h"
#include "tests/support/AlertProxy.h"

namespace {

using socks_cdp::SocksTlsAlertClientImpl;
using tests::FakeCommunicator;

constexpr std::size_t kMostConnections = 16;

/// What was heard, encoded again, for each connection; the last one is the present one.
class Heard : public socks_cdp::SocksTlsAlertClientCallbackIf {
 public:
  void SocksTlsAlertOccured(std::string operationId, tls_alert_if::ETlsAlertCode code) override {
    connections.back() += tests::AlertMessage(operationId, static_cast<std::uint8_t>(code));
  }
  void SocksTlsAlertError() override { connections.emplace_back(); }

  std::vector<std::string> connections{1};
};

/// The first byte says how long what one connection sends is; 0: all of it.
std::vector<std::string> Pieces(const std::uint8_t* data, std::size_t size) {
  const std::string all(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::size_t least = all.size() / kMostConnections + 1;
  const std::size_t length = data[0] == 0 ? size : std::max<std::size_t>(data[0], least);
  std::vector<std::string> pieces;
  for (std::size_t begin = 0; begin < all.size(); begin += length) {
    pieces.push_back(all.substr(begin, length));
  }
  return pieces;
}

bool BeginsWithAlert(const std::string& bytes) {
  const auto at = [&bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  return bytes.size() >= 4 && at(0) == 2 && bytes.size() >= 4 + 256U * at(1) + at(2);
}

/// Listens to a proxy that sends one piece on each connection, until the last has ended.
void Listen(const std::vector<std::shared_ptr<FakeCommunicator>>& connections, Heard& heard) {
  std::promise<void> ended;
  std::size_t next = 0;
  SocksTlsAlertClientImpl* stopped = nullptr;
  SocksTlsAlertClientImpl client(
      std::make_shared<tests::FakeConnector>([&]() -> tests::FakeConnector::Communicator {
        if (next < connections.size()) return connections[next++];
        stopped->StopListening();
        ended.set_value();
        return nullptr;
      }));
  stopped = &client;
  fuzz::Require(client.StartListening(&heard) == socks_cdp::kListeningStarted, "it listens");
  ended.get_future().wait();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::vector<std::shared_ptr<FakeCommunicator>> connections;
  const std::vector<std::string> pieces = Pieces(data, size);
  connections.reserve(pieces.size());
  for (const std::string& piece : pieces) {
    connections.push_back(std::make_shared<FakeCommunicator>(piece));
  }
  Heard heard;
  Listen(connections, heard);
  fuzz::Require(heard.connections.size() == pieces.size() + 1, "one error for each connection");
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    const std::string& alerts = heard.connections[i];
    fuzz::Require(pieces[i].compare(0, alerts.size(), alerts) == 0, "the alerts that were sent");
    fuzz::Require(!BeginsWithAlert(pieces[i].substr(alerts.size())), "all of them");
    fuzz::Require(connections[i]->Written() == "\1", "asked for alerts once");
    fuzz::Require(!connections[i]->IsOpen(), "disconnected");
  }
  return 0;
}
