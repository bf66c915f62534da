/// A TLS alert client without a proxy: its alerts are the test's.
#ifndef TESTS_DOUBLES_FAKEALERTCLIENT_H
#define TESTS_DOUBLES_FAKEALERTCLIENT_H

#include <string>
#include <utility>
#include <vector>

#include "socks_cdp/SocksTlsAlertClientIf.h"

namespace tests {

/// Answers each start with one status, and writes each call, its end included, to a list. Belongs
/// to one thread.
class FakeAlertClient : public socks_cdp::SocksTlsAlertClientIf {
 public:
  /// `callList` outlives it.
  FakeAlertClient(unsigned int startStatus, std::vector<std::string>& callList)
      : status(startStatus), calls(callList) {}
  ~FakeAlertClient() override { calls.emplace_back("end"); }
  FakeAlertClient(const FakeAlertClient&) = delete;
  FakeAlertClient& operator=(const FakeAlertClient&) = delete;

  [[nodiscard]] unsigned int StartListening(
      socks_cdp::SocksTlsAlertClientCallbackIf* callback) override {
    calls.emplace_back("start");
    listener = callback;
    return status;
  }
  void StopListening() override { calls.emplace_back("stop"); }

  /// Who listens; null before a start.
  [[nodiscard]] socks_cdp::SocksTlsAlertClientCallbackIf* Listener() const { return listener; }

 private:
  const unsigned int status;
  std::vector<std::string>& calls;
  socks_cdp::SocksTlsAlertClientCallbackIf* listener = nullptr;
};

}  // namespace tests

#endif
