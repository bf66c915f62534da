/// The keys of a [service."OPERATION TYPE ID"] table. For ConfigText. Pure: any thread.
#ifndef PLATFORM_HOST_CONFIG_SERVICEKEYS_H
#define PLATFORM_HOST_CONFIG_SERVICEKEYS_H

#include <array>
#include <optional>
#include <string>

#include "platform/host/config/HostConfig.h"
#include "platform/host/config/KeyRule.h"

namespace platform_host {

/// Each key that the table may hold. Valid as long as the process.
[[nodiscard]] const std::array<KeyRule<ServiceConfig>, 7>& ServiceKeys();

/// The first rule between keys that `service` breaks: one source of the token, one of the
/// certificates that the server is verified against and that one for certain with https, a client
/// certificate with its key.
[[nodiscard]] std::optional<KeyRefusal> CheckService(const ServiceConfig& service);

/// Takes an http or https URL whose host is a name or an IPv4 address, with or without a port and a
/// path. The scheme is kept in lower case, as those who read the URL later may compare it so.
[[nodiscard]] Refusal TakeUrl(const std::string& value, std::string& target);

}  // namespace platform_host

#endif
