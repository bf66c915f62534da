/// The keys of [mqtt]. For ConfigText. Pure: any thread.
#ifndef PLATFORM_HOST_CONFIG_BROKERKEYS_H
#define PLATFORM_HOST_CONFIG_BROKERKEYS_H

#include <array>
#include <optional>

#include "platform/host/config/HostConfig.h"
#include "platform/host/config/KeyRule.h"

namespace platform_host {

/// Seconds between two signs of life: what the MQTT library takes.
inline constexpr std::int64_t kLeastKeepAlive = 5;
inline constexpr std::int64_t kMostKeepAlive = 65535;

/// Each key that [mqtt] may hold. Valid as long as the process.
[[nodiscard]] const std::array<KeyRule<BrokerConfig>, 9>& BrokerKeys();

/// The first rule between keys that `broker` breaks: a broker has a host and a client id, a client
/// certificate has its key, TLS is never unverified, a password belongs to a name.
[[nodiscard]] std::optional<KeyRefusal> CheckBroker(const BrokerConfig& broker);

}  // namespace platform_host

#endif
