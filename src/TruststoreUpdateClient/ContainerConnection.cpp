#include "TruststoreUpdateClient/ContainerConnection.h"

#include <google/protobuf/stubs/logging.h>

#include <exception>
#include <utility>

#include "RUNA_CO_TruststoreUpdateReportTSCStatus_v1.pb.h"
#include "RUNA_CO_TruststoreUpdateRequestTSC_v1.pb.h"
#include "RUNA_CT_TruststoreUpdateResponseTSC_v1.pb.h"
#include "TruststoreUpdateClient/Constants.h"
#include "csa_common/HttpConnection.h"
#include "csa_common/HttpProtocol.h"
#include "csc_logging/CSCLogging.h"

namespace truststore_update_client {

using csa_common::HttpOption;
using csa_common::HttpProtocol;
using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;
using google::protobuf::LogSilencer;

namespace {

constexpr std::uint16_t kStatusOk = 200;
constexpr std::uint16_t kStatusNoContent = 204;

const std::string kRequestType = "application/RUNA_CO_TruststoreUpdateRequestTSC_v1+proto";
const std::string kResponseType = "application/RUNA_CT_TruststoreUpdateResponseTSC_v1+proto";
const std::string kReportType = "application/RUNA_CO_TruststoreUpdateReportTSCStatus_v1+proto";

void SetRequest(HttpProtocol& protocol, const std::string& contentType, const std::string& token,
                std::string body) {
  protocol.SetOption(HttpOption::ContentType, contentType);
  protocol.SetOption(HttpOption::Connection, "close");
  protocol.SetOption(HttpOption::Authorization, "Bearer " + token);
  protocol.SetOption(HttpOption::Payload, std::move(body));
}

unsigned int FailUnexpected(std::uint16_t status) {
  CSCLogging::LogError(CSCLogEntry() << "Unexpected HTTP response: " << status << "!");
  return kExchangeFailed;
}

// A status line without a number ends in an exception, and so does a lack of memory.
template <typename Exchange>
unsigned int WithoutExceptions(const std::string& operationTypeId, Exchange exchange) {
  try {
    return exchange();
  } catch (const std::exception& exception) {
    CSCLogging::LogError(CSCLogEntry() << "Exchange for '" << operationTypeId
                                       << "' failed: " << exception.what());
    return kExchangeFailed;
  }
}

}  // namespace

ContainerConnection::ContainerConnection(
    std::shared_ptr<lumo_connector::LumoConnector> lumoConnector)
    : connector(std::move(lumoConnector)) {}

unsigned int ContainerConnection::GetContainer(std::string& container, unsigned char renewalReason,
                                               const std::string& operationTypeId,
                                               const std::string& containerId,
                                               const std::string& token,
                                               const std::string& url) const {
  container.clear();
  return WithoutExceptions(ContainerRequestOperationTypeId, [&]() -> unsigned int {
    std::string body;
    if (CreateContainerDownloadRequest(body, renewalReason, operationTypeId, containerId)) {
      return kExchangeFailed;
    }
    HttpProtocol protocol;
    SetRequest(protocol, kRequestType, token, std::move(body));
    protocol.SetOption(HttpOption::Accept, kResponseType);
    const csa_common::HttpConnection connection(connector);
    if (connection.Post(protocol, ContainerRequestOperationTypeId, url) != 0) {
      return kExchangeFailed;
    }
    const std::uint16_t status = protocol.ResponseStatusCode();
    if (status == kStatusNoContent) return kNoNewContainer;
    if (status != kStatusOk) return FailUnexpected(status);
    if (ParseContainerDownloadResponse(container, protocol.ResponsePayload())) {
      return kExchangeFailed;
    }
    CSCLogging::LogInfo("The Container was downloaded successfully");
    return kExchangeSuccess;
  });
}

unsigned int ContainerConnection::SendUpdateStatus(ResponseStatus status,
                                                   const std::string& containerId,
                                                   const std::string& token,
                                                   const std::string& url) const {
  return WithoutExceptions(StatusReportOperationTypeId, [&]() -> unsigned int {
    std::string body;
    if (CreateStatusUpdateRequest(body, status, containerId)) return kExchangeFailed;
    HttpProtocol protocol;
    SetRequest(protocol, kReportType, token, std::move(body));
    const csa_common::HttpConnection connection(connector);
    if (connection.Post(protocol, StatusReportOperationTypeId, url) != 0) return kExchangeFailed;
    const std::uint16_t answer = protocol.ResponseStatusCode();
    if (answer != kStatusNoContent && answer != kStatusOk) return FailUnexpected(answer);
    CSCLogging::LogInfo("The Status was updated successfully");
    return kExchangeSuccess;
  });
}

bool ContainerConnection::CreateContainerDownloadRequest(std::string& body,
                                                         unsigned char renewalReason,
                                                         const std::string& operationTypeId,
                                                         const std::string& containerId) const {
  using domain::backend::proto::RUNACOTruststoreUpdateRequestTSCV1;
  const LogSilencer silencer;
  body.clear();
  RUNACOTruststoreUpdateRequestTSCV1 request;
  request.set_renewal_reason(
      static_cast<RUNACOTruststoreUpdateRequestTSCV1::RenewalReason>(renewalReason));
  request.set_operation_type_id(operationTypeId);
  request.set_container_id(containerId);
  request.set_ecu_type(RUNACOTruststoreUpdateRequestTSCV1::ECU_TYPE_KORB1);
  request.set_market_id(RUNACOTruststoreUpdateRequestTSCV1::MARKET_ID_EU);
  request.set_brand_id(RUNACOTruststoreUpdateRequestTSCV1::BRAND_ID_ARNO);
  if (request.SerializeToString(&body)) return false;
  CSCLogging::LogInfo("Error: Unable to create Download Request!");
  return true;
}

bool ContainerConnection::ParseContainerDownloadResponse(std::string& container,
                                                         const std::string& body) const {
  // The library writes on standard error for a peer's every invalid character.
  const LogSilencer silencer;
  container.clear();
  domain::backend::proto::RUNACTTruststoreUpdateResponseTSCV1 response;
  if (!response.ParseFromString(body)) {
    CSCLogging::LogInfo("Error: Unable to parse Download Response!");
    return true;
  }
  container = std::move(*response.mutable_trust_store_container());
  return false;
}

bool ContainerConnection::CreateStatusUpdateRequest(std::string& body, ResponseStatus status,
                                                    const std::string& containerId) const {
  using domain::backend::proto::RUNACOTruststoreUpdateReportTSCStatusV1;
  const LogSilencer silencer;
  body.clear();
  RUNACOTruststoreUpdateReportTSCStatusV1 report;
  report.set_status_code(static_cast<RUNACOTruststoreUpdateReportTSCStatusV1::StatusCode>(status));
  report.set_container_id(containerId);
  if (report.SerializeToString(&body)) return false;
  CSCLogging::LogInfo("Error: Unable to create Status Update Request!");
  return true;
}

}  // namespace truststore_update_client
