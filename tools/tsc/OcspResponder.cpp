#include "tools/tsc/OcspResponder.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <utility>
#include <variant>

#include "TruststoreUpdateClient/Constants.h"
#include "TruststoreUpdateClient/OcspConnection.h"
#include "csa_common/HttpConnection.h"
#include "platform/host/config/ServiceKeys.h"
#include "platform/host/lumo_connector/Exchanges.h"
#include "platform/host/lumo_connector/Services.h"
#include "platform/host/lumo_connector/TlsContext.h"

namespace tsc {

using platform_host::Error;
using platform_host::HostConfig;
using platform_host::Result;
using platform_host::ServiceConfig;
namespace tuc = truststore_update_client;

namespace {

// The client's requests on streams of this configuration, which is in no file.
class ConfiguredHttp : public csa_common::HttpConnection {
 public:
  explicit ConfiguredHttp(std::shared_ptr<const HostConfig> hostConfig)
      : HttpConnection(nullptr), config(std::move(hostConfig)) {}

 private:
  [[nodiscard]] lumo_connector::LumoSocketResult SocketConnect(const std::string& operationTypeId,
                                                               const std::string& host,
                                                               std::uint16_t port) const override {
    return exchanges->Connect(*config, operationTypeId, host, port);
  }

  const std::shared_ptr<const HostConfig> config;
  const std::unique_ptr<platform_host::Exchanges> exchanges =
      std::make_unique<platform_host::Exchanges>();
};

}  // namespace

Result<ServiceConfig> ResponderAt(const std::string& url, const std::string& caFile) {
  ServiceConfig responder;
  if (const auto refusal = platform_host::TakeUrl(url, responder.url)) {
    return Error("--ocsp-url " + url + ": " + *refusal);
  }
  if (responder.IsTls() && caFile.empty()) {
    return Error("--ocsp-url " + url + ": https needs --ocsp-ca FILE");
  }
  if (!responder.IsTls() && !caFile.empty()) {
    return Error("--ocsp-ca " + caFile + ": only for an https --ocsp-url");
  }
  if (!caFile.empty()) responder.caFile = std::filesystem::absolute(caFile);
  return responder;
}

platform_host::ConnectOutcome TrustFailure(const ServiceConfig& responder) {
  if (!responder.IsTls()) return std::nullopt;
  auto loaded = platform_host::TlsContext::Load(HostConfig{}, responder);
  if (auto* const failure = std::get_if<platform_host::ConnectFailure>(&loaded)) return *failure;
  return std::nullopt;
}

void AskResponder(const ServiceConfig& responder, tuc::HSM::Collaborators& collaborators) {
  HostConfig operations;
  for (const auto& id : {tuc::OcspRequestOperationTypeId, tuc::ModOcspRequestOperationTypeId}) {
    operations.services[id] = responder;
  }
  const auto config = std::make_shared<const HostConfig>(std::move(operations));
  collaborators.ocspConnection = std::make_shared<tuc::OcspConnection>(
      std::make_shared<ConfiguredHttp>(config), collaborators.now);
  collaborators.invocationUrl = [config](const std::string& operationTypeId) {
    return platform_host::UrlOf(*config, operationTypeId);
  };
}

}  // namespace tsc
