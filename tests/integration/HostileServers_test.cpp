#include "tests/integration/HostileServers.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>

#include "TruststoreUpdateClient/Constants.h"
#include "TruststoreUpdateClient/ContainerConnection.h"
#include "TruststoreUpdateClient/OcspConnection.h"
#include "csa_common/HttpConnection.h"
#include "lumo_connector/LumoConnector.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/PlannedPoll.h"
#include "tests/doubles/ScriptedServer.h"
#include "tests/support/Deadline.h"
#include "tests/support/EventLog.h"
#include "tests/support/Files.h"
#include "tests/support/HostConfiguration.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestPki.h"

namespace tests {
namespace {

using lumo_connector::LumoConnector;
using platform_host::CapturedLog;
using platform_host::LogLevel;
using truststore_update_client::ContainerRequestOperationTypeId;
using truststore_update_client::OcspRequestOperationTypeId;

/// More than what one exchange leaves behind in caches of the libraries.
constexpr std::size_t kHeapTolerance = 262144;

/// Waits for the session's begin.
class Session : public lumo_connector::LumoSessionCallbackIf {
 public:
  void LumoConnectorStatus(lumo_connector::SessionStatus status) override {
    begun.set_value(status);
  }

  /// Returns kStopped after the deadline.
  lumo_connector::SessionStatus Wait() {
    auto future = begun.get_future();
    if (future.wait_for(kDeadline) == std::future_status::ready) return future.get();
    return lumo_connector::SessionStatus::kStopped;
  }

 private:
  std::promise<lumo_connector::SessionStatus> begun;
};

/// A unit's connector, and one server that it is configured for.
class Exchange {
 public:
  explicit Exchange(const HostileServer& row)
      : server(row.script),
        url((row.isTls ? "https://" : "http://") + server.Address() + "/x"),
        configuration(Configuration(row)),
        connector(std::make_shared<LumoConnector>(&session)) {
    connector->Start();
    if (session.Wait() != lumo_connector::SessionStatus::kStarted)
      throw std::runtime_error("no session");
  }

  /// What a POST comes to: "STATUS, N bytes", "throws" or "result N".
  std::string Post() {
    csa_common::HttpProtocol protocol;
    const csa_common::HttpConnection connection(connector);
    try {
      const unsigned int result = connection.Post(protocol, ContainerRequestOperationTypeId, url);
      if (result != 0) return "result " + std::to_string(result);
    } catch (const std::invalid_argument&) {
      return "throws";
    }
    return std::to_string(protocol.ResponseStatusCode()) + ", " +
           std::to_string(protocol.ResponsePayload().size()) + " bytes";
  }

  unsigned int Download() {
    const truststore_update_client::ContainerConnection backend(connector);
    std::string container;
    return backend.GetContainer(container, 0, "", "", "token", url);
  }

  int CheckCertificate() {
    truststore_update_client::OcspConnection responder(connector);
    return responder.CheckCertificate(PkiBytes("ocsp/good.der"), PkiBytes("ocsp/issuer.der"),
                                      OcspRequestOperationTypeId, url);
  }

  /// `line` with "PORT" in place of the server's port.
  std::string WithoutPort(std::string line) const {
    const std::string port = ":" + std::to_string(server.Port());
    const auto at = line.find(port);
    return at == std::string::npos ? line : line.replace(at, port.size(), ":PORT");
  }

 private:
  std::string Configuration(const HostileServer& row) const {
    WriteText(directory.Path() + "/ca.pem", Certificate("ocsp/issuer.der").PEM_encode());
    std::string text = "[limits]\nresponse_bytes = " + std::to_string(kAnswerLimit) +
                       "\nexchange_s = " + std::to_string(row.exchangeSeconds) + "\n";
    for (const auto& operation : {ContainerRequestOperationTypeId, OcspRequestOperationTypeId}) {
      text += "[service.\"" + operation + "\"]\nurl = \"" + url + "\"\n";
      if (row.isTls) text += "ca_file = \"" + directory.Path() + "/ca.pem\"\n";
    }
    return text;
  }

  const TemporaryDirectory directory;
  const ScriptedServer server;
  const std::string url;
  const HostConfiguration configuration;
  Session session;
  const std::shared_ptr<LumoConnector> connector;
};

class HostileServersTest : public ::testing::TestWithParam<HostileServer> {
 protected:
  HostileServersTest() {
    ::signal(SIGPIPE, SIG_IGN);
    if (GetParam().fallsSilent) PlannedPoll::OfThread().longest = 400;
  }
  ~HostileServersTest() override { PlannedPoll::OfThread() = {}; }

  /// What has been logged of failures.
  std::vector<std::string> Failures(const Exchange& exchange) const {
    std::vector<std::string> lines;
    for (const std::string& line : log.Lines(LogLevel::kInfo)) {
      const bool isInfo = line.compare(0, 6, "info: ") == 0;
      if (!isInfo || line.compare(0, 12, "info: Error:") == 0)
        lines.push_back(exchange.WithoutPort(line));
    }
    return lines;
  }

  CapturedLog log;
};

TEST_P(HostileServersTest, Post_Result) {
  EXPECT_THAT(Exchange(GetParam()).Post(), ::testing::MatchesRegex(GetParam().post));
}

TEST_P(HostileServersTest, Download_ResultAndLines) {
  Exchange exchange(GetParam());
  EXPECT_EQ(exchange.Download(), GetParam().download);
  EXPECT_EQ(Failures(exchange), GetParam().lines);
}

TEST_P(HostileServersTest, CertificateCheck_Result) {
  EXPECT_EQ(Exchange(GetParam()).CheckCertificate(), GetParam().check);
}

TEST_P(HostileServersTest, Afterwards_NothingIsHeld) {
  Exchange(GetParam()).Download();
  const auto descriptors = OpenDescriptors();
  const auto threads = RunningThreads();
  log.Clear();
  const std::size_t heap = HeapInUse();
  Exchange(GetParam()).Download();
  log.Clear();
  EXPECT_LE(HeapInUse(), heap + kHeapTolerance);
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_TRUE(Eventually([&] { return ThreadsSince(threads).empty(); }));
}

INSTANTIATE_TEST_SUITE_P(Each, HostileServersTest, ::testing::ValuesIn(HostileServers()),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace tests
