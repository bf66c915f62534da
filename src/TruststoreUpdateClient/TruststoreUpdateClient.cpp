#include "TruststoreUpdateClient/TruststoreUpdateClient.h"

#include <exception>

#include "TruststoreUpdateClient/UpdateHandler.h"
#include "csc_logging/CSCLogging.h"

namespace truststore_update_client {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;
using lumo_connector::LumoConnector;
using lumo_connector::SessionStatus;

namespace {

constexpr const char* kVersion = "2.1.8-support-0.0.3";

unsigned Number(SessionStatus status) {
  return static_cast<unsigned>(status);
}

// Null after a failure, which the caller logs.
template <typename Object, typename Argument>
std::shared_ptr<Object> Create(const Argument& argument) {
  try {
    return std::make_shared<Object>(argument);
  } catch (const std::exception&) {
    return nullptr;
  }
}

}  // namespace

TruststoreUpdateClient::TruststoreUpdateClient() {
  CSCLogging::LogInfo("Trust Store Update Client started");
  CSCLogging::LogInfo(std::string("Trust Store Update Client version: ") + kVersion);
  CreateCollaborators();
}

TruststoreUpdateClient::~TruststoreUpdateClient() {
  if (lumoConnector) lumoConnector->Stop();
}

void TruststoreUpdateClient::CreateCollaborators() {
  lumoConnector = Create<LumoConnector>(static_cast<LumoSessionCallbackIf*>(this));
  if (!lumoConnector) {
    CSCLogging::LogError("Cannot create LumoConnector!");
    return;
  }
  LumoConnectorInit();
  updateHandler = Create<UpdateHandler>(lumoConnector);
  if (!updateHandler) CSCLogging::LogError("Cannot create UpdateHandler!");
}

void TruststoreUpdateClient::LumoConnectorInit() {
  lumoConnector->Start();
  CSCLogging::LogInfo("Waiting for Lumo-Connector to start");
  WaitForTrigger(kNoTimeout);
  sessionStatus = lumoConnector->GetSessionStatus();
  if (sessionStatus == SessionStatus::kStarted) {
    CSCLogging::LogInfo("Lumo-Connector was started successfully.");
    return;
  }
  CSCLogging::LogError(CSCLogEntry() << "Lumo-Connector failed to start! SessionStatus="
                                     << Number(sessionStatus));
  if (sessionStatus == SessionStatus::kRejected) connectorRejected = true;
}

void TruststoreUpdateClient::SendTrigger() {
  trigger.Raise();
}

void TruststoreUpdateClient::WaitForTrigger(int timeout) {
  if (timeout == kNoTimeout) {
    CSCLogging::LogDebug("Process timeout set to inf");
    trigger.Wait();
    return;
  }
  CSCLogging::LogDebug(CSCLogEntry() << "Process timeout set to: " << timeout << "s");
  trigger.WaitFor(std::chrono::seconds(timeout));
}

bool TruststoreUpdateClient::FactoryReset() const {
  return updateHandler && updateHandler->RemoveAllTrustStores() == STATUS_CODE_SUCCESS;
}

void TruststoreUpdateClient::HandleDevContainer(const std::string& path, bool factoryReset) {
  if (factoryReset) {
    CSCLogging::LogInfo("Truststore Update Client Factory Reset");
    if (!FactoryReset()) CSCLogging::LogError("Factory Reset failed!");
    factoryResetDone = true;
  }
  if (updateHandler) updateHandler->UpdateDevContainer(path);
}

void TruststoreUpdateClient::LumoConnectorStatus(SessionStatus status) {
  if (status == SessionStatus::kStarted) {
    CSCLogging::LogInfo("LumoConnector Status OK");
  } else if (status == SessionStatus::kRejected) {
    CSCLogging::LogError(CSCLogEntry() << "LumoConnector Status Rejected=" << Number(status));
    connectorRejected = true;
  } else {
    CSCLogging::LogError(CSCLogEntry() << "LumoConnectorStatus Failed=" << Number(status));
  }
  SendTrigger();
}

}  // namespace truststore_update_client
