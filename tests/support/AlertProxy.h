/// The proxy's end of the TLS alert socket, as a test plays it, and a listener that keeps what it
/// hears.
#ifndef TESTS_SUPPORT_ALERTPROXY_H
#define TESTS_SUPPORT_ALERTPROXY_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

#include "socks_cdp/SocksTlsAlertClientCallbackIf.h"
#include "support/UniqueFd.h"
#include "tests/support/EventLog.h"
#include "tests/support/UnixPeer.h"

namespace tests {

/// The bytes of one alert, put together by other code than the client's.
[[nodiscard]] inline std::string AlertMessage(const std::string& operationId, std::uint8_t code) {
  std::string message("\2");
  message += static_cast<char>(operationId.size() / 256);
  message += static_cast<char>(operationId.size() % 256);
  return message + operationId + static_cast<char>(code);
}

/// A proxy that only does what its test says. Any thread.
class AlertProxy {
 public:
  explicit AlertProxy(const std::string& path, int backlog = 64) : peer(path, backlog) {}

  /// The next connection, which has asked for alerts. Throws std::runtime_error when it asks for
  /// something else, or does not come in time.
  [[nodiscard]] support::UniqueFd AcceptListener() const {
    support::UniqueFd listener = peer.Accept();
    if (ReadUpTo(listener.Get(), 1) != "\1") throw std::runtime_error("not asked for alerts");
    return listener;
  }

  /// The next connection, of which nothing has been read.
  [[nodiscard]] support::UniqueFd Accept() const { return peer.Accept(); }

  /// A connection that has come already; none otherwise.
  [[nodiscard]] support::UniqueFd AcceptWaiting() const { return peer.AcceptWaiting(); }

 private:
  const UnixPeer peer;
};

/// Keeps each alert as "CODE OPERATION" and each error as "error". Any thread.
class RecordingAlertCallback : public socks_cdp::SocksTlsAlertClientCallbackIf {
 public:
  /// `next` runs inside each call, after it was kept.
  explicit RecordingAlertCallback(std::function<void()> next = [] {}) : then(std::move(next)) {}

  void SocksTlsAlertOccured(std::string operationId, tls_alert_if::ETlsAlertCode code) override {
    events.Add(std::to_string(static_cast<unsigned>(code)) + " " + operationId);
    then();
  }
  void SocksTlsAlertError() override {
    events.Add("error");
    then();
  }

  EventLog events;

 private:
  const std::function<void()> then;
};

}  // namespace tests

#endif
