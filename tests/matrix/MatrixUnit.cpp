#include "tests/matrix/MatrixUnit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "RUNA_CT_TruststoreUpdateTSCJob_v1.pb.h"
#include "TruststoreUpdateClient/ContainerHandler.h"
#include "TruststoreUpdateClient/OcspConnection.h"
#include "csa_common/TlsAlerts.h"
#include "process_lifecycle_adapter/ProcessLifecycleAdapterApiImpl.h"
#include "tests/support/Deadline.h"
#include "tests/support/EventLog.h"
#include "tests/support/Files.h"
#include "tests/support/TestContainer.h"
#include "tests/support/TestPki.h"

namespace tests {

namespace tuc = truststore_update_client;
namespace lifecycle_adapter = process_lifecycle_adapter;

namespace {

constexpr unsigned char kMissingTruststoreId = 46;
constexpr unsigned char kUnknownCa = 48;
constexpr unsigned kSuspendSequence = 1;
constexpr unsigned kResumeSequence = 2;
constexpr std::size_t kLinesOfJob = 2;  // that comes to a unit which has resumed
const std::string kIdKey = "truststore-container-id";
const std::string kTimestampKey = "truststore-timestamp";
const std::string kFormerTimestamp = "1700000000";
const std::string kJobTopic = "RUNA-TruststoreUpdate.CTTSCJobKORB1";
const std::string kSent = "info: Update Status was sent successfully.";
const std::string kNothingToSupervise =
    "instance-id = UNIT-1\nsupervision-entity-id = 7\ncheckpoint-id = 3\n"
    "supervision-cycle = 65535\nexpected-alive-indications = 1\n";

std::string Job() {
  domain::backend::proto::RUNACTTruststoreUpdateTSCJobV1 job;
  job.set_container_id(kOfferedId);
  return job.SerializeAsString();
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  const auto found = text.find(from);
  if (found != std::string::npos) text.replace(found, from.size(), to);
  return text;
}

}  // namespace

std::string StatusNameOf(const UpdateCell& cell) {
  if (cell.status == "-") return "-";
  return tuc::StatusName(static_cast<tuc::ResponseStatus>(std::stoi(cell.status)));
}

std::vector<std::string> FilledInLog(const UpdateCell& cell) {
  std::vector<std::string> lines;
  for (const auto& line : cell.log) {
    std::string text = Replaced(line, "{installed}", kInstalledId);
    text = Replaced(text, "{offered}", kOfferedId);
    lines.push_back(Replaced(text, "{status}", StatusNameOf(cell)));
  }
  return lines;
}

class MatrixUnit::Records : public FakeRecords {
 public:
  explicit Records(OutageBackend& told) : backend(told) {}

  [[nodiscard]] int StoreFile(const std::string& key, const std::string& path) const override {
    const int result = FakeRecords::StoreFile(key, path);
    if (stored.back() == kIdKey + "=" + kOfferedId) backend.Reach("after");
    return result;
  }

