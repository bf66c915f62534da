/// What the configuration says about an operation of the backend, as the connector answers it. For
/// LumoConnector. Without state: any thread.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_SERVICES_H
#define PLATFORM_HOST_LUMO_CONNECTOR_SERVICES_H

#include <string>

#include "lumo_connector/LumoTypes.h"
#include "platform/host/config/HostConfig.h"

namespace platform_host {

/// The access token of `operationTypeId`, read anew where it is in a file; one line break at the
/// file's end is not part of it. Status 1 with the token; 2 when none is configured; 3 when the
/// file cannot be read or holds anything but one token. One error line tells of a failure; none
/// shows what the file holds. Blocks for the reading.
[[nodiscard]] lumo_connector::LumoTokenResult TokenOf(const HostConfig& config,
                                                      const std::string& operationTypeId);

/// The address of `operationTypeId`. Status 1 with the URL, its scheme in lower case; 2 and
/// one error line when none is configured.
[[nodiscard]] lumo_connector::SCUrlResult UrlOf(const HostConfig& config,
                                                const std::string& operationTypeId);

}  // namespace platform_host

#endif
