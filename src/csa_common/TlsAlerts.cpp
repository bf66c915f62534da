#include "csa_common/TlsAlerts.h"

#include <algorithm>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "socks_cdp/SocksTlsAlertClient.h"

namespace csa_common {
namespace {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;
using tls_alert_if::ETlsAlertCode;

unsigned Number(ETlsAlertCode code) {
  return static_cast<unsigned>(code);
}

}  // namespace

TlsAlerts::TlsAlerts(std::vector<ETlsAlertCode> acceptedCodes)
    : TlsAlerts(std::move(acceptedCodes), nullptr) {}

TlsAlerts::TlsAlerts(std::vector<ETlsAlertCode> acceptedCodes, TlsAlertsCbIf* callback)
    : TlsAlerts(std::move(acceptedCodes), callback,
                std::make_unique<socks_cdp::SocksTlsAlertClient>()) {}

TlsAlerts::TlsAlerts(std::vector<ETlsAlertCode> acceptedCodes, TlsAlertsCbIf* callback,
                     std::unique_ptr<socks_cdp::SocksTlsAlertClientIf> client)
    : filters(std::move(acceptedCodes)), notifyCallback(callback), alertClient(std::move(client)) {
  Init();
}

TlsAlerts::~TlsAlerts() {
  alertClient->StopListening();
}

void TlsAlerts::CallbackInit(TlsAlertsCbIf* callback) {
  const support::MutexLock lock(mutex);
  notifyCallback = callback;
}

TlsAlertInfo TlsAlerts::CheckAlerts() {
  const support::MutexLock lock(mutex);
  return std::exchange(pending, TlsAlertInfo());
}

void TlsAlerts::SocksTlsAlertOccured(std::string operationId, ETlsAlertCode code) {
  CSCLogging::LogInfo(CSCLogEntry() << "TlsAlerts: Received Alert: OperationId='" << operationId
                                    << "', TlsAlertCode=" << Number(code));
  if (!IsAccepted(code)) return;
  TlsAlertInfo alert{true, code, operationId};
  TlsAlertsCbIf* callback = nullptr;
  {
    const support::MutexLock lock(mutex);
    std::swap(pending, alert);
    callback = notifyCallback;
  }
  if (callback != nullptr) callback->TlsAlertNotifyCb(std::move(operationId), code);
}

void TlsAlerts::SocksTlsAlertError() {
  CSCLogging::LogDebug("TlsAlerts: Socks-CDP Error, socks will start reconnecting");
}

void TlsAlerts::Init() {
  for (const ETlsAlertCode code : filters) {
    CSCLogging::LogInfo(CSCLogEntry() << "TlsAlerts: Setting Filter for " << Number(code));
  }
  if (alertClient->StartListening(this) == socks_cdp::kListeningStarted) {
    CSCLogging::LogInfo("TlsAlerts: Connected to Socks-CDP!");
  } else {
    CSCLogging::LogError("TlsAlerts: Failed to connect to Socks-CDP!");
  }
}

bool TlsAlerts::IsAccepted(ETlsAlertCode code) const {
  return std::find(filters.begin(), filters.end(), code) != filters.end();
}

}  // namespace csa_common