 private:
  OutageBackend& backend;
};

MatrixUnit::MatrixUnit(const UpdateCell& updateCell)
    : cell(updateCell), backend(connector, cell), records(std::make_shared<Records>(backend)) {
  trustStore->Provision(tuc::ZORA_ROOT_CERTIFICATE_ID, PkiText("signers/good/root.pem"));
  if (!BeginsEmpty()) InstallFormerContainer();
  WriteText(directory.Path() + "/config.cfg", "");
  client = std::make_unique<tuc::TruststoreUpdateClient>(MakeCollaborators());
  Start();
}

MatrixUnit::~MatrixUnit() {
  backend.LetGo();
  if (mainLoop.valid()) End();
}

void MatrixUnit::InstallFormerContainer() {
  (void)trustStore->InstallCertificateBundle("OLD", "pem");
  records->records = {{kIdKey, kInstalledId}, {kTimestampKey, kFormerTimestamp}};
}

// With a store that is empty the update begins with the main loop. Otherwise the loop has come to
// rest before the outage and the trigger.
void MatrixUnit::Start() {
  client->Initialize(false);
  connector.WaitForCallbacks();
  if (BeginsEmpty()) {
    backend.Reach("before");
    log.Clear();
  }
  mainLoop = std::async(std::launch::async, [this] { client->Main(); });
  if (BeginsEmpty()) return;
  WaitForLine("info: MQTT Subscribed successfully");
  log.Clear();
  backend.Reach("before");
}

MatrixUnit::Collaborators MatrixUnit::MakeCollaborators() {
  Collaborators collaborators;
  collaborators.lifecycle = [this] { return MakeLifecycle(); };
  collaborators.tlsAlerts = [this](const auto& codes, auto* callback) {
    auto alerts = std::make_unique<FakeAlertClient>(socks_cdp::kListeningStarted, alertCalls);
    alertClient = alerts.get();
    return std::make_shared<csa_common::TlsAlerts>(codes, callback, std::move(alerts));
  };
  collaborators.updateHandler = [this](const auto& shared) { return MakeUpdateHandler(shared); };
  collaborators.pauseForSecond = [this] {
    EXPECT_TRUE(Eventually([this] { return !updateHandler->IsContainerUpdateOngoing(); }));
  };
  return collaborators;
}

std::shared_ptr<lifecycle_adapter::ProcessLifecycleAdapterIf> MatrixUnit::MakeLifecycle() {
  WriteText(directory.Path() + "/truststore-update-client-phm.ini", kNothingToSupervise);
  lifecycle_adapter::ProcessLifecycleAdapterImpl::Parts parts;
  parts.api = std::make_unique<lifecycle_adapter::ProcessLifecycleAdapterApiImpl>(directory.Path());
  lifecycle =
      std::make_shared<lifecycle_adapter::ProcessLifecycleAdapterImpl>(nullptr, std::move(parts));
  return lifecycle;
}

std::shared_ptr<tuc::HSM> MatrixUnit::MakeFacade(const Collaborators::Connector& shared) {
  tuc::HSM::Collaborators parts{trustStore, tuc::PersistentFileStorage(records)};
  parts.containerIdFile = directory.Path() + "/id";
  parts.timestampFile = directory.Path() + "/timestamp";
  parts.ocspConnection = std::make_shared<tuc::OcspConnection>(shared);
  parts.invocationUrl = [shared](const std::string& operationTypeId) {
    return shared->GetInvocationUrl(operationTypeId);
  };
  return std::make_shared<tuc::HSM>(std::move(parts));
}

// What recovers is tried again at once; all other waits end by a stop only.
std::shared_ptr<tuc::UpdateHandlerIf> MatrixUnit::MakeUpdateHandler(
    const Collaborators::Connector& shared) {
  facade = MakeFacade(shared);
  const auto clock = [] {
    return std::chrono::system_clock::from_time_t(TestContainer::kContainerTime);
  };
  tuc::UpdateHandler::Collaborators parts{
      std::make_shared<tuc::ContainerHandler>(
          facade, development_tools::DevelopmentTools(directory.Path() + "/config.cfg"), clock),
      std::make_shared<tuc::ContainerConnection>(shared), shared};
  parts.notificationFile = directory.Path() + "/marker";
  parts.retryInterval =
      cell.then == "recovers" ? std::chrono::milliseconds(0) : std::chrono::hours(1);
  updateHandler = std::make_shared<tuc::UpdateHandler>(std::move(parts));
  return updateHandler;
}

void MatrixUnit::Trigger() {
  if (cell.trigger == "job") connector.ReportPublished(kJobTopic, Job(), 1);
  if (cell.trigger == "alert46") SendAlert(kMissingTruststoreId);
  if (cell.trigger == "alert48") SendAlert(kUnknownCa);
}

void MatrixUnit::SendAlert(unsigned char code) {
  alertClient->Listener()->SocksTlsAlertOccured(kAlertOperation, tls_alert_if::ETlsAlertCode{code});
}

void MatrixUnit::WaitForPoint() {
  if (cell.at == "wait") {
    WaitForLine("info: * is waiting for correct Connection state...");
  } else if (cell.at == "retry" || cell.at == "ocsp-retry") {
    WaitForLine("error: Retrying in 30 seconds...");
  } else if (cell.at == "idle") {
    WaitForLine(kSent);
  } else if (cell.at != "-") {
    EXPECT_TRUE(backend.WaitForRequest()) << "no " << cell.at;
  }
}

void MatrixUnit::Recover() {
  WaitForPoint();
  if (cell.at == "wait") backend.End();
  if (cell.at == "ocsp-retry") facade->StopRetryTimer();
  WaitForLine(kSent);
}

void MatrixUnit::Suspend() {
  StopBy([this] { platform.RequestState(kSuspendSequence, "kPrepSD"); });
  EXPECT_TRUE(Eventually([this] { return platform.Calls("confirm").size() == 1; }));
}

void MatrixUnit::Resume() {
  backend.End();
  platform.RequestState(kResumeSequence, "kOn");
  EXPECT_TRUE(Eventually([this] { return platform.Calls("confirm").size() == 2; }));
  const auto lines = FilledInLog(cell);
  WaitForLine(lines[lines.size() - 1 - kLinesOfJob]);
  connector.ReportPublished(kJobTopic, Job(), 2);
  WaitForLine(lines.back());
}

void MatrixUnit::End() {
  StopBy([this] { lifecycle->Terminate(); });
  mainLoop.get();
}

void MatrixUnit::StopBy(const std::function<void()>& stop) {
  const std::future<void> stopping = std::async(std::launch::async, stop);
  WaitForLine("debug: Stopping Container Update");
  backend.LetGo();
  stopping.wait();
}

void MatrixUnit::WaitForLine(const std::string& pattern) const {
  EXPECT_TRUE(Eventually([&] {
    const auto lines = log.Lines();
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& line) { return MatchesLine(pattern, line); });
  })) << "no line "
      << pattern;
}

std::vector<std::string> MatrixUnit::Log() const {
  return log.Lines(platform_host::LogLevel::kInfo);
}

std::string MatrixUnit::Marker() const {
  return ReadText(directory.Path() + "/marker");
}

std::string MatrixUnit::RecordedId() const {
  const auto record = records->records.find(kIdKey);
  return record == records->records.end() ? "" : record->second;
}

}  // namespace tests
