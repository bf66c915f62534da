#include "TruststoreUpdateClient/OcspConnection.h"

#include <botan/exceptn.h>
#include <botan/ocsp.h>
#include <botan/pkix_types.h>

#include <exception>
#include <utility>

#include "TruststoreUpdateClient/OcspResponseCheck.h"
#include "csa_common/HttpConnection.h"
#include "csa_common/HttpProtocol.h"
#include "csc_logging/CSCLogging.h"

namespace truststore_update_client {

using Botan::X509_Certificate;
using csa_common::HttpOption;
using csa_common::HttpProtocol;
using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

namespace {

constexpr std::uint16_t kStatusOk = 200;
constexpr std::uint16_t kNoStatus = 0;

void LogOutcome(bool isGood, const std::string& line) {
  if (isGood) {
    CSCLogging::LogInfo(line);
  } else {
    CSCLogging::LogError(line);
  }
}

int Refuse(const std::string& reason) {
  CSCLogging::LogError("OCSP: Answer refused unread: " + reason);
  return kOcspFailed;
}

}  // namespace

OcspConnection::OcspConnection(std::shared_ptr<lumo_connector::LumoConnector> connector)
    : OcspConnection(std::make_shared<csa_common::HttpConnection>(std::move(connector)),
                     std::chrono::system_clock::now) {}

OcspConnection::OcspConnection(std::shared_ptr<csa_common::HttpConnectionIf> httpConnection,
                               Clock clock)
    : http(std::move(httpConnection)), now(std::move(clock)) {}

int OcspConnection::CheckCertificate(const std::vector<std::uint8_t>& certificate,
                                     const std::vector<std::uint8_t>& issuer,
                                     const std::string& operationTypeId, const std::string& url) {
  X509_Certificate subject;
  X509_Certificate authority;
  try {
    subject = X509_Certificate(certificate);
    authority = X509_Certificate(issuer);
  } catch (const std::exception&) {
    CSCLogging::LogError("OCSP - Not able to populate X509 certificates!");
    return kOcspFailed;
  }
  try {
    return Ask(subject, authority, operationTypeId, url);
  } catch (const std::exception&) {
    std::string cn;
    GetCertificateCommonName(subject, cn);
    CSCLogging::LogError("OCSP: Unexpected error with certificate: " + cn);
    return kOcspFailed;
  }
}

int OcspConnection::Ask(const X509_Certificate& certificate, const X509_Certificate& issuer,
                        const std::string& operationTypeId, const std::string& url) const {
  std::string request;
  if (CreateOcspRequest(request, certificate, issuer)) {
    CSCLogging::LogError("ERROR: Unable to create OCSP Request!");
    return kOcspFailed;
  }
  std::string responder;
  if (GetOcspResponder(certificate, responder)) {
    std::string cn;
    GetCertificateCommonName(certificate, cn);
    CSCLogging::LogError("Certificate: " + cn + " is missing OCSP responder.");
    return kOcspFailed;
  }
  CSCLogging::LogInfo("OCSP Responder URL: " + responder);
  std::string answer;
  const int result = Exchange(std::move(request), operationTypeId, url, answer);
  return result == kOcspGood ? Judge(certificate, issuer, answer) : result;
}

int OcspConnection::Exchange(std::string request, const std::string& operationTypeId,
                             const std::string& url, std::string& answer) const {
  HttpProtocol protocol;
  protocol.SetOption(HttpOption::ContentType, "application/ocsp-request");
  protocol.SetOption(HttpOption::Connection, "close");
  protocol.SetOption(HttpOption::Payload, std::move(request));
  if (http->Post(protocol, operationTypeId, url) != csa_common::kHttpSuccess) {
    return kOcspNotCompleted;
  }
  const std::uint16_t status = protocol.ResponseStatusCode();
  if (status == kStatusOk) {
    answer = protocol.ResponsePayload();
    return kOcspGood;
  }
  CSCLogging::LogError(CSCLogEntry() << "Unexpected HTTP response: " << status << "!");
  return status == kNoStatus ? kOcspNotCompleted : kOcspFailed;
}

int OcspConnection::Judge(const X509_Certificate& certificate, const X509_Certificate& issuer,
                          const std::string& answer) const {
  const std::vector<std::uint8_t> response(answer.begin(), answer.end());
  const std::string reason = BeyondOcspBounds(response);
  if (!reason.empty()) return Refuse(reason);
  try {
    std::string text;
    return CheckOcspResponse(certificate, issuer, response, text) ? kOcspFailed : kOcspGood;
  } catch (const Botan::Exception&) {
    CSCLogging::LogError("OCSP: Unexpected Error!");
    return kOcspFailed;
  }
}

bool OcspConnection::CheckOcspResponse(const X509_Certificate& certificate,
                                       const X509_Certificate& issuer,
                                       const std::vector<std::uint8_t>& response,
                                       std::string& text) const {
  using Status = Botan::Certificate_Status_Code;
  const OcspVerdict verdict = EvaluateOcspResponse(certificate, issuer, response, now());
  text = OcspStatusText(verdict.status);
  std::string cn;
  GetCertificateCommonName(certificate, cn);
  LogOutcome(verdict.status == Status::OCSP_RESPONSE_GOOD,
             "OCSP response status: " + text + " for " + cn);
  LogOutcome(verdict.signature == Status::OCSP_SIGNATURE_OK,
             "OCSP signature status: " + OcspStatusText(verdict.signature));
  return !verdict.IsGood();
}

bool OcspConnection::CreateOcspRequest(std::string& request, const X509_Certificate& certificate,
                                       const X509_Certificate& issuer) const {
  try {
    const auto encoding = Botan::OCSP::Request(issuer, certificate).BER_encode();
    request.assign(encoding.begin(), encoding.end());
    return false;
  } catch (const std::exception&) {
    return true;  // logged by the caller
  }
}

bool OcspConnection::GetOcspResponder(const X509_Certificate& certificate, std::string& url) const {
  url = certificate.ocsp_responder();
  return url.empty();
}

void OcspConnection::GetCertificateCommonName(const X509_Certificate& certificate,
                                              std::string& cn) const {
  cn = certificate.subject_dn().get_first_attribute("CN");
}

}  // namespace truststore_update_client
