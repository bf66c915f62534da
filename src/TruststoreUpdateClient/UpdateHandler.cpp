#include "TruststoreUpdateClient/UpdateHandler.h"

#include <cerrno>
#include <exception>
#include <utility>

#include "TruststoreUpdateClient/ContainerHandler.h"
#include "csc_logging/CSCLogging.h"
#include "support/FileContents.h"

namespace truststore_update_client {

using csc_logging::CSCLogging;

namespace {

std::shared_ptr<ContainerHandlerIf> CreateContainerHandler(
    const std::shared_ptr<lumo_connector::LumoConnector>& connector) {
  try {
    return std::make_shared<ContainerHandler>(connector);
  } catch (const std::exception&) {
    return nullptr;  // logged by the constructor of the update handler
  }
}

}  // namespace

UpdateHandler::UpdateHandler(const std::shared_ptr<lumo_connector::LumoConnector>& connector)
    : UpdateHandler(CreateContainerHandler(connector)) {}

UpdateHandler::UpdateHandler(std::shared_ptr<ContainerHandlerIf> handler)
    : containerHandler(std::move(handler)) {
  if (!containerHandler) CSCLogging::LogError("Cannot create Containerhandler!");
}

ResponseStatus UpdateHandler::RemoveAllTrustStores() const {
  return containerHandler ? containerHandler->RemoveAllTrustStores() : kStoresNotRemoved;
}

void UpdateHandler::UpdateDevContainer(const std::string& path) {
  std::string content;
  const int error = support::ReadFile(path, kMaxContainerFileBytes, content);
  if (error != 0) {
    CSCLogging::LogError("Failed to open '" + path + "'");
    if (error != ENOENT) {
      CSCLogging::LogInfo(std::string("The container file was not read: ") +
                          support::ErrorText(error));
    }
    return;
  }
  const ResponseStatus status = VerifyAndInstallContainer(content);
  CSCLogging::LogInfo("Send Update Status to the Device Platform: " + StatusName(status));
}

ResponseStatus UpdateHandler::VerifyAndInstallContainer(const std::string& container) {
  return containerHandler ? containerHandler->VerifyAndInstallContainer(container)
                          : STATUS_CODE_UNEXPECTED_ERROR;
}

}  // namespace truststore_update_client
