#include "csa_common/TlsAlerts.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "platform/host/csc_logging/LineFormat.h"
#include "socks_cdp/SocksTlsAlertClientImpl.h"
#include "ssoa_socket/UnixStreamClientConnector.h"
#include "tests/doubles/FakeAlertClient.h"
#include "tests/support/AlertProxy.h"
#include "tests/support/EventLog.h"
#include "tests/support/FreshUnit.h"
#include "tests/support/TemporaryDirectory.h"

namespace csa_common {
namespace {

using platform_host::LogLevel;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::AlertMessage;
using tls_alert_if::ETlsAlertCode;

constexpr auto kMissingId = ETlsAlertCode::kCertificateUnknown;
constexpr auto kUnknownCa = ETlsAlertCode::kUnknownCa;
constexpr auto kOther = static_cast<ETlsAlertCode>(42);

/// Keeps each notification as "CODE OPERATION".
class Notified : public TlsAlertsCbIf {
 public:
  void TlsAlertNotifyCb(std::string operation, ETlsAlertCode code) override {
    events.Add(std::to_string(static_cast<unsigned>(code)) + " " + operation);
  }
  tests::EventLog events;
};

/// A filter whose alerts the test makes up.
class AlertFilter : public ::testing::Test {
 protected:
  void Make(std::vector<ETlsAlertCode> codes, TlsAlertsCbIf* callback = nullptr,
            unsigned int status = socks_cdp::kListeningStarted) {
    auto client = std::make_unique<tests::FakeAlertClient>(status, calls);
    source = client.get();
    alerts = std::make_unique<TlsAlerts>(std::move(codes), callback, std::move(client));
  }

  void Alert(const std::string& operation, ETlsAlertCode code) const {
    source->Listener()->SocksTlsAlertOccured(operation, code);
  }

  void ExpectNoAlert() {
    const TlsAlertInfo info = alerts->CheckAlerts();
    EXPECT_FALSE(info.received);
    EXPECT_EQ(info.code, ETlsAlertCode{0});
    EXPECT_EQ(info.operationId, "");
  }

  void ExpectAlert(const std::string& operation, ETlsAlertCode code) {
    const TlsAlertInfo info = alerts->CheckAlerts();
    EXPECT_TRUE(info.received);
    EXPECT_EQ(info.code, code);
    EXPECT_EQ(info.operationId, operation);
  }

