#include "platform/host/config/BrokerKeys.h"

#include "platform/host/config/ValueChecks.h"

namespace platform_host {
namespace {

constexpr Range kKeepAlive{kLeastKeepAlive, kMostKeepAlive};

using Rule = KeyRule<BrokerConfig>;
using Text = const std::string&;

constexpr std::array<Rule, 9> kRules{{
    {"host", [](Text value, BrokerConfig& broker) { return TakeHost(value, broker.host); }},
    {"port", [](std::int64_t value, BrokerConfig& broker) { return TakePort(value, broker.port); }},
    {"client_id",
     [](Text value, BrokerConfig& broker) { return TakeName(value, broker.clientId); }},
    {"keep_alive_s",
     [](std::int64_t value, BrokerConfig& broker) {
       return TakeSeconds(value, kKeepAlive, broker.keepAlive);
     }},
    {"ca_file", [](Text value, BrokerConfig& broker) { return TakePath(value, broker.caFile); }},
    {"cert_file",
     [](Text value, BrokerConfig& broker) { return TakePath(value, broker.certFile); }},
    {"key_file", [](Text value, BrokerConfig& broker) { return TakePath(value, broker.keyFile); }},
    {"username", [](Text value, BrokerConfig& broker) { return TakeName(value, broker.username); }},
    {"password_file",
     [](Text value, BrokerConfig& broker) { return TakePath(value, broker.passwordFile); }},
}};

}  // namespace

const std::array<KeyRule<BrokerConfig>, 9>& BrokerKeys() {
  return kRules;
}

std::optional<KeyRefusal> CheckBroker(const BrokerConfig& broker) {
  if (broker.host.empty()) return KeyRefusal{"host", "is missing"};
  if (broker.clientId.empty()) return KeyRefusal{"client_id", "is missing"};
  if (broker.certFile.empty() && !broker.keyFile.empty()) {
    return KeyRefusal{"key_file", "needs cert_file"};
  }
  if (!broker.certFile.empty() && broker.keyFile.empty()) {
    return KeyRefusal{"cert_file", "needs key_file"};
  }
  if (!broker.certFile.empty() && broker.caFile.empty()) {
    return KeyRefusal{"cert_file", "needs ca_file"};
  }
  if (!broker.passwordFile.empty() && broker.username.empty()) {
    return KeyRefusal{"password_file", "needs username"};
  }
  return std::nullopt;
}

}  // namespace platform_host
