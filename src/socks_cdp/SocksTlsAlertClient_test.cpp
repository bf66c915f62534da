#include "socks_cdp/SocksTlsAlertClient.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/PlannedPoll.h"
#include "tests/support/AlertProxy.h"
#include "tests/support/FreshUnit.h"

namespace socks_cdp {
namespace {

using ::testing::ElementsAre;

constexpr const char* kPath = "/var/run/adaptive/csc/tarn-uxds/socks-cdp/sockstlsalertifsocket";

TEST(AlertClientOfTheUnit, Made_NamesTheProxysSocket) {
  const platform_host::CapturedLog log;
  const SocksTlsAlertClient client;
  EXPECT_THAT(log.Lines(), ElementsAre(std::string("debug: SocksTlsAlertClientConnector: "
                                                   "New connector: ") +
                                       kPath));
}

TEST(AlertClientOfTheUnit, Started_ListensToTheProxyUntilStopped) {
  tests::RunOnFreshUnit([] {
    const platform_host::CapturedLog log;
    std::filesystem::create_directories(std::filesystem::path(kPath).parent_path());
    const tests::AlertProxy proxy(kPath);
    tests::RecordingAlertCallback callback;
    SocksTlsAlertClient client;
    ASSERT_EQ(client.StartListening(&callback), kListeningStarted);
    EXPECT_EQ(client.StartListening(&callback), kAlreadyListening);
    const auto connection = proxy.AcceptListener();
    ASSERT_TRUE(tests::SendAll(connection.Get(), tests::AlertMessage("id", 46)));
    EXPECT_TRUE(callback.events.WaitFor("46 id"));
    client.StopListening();
    EXPECT_TRUE(tests::IsAtEnd(connection.Get()));
  });
}

TEST(AlertClientOfTheUnit, Listening_WaitsForAlertsWithoutLimit) {
  tests::RunOnFreshUnit([] {
    const platform_host::CapturedLog log;
    std::filesystem::create_directories(std::filesystem::path(kPath).parent_path());
    const tests::AlertProxy proxy(kPath);
    std::vector<int> timeouts;
    tests::RecordingAlertCallback callback(
        [&timeouts] { timeouts = tests::PlannedPoll::OfThread().timeouts; });
    {
      SocksTlsAlertClient client;
      ASSERT_EQ(client.StartListening(&callback), kListeningStarted);
      const auto connection = proxy.AcceptListener();
      ASSERT_TRUE(tests::SendAll(connection.Get(), tests::AlertMessage("id", 46)));
      EXPECT_TRUE(callback.events.WaitFor("46 id"));
      client.StopListening();  // before the connection ends, which would be told, too
    }
    EXPECT_THAT(timeouts, ElementsAre(-1, -1, -1, -1)) << "type, length, text and code";
  });
}

}  // namespace
}  // namespace socks_cdp