  std::vector<std::string> calls;
  Notified notified;
  platform_host::CapturedLog log;
  std::unique_ptr<TlsAlerts> alerts;
  tests::FakeAlertClient* source = nullptr;
};

TEST_F(AlertFilter, Made_ListensAndNamesItsFilters) {
  Make({kMissingId, kUnknownCa});
  EXPECT_EQ(source->Listener(), alerts.get());
  EXPECT_THAT(calls, ElementsAre("start"));
  EXPECT_THAT(log.Lines(), ElementsAre("info: TlsAlerts: Setting Filter for 46",
                                       "info: TlsAlerts: Setting Filter for 48",
                                       "info: TlsAlerts: Connected to Socks-CDP!"));
  ExpectNoAlert();
}

TEST_F(AlertFilter, CannotListen_OneErrorLineAndUsable) {
  for (const unsigned int status : {socks_cdp::kListeningFailed, socks_cdp::kAlreadyListening}) {
    alerts.reset();
    log.Clear();
    Make({}, nullptr, status);
    EXPECT_THAT(log.Lines(), ElementsAre("error: TlsAlerts: Failed to connect to Socks-CDP!"));
    ExpectNoAlert();
  }
}

TEST_F(AlertFilter, AcceptedAlert_LoggedKeptAndPassedOn) {
  Make({kMissingId, kUnknownCa}, &notified);
  log.Clear();
  Alert("operation", kUnknownCa);
  EXPECT_THAT(log.Lines(), ElementsAre("info: TlsAlerts: Received Alert: "
                                       "OperationId='operation', TlsAlertCode=48"));
  EXPECT_THAT(notified.events.Texts(), ElementsAre("48 operation"));
  ExpectAlert("operation", kUnknownCa);
  ExpectNoAlert();
}

TEST_F(AlertFilter, OtherAlert_LoggedAndNothingElse) {
  Make({kMissingId, kUnknownCa}, &notified);
  Alert("kept", kMissingId);
  log.Clear();
  Alert("dropped", kOther);
  EXPECT_THAT(
      log.Lines(),
      ElementsAre("info: TlsAlerts: Received Alert: OperationId='dropped', TlsAlertCode=42"));
  EXPECT_THAT(notified.events.Texts(), ElementsAre("46 kept"));
  ExpectAlert("kept", kMissingId);
}

TEST_F(AlertFilter, NoFilter_NothingIsAccepted) {
  Make({}, &notified);
  EXPECT_THAT(log.Lines(), ElementsAre("info: TlsAlerts: Connected to Socks-CDP!"));
  Alert("operation", kUnknownCa);
  Alert("operation", ETlsAlertCode{0});
  EXPECT_THAT(notified.events.Texts(), IsEmpty());
  ExpectNoAlert();
}

TEST_F(AlertFilter, TwoAlertsBeforeACheck_TheSecondIsKeptBothArePassedOn) {
  Make({kMissingId, kUnknownCa}, &notified);
  Alert("first", kUnknownCa);
  Alert("second", kMissingId);
  EXPECT_THAT(notified.events.Texts(), ElementsAre("48 first", "46 second"));
  ExpectAlert("second", kMissingId);
  ExpectNoAlert();
}

TEST_F(AlertFilter, NobodyToTell_AlertsAreKept) {
  Make({kUnknownCa});
  Alert("operation", kUnknownCa);
  ExpectAlert("operation", kUnknownCa);
}

TEST_F(AlertFilter, CallbackGivenLater_ToldFromThenOn) {
  Make({kUnknownCa});
  Alert("before", kUnknownCa);
  alerts->CallbackInit(&notified);
  Alert("after", kUnknownCa);
  alerts->CallbackInit(nullptr);
  Alert("without", kUnknownCa);
  EXPECT_THAT(notified.events.Texts(), ElementsAre("48 after"));
  ExpectAlert("without", kUnknownCa);
}

TEST_F(AlertFilter, Error_OnlyALine) {
  Make({kUnknownCa}, &notified);
  log.Clear();
  source->Listener()->SocksTlsAlertError();
  EXPECT_THAT(log.Lines(),
              ElementsAre("debug: TlsAlerts: Socks-CDP Error, socks will start reconnecting"));
  EXPECT_THAT(notified.events.Texts(), IsEmpty());
  ExpectNoAlert();
}

TEST_F(AlertFilter, End_StopsThenReleasesItsSource) {
  Make({kUnknownCa});
  alerts.reset();
  EXPECT_THAT(calls, ElementsAre("start", "stop", "end"));
}

/// Uses the filter again while it is notified: a lock held would never be had a second time.
class AsksAgain : public TlsAlertsCbIf {
 public:
  void TlsAlertNotifyCb(std::string /*operation*/, ETlsAlertCode /*code*/) override {
    info = alerts->CheckAlerts();
    alerts->CallbackInit(nullptr);
  }
  TlsAlerts* alerts = nullptr;
  TlsAlertInfo info;
};

TEST_F(AlertFilter, AskedInsideTheNotification_TheAlertIsThere) {
  AsksAgain asking;
  Make({kUnknownCa}, &asking);
  asking.alerts = alerts.get();
  Alert("operation", kUnknownCa);
  EXPECT_EQ(asking.info.operationId, "operation");
  ExpectNoAlert();
}

TEST_F(AlertFilter, LineBreaksInAnOperation_ForgeNoLine) {
  Make({kUnknownCa});
  log.Clear();
  const std::string forged = "x\n2024-07-05T11:02:03.004Z error TU forged\x1b[2J\r\x85";
  Alert(forged, kUnknownCa);
  ASSERT_THAT(log.Records(), ::testing::SizeIs(1));
  const std::string text = log.Records()[0].text;
  EXPECT_EQ(text, "TlsAlerts: Received Alert: OperationId='" + forged + "', TlsAlertCode=48");
  EXPECT_EQ(platform_host::FormatLine(LogLevel::kInfo, "TU", text, {}),
            "1970-01-01T00:00:00.000Z info TU TlsAlerts: Received Alert: OperationId='x\\x0a2024-07"
            "-05T11:02:03.004Z error TU forged\\x1b[2J\\x0d\\x85', TlsAlertCode=48\n");
  ExpectAlert(forged, kUnknownCa);
}

/// A filter that listens to a proxy of the test.
class ListeningFilter : public ::testing::Test {
 protected:
  std::unique_ptr<socks_cdp::SocksTlsAlertClientIf> Client() {
    return std::make_unique<socks_cdp::SocksTlsAlertClientImpl>(
        std::make_shared<ssoa_socket::UnixStreamClientConnector>(path, -1, "SocksTlsAlertClient"),
        std::chrono::hours(1));
  }

  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/socket";
  const tests::AlertProxy proxy{path};
  Notified notified;
  platform_host::CapturedLog log;
};

TEST_F(ListeningFilter, LongestOperation_PassedOnWhole) {
  TlsAlerts alerts({kUnknownCa}, &notified, Client());
  const auto connection = proxy.AcceptListener();
  const std::string longest = std::string(65534, 'x') + "\n";
  ASSERT_TRUE(tests::SendAll(connection.Get(), AlertMessage(longest, 48)));
  EXPECT_THAT(notified.events.WaitForCount(1), ElementsAre("48 " + longest));
  EXPECT_EQ(alerts.CheckAlerts().operationId, longest);
}

TEST_F(ListeningFilter, SomebodyListensAlready_TheFailureIsLogged) {
  auto client = Client();
  ASSERT_EQ(client->StartListening(nullptr), socks_cdp::kListeningStarted);
  const TlsAlerts alerts({}, &notified, std::move(client));
  EXPECT_THAT(log.Lines(LogLevel::kError),
              ElementsAre("error: TlsAlerts: Failed to connect to Socks-CDP!"));
}

TEST_F(ListeningFilter, UsedWhileAlertsFlood_EveryRecordIsWhole) {
  std::atomic<bool> stopping{false};
  auto alerts =
      std::make_unique<TlsAlerts>(std::vector{kMissingId, kUnknownCa}, &notified, Client());
  const auto connection = proxy.AcceptListener();
  std::thread flood([&] {
    const std::string both =
        AlertMessage("long enough for the heap, 46", 46) + AlertMessage("", 48);
    while (!stopping && tests::SendAll(connection.Get(), both)) {
    }
  });
  int received = 0;
  while (received < 20) {
    const TlsAlertInfo info = alerts->CheckAlerts();
    if (!info.received) continue;
    ++received;
    EXPECT_EQ(info.operationId.empty(), info.code == kUnknownCa);
    alerts->CallbackInit(received % 2 == 0 ? nullptr : &notified);
  }
  alerts.reset();
  stopping = true;
  flood.join();
  EXPECT_TRUE(tests::IsAtEnd(connection.Get()));
}

TEST(AlertFilterOfTheUnit, NoProxy_SaysThatItIsConnectedAllTheSame) {
  tests::RunOnFreshUnit([] {
    const platform_host::CapturedLog log;
    { const TlsAlerts alerts({kMissingId, kUnknownCa}); }
    EXPECT_THAT(log.Lines(LogLevel::kInfo),
                ::testing::IsSupersetOf({"info: TlsAlerts: Setting Filter for 46",
                                         "info: TlsAlerts: Setting Filter for 48",
                                         "info: TlsAlerts: Connected to Socks-CDP!"}));
  });
}

TEST(AlertFilterOfTheUnit, Proxy_IsHeard) {
  tests::RunOnFreshUnit([] {
    const platform_host::CapturedLog log;
    const std::filesystem::path path(
        "/var/run/adaptive/csc/tarn-uxds/socks-cdp/sockstlsalertifsocket");
    std::filesystem::create_directories(path.parent_path());
    const tests::AlertProxy proxy(path.string());
    Notified notified;
    const TlsAlerts alerts({kUnknownCa}, &notified);
    const auto connection = proxy.AcceptListener();
    ASSERT_TRUE(tests::SendAll(connection.Get(), AlertMessage("id", 48)));
    EXPECT_TRUE(notified.events.WaitFor("48 id"));
  });
}

}  // namespace
}  // namespace csa_common
