#include "platform/host/config/HostKeys.h"

#include <map>
#include <string>

#include "platform/host/config/ValueChecks.h"

namespace platform_host {
namespace {

constexpr Range kResponseBytes{1, kMostResponseBytes};
constexpr Range kExchangeSeconds{1, kMostExchangeSeconds};

using Text = const std::string&;

Refusal TakeLevel(Text value, HostConfig& config) {
  const auto level = LogLevelOf(value);
  if (!level) return "must be verbose, debug, info, warning or error";
  config.logLevel = *level;
  return std::nullopt;
}

Refusal TakeSink(Text sink, HostConfig& config) {
  constexpr std::string_view kFile = "file:";
  if (sink == "stderr") {
    config.logToStandardError = true;
    return std::nullopt;
  }
  if (sink == "dlt") {
    config.logToDlt = true;
    return std::nullopt;
  }
  if (sink.compare(0, kFile.size(), kFile) != 0) {
    return "each must be \"stderr\", \"dlt\", or \"file:\" and a path";
  }
  config.logFiles.emplace_back();
  return TakePath(std::string_view(sink).substr(kFile.size()), config.logFiles.back());
}

Refusal TakeSinks(const std::vector<std::string>& sinks, HostConfig& config) {
  config.logToStandardError = false;
  for (const auto& sink : sinks) {
    if (auto refusal = TakeSink(sink, config)) return refusal;
  }
  return std::nullopt;
}

Refusal TakeControlSocket(Text path, HostConfig& config) {
  if (path.size() > kMaxSocketPathBytes) {
    return "must have at most " + std::to_string(kMaxSocketPathBytes) + " bytes";
  }
  return TakePath(path, config.controlSocket);
}

Refusal TakeResponseBytes(std::int64_t value, HostConfig& config) {
  if (auto refusal = CheckRange(value, kResponseBytes)) return refusal;
  config.limits.responseBytes = static_cast<std::size_t>(value);
  return std::nullopt;
}

using Tables = std::map<std::string_view, std::vector<KeyRule<HostConfig>>>;

Tables MakeTables() {
  return {
      {"logging", {{"level", TakeLevel}, {"sinks", TakeSinks}}},
      {"trust_store",
       {{"directory",
         [](Text value, HostConfig& config) {
           return TakePath(value, config.trustStoreDirectory);
         }}}},
      {"persistency",
       {{"directory",
         [](Text value, HostConfig& config) {
           return TakePath(value, config.persistencyDirectory);
         }}}},
      {"control", {{"socket", TakeControlSocket}}},
      {"limits",
       {{"response_bytes", TakeResponseBytes},
        {"exchange_s",
         [](std::int64_t value, HostConfig& config) {
           return TakeSeconds(value, kExchangeSeconds, config.limits.duration);
         }}}},
  };
}

}  // namespace

const std::vector<KeyRule<HostConfig>>* HostKeys(std::string_view table) {
  static const auto* const tables = new Tables(MakeTables());
  const auto found = tables->find(table);
  return found == tables->end() ? nullptr : &found->second;
}

}  // namespace platform_host
