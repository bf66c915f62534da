#include "socks_cdp/SocksTlsAlertClient.h"

#include <string>

#include "socks_cdp/SocksTlsAlertClientImpl.h"
#include "ssoa_socket/UnixStreamClientConnector.h"

namespace socks_cdp {
namespace {

constexpr const char* kSocketDirectory = "/var/run/adaptive/csc/tarn-uxds/socks-cdp";
constexpr const char* kSocketFile = "/sockstlsalertifsocket";
constexpr int kNoReadTimeout = -1;

}  // namespace

SocksTlsAlertClient::SocksTlsAlertClient()
    : implementation(std::make_unique<SocksTlsAlertClientImpl>(
          std::make_shared<ssoa_socket::UnixStreamClientConnector>(
              std::string(kSocketDirectory) + kSocketFile, kNoReadTimeout,
              "SocksTlsAlertClient"))) {}

SocksTlsAlertClient::~SocksTlsAlertClient() = default;

unsigned int SocksTlsAlertClient::StartListening(SocksTlsAlertClientCallbackIf* callback) {
  return implementation->StartListening(callback);
}

void SocksTlsAlertClient::StopListening() {
  implementation->StopListening();
}

}  // namespace socks_cdp
