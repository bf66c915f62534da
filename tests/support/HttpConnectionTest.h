/// The fixture of the tests of HttpConnection.
#ifndef TESTS_SUPPORT_HTTPCONNECTIONTEST_H
#define TESTS_SUPPORT_HTTPCONNECTIONTEST_H

#include <gmock/gmock.h>

#include <csignal>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "csa_common/HttpConnection.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeLumoConnector.h"
#include "tests/doubles/PlannedPoll.h"
#include "tests/support/ProcessUse.h"

namespace tests {

/// A connection over a connector in memory, and a protocol with a body. The test answers the
/// connection's calls of poll.
class HttpConnectionTest : public ::testing::Test {
 protected:
  static constexpr const char* kUrl = "http://backend.example:8080/a/b";

  HttpConnectionTest() {
    ::signal(SIGPIPE, SIG_IGN);
    pollPlan = {};
    protocol.SetOption(csa_common::HttpOption::Payload, "body");
  }

  /// Plays `script` to a POST and returns its result.
  unsigned int Post(PeerScript script) {
    fake.Connect(std::move(script));
    return connection.Post(protocol, "Service", kUrl);
  }

  /// Descriptors that are open now and were not before the test, once no peer holds any.
  std::vector<std::string> NewDescriptors() {
    fake.WaitForPeers();
    std::vector<std::string> added;
    for (const std::string& descriptor : OpenDescriptors()) {
      if (openBefore.count(descriptor) == 0) added.push_back(descriptor);
    }
    return added;
  }

  PlannedPoll& pollPlan = PlannedPoll::OfThread();
  platform_host::CapturedLog log;
  FakeLumoConnector fake;
  const std::shared_ptr<lumo_connector::LumoConnector> connector =
      std::make_shared<lumo_connector::LumoConnector>(nullptr);
  const csa_common::HttpConnection connection{connector};
  csa_common::HttpProtocol protocol;
  const std::set<std::string> openBefore = OpenDescriptors();
};

}  // namespace tests

#endif
