#include "platform/host/config/ConfigText.h"

#include <toml++/toml.h>

#include <algorithm>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "platform/host/config/BrokerKeys.h"
#include "platform/host/config/HostKeys.h"
#include "platform/host/config/KeyDepth.h"
#include "platform/host/config/KeyRule.h"
#include "platform/host/config/ServiceKeys.h"

namespace platform_host {
namespace {

constexpr const char* kNoTable = "must be a table";

/// A value's kind, and what it is called where another stands in its place.
template <typename Value>
constexpr const char* kWrongKind = nullptr;
template <>
constexpr const char* kWrongKind<std::string> = "must be a string";
template <>
constexpr const char* kWrongKind<std::int64_t> = "must be an integer";
template <>
constexpr const char* kWrongKind<std::vector<std::string>> = "must be a list of strings";

/// The value of `node`; none when it is of another kind. No conversions: 1.0 is no integer.
template <typename Value>
std::optional<Value> ValueOf(const toml::node& node) {
  return node.value_exact<Value>();
}

template <>
std::optional<std::vector<std::string>> ValueOf(const toml::node& node) {
  const auto* list = node.as_array();
  if (list == nullptr) return std::nullopt;
  std::vector<std::string> texts;
  for (const auto& item : *list) {
    if (!item.is_string()) return std::nullopt;
    texts.push_back(item.as_string()->get());
  }
  return texts;
}

/// Hands the value of `node` to `take`, a row's operation, which keeps it in `target`.
template <typename Target, typename Value>
Refusal Take(Refusal (*take)(Value, Target&), const toml::node& node, Target& target) {
  using Kind = std::decay_t<Value>;
  const auto value = ValueOf<Kind>(node);
  return value ? take(*value, target) : Refusal(kWrongKind<Kind>);
}

/// Checks one document and takes its values. Each operation returns the first failure, or none.
class Reader {
 public:
  explicit Reader(const std::string& fileName) : file(fileName) {}

  std::optional<Error> Read(const toml::table& document) {
    for (const auto& [key, node] : document) {
      if (auto failure = ReadSection(key, node)) return failure;
    }
    return std::nullopt;
  }

  [[nodiscard]] HostConfig Take() { return std::move(config); }

 private:
  Error At(const toml::source_region& source, const std::string& key,
           std::string_view reason) const {
    return Error(file + ":" + std::to_string(source.begin.line) + ": " + key + ": " +
                 std::string(reason));
  }

  std::optional<Error> ReadSection(const toml::key& key, const toml::node& node) {
    const std::string name(key.str());
    if (name == "service") return ReadServices(node);
    if (name == "mqtt") return ReadBroker(name, node);
    const auto* keys = HostKeys(name);
    if (keys == nullptr) return At(key.source(), name, "unknown key");
    return ReadTable(*keys, name, node, config);
  }

  std::optional<Error> ReadBroker(const std::string& name, const toml::node& node) {
    BrokerConfig& broker = config.broker.emplace();
    if (auto failure = ReadTable(BrokerKeys(), name, node, broker)) return failure;
    return Whole(CheckBroker(broker), name, node);
  }

  std::optional<Error> ReadServices(const toml::node& node) {
    const auto* services = node.as_table();
    if (services == nullptr) return At(node.source(), "service", kNoTable);
    for (const auto& [key, service] : *services) {
      if (auto failure = ReadService(std::string(key.str()), service)) return failure;
    }
    return std::nullopt;
  }

  std::optional<Error> ReadService(const std::string& id, const toml::node& node) {
    const std::string name = "service.\"" + id + "\"";
    ServiceConfig& service = config.services[id];
    if (auto failure = ReadTable(ServiceKeys(), name, node, service)) return failure;
    return Whole(CheckService(service), name, node);
  }

  template <typename Rules, typename Target>
  std::optional<Error> ReadTable(const Rules& rules, const std::string& name,
                                 const toml::node& node, Target& target) {
    const auto* table = node.as_table();
    if (table == nullptr) return At(node.source(), name, kNoTable);
    for (const auto& [key, value] : *table) {
      const std::string path = name + "." + std::string(key.str());
      const auto rule = std::find_if(rules.begin(), rules.end(), [&name = key](const auto& one) {
        return one.key == name.str();
      });
      if (rule == rules.end()) return At(key.source(), path, "unknown key");
      const auto refusal = std::visit(
          [&node = value, &target](auto take) { return platform_host::Take(take, node, target); },
          rule->take);
      if (refusal) return At(value.source(), path, *refusal);
    }
    return std::nullopt;
  }

  /// The failure of a table as a whole, told at the key to put right, or at the table where that
  /// key is missing.
  std::optional<Error> Whole(const std::optional<KeyRefusal>& refusal, const std::string& name,
                             const toml::node& table) const {
    if (!refusal) return std::nullopt;
    const auto* present = table.as_table()->get(refusal->key);
    const auto& source = present == nullptr ? table.source() : present->source();
    return At(source, name + "." + std::string(refusal->key), refusal->reason);
  }

  const std::string& file;
  HostConfig config;
};

}  // namespace

Result<HostConfig> ParseConfigText(std::string_view text, const std::string& fileName) {
  if (const auto line = FindDeepKey(text)) {
    return Error(fileName + ":" + std::to_string(*line) + ": more than " +
                 std::to_string(kMaxDots) + " dots in a key");
  }
  try {
    Reader reader(fileName);
    if (const auto failure = reader.Read(toml::parse(text))) return *failure;
    return reader.Take();
  } catch (const toml::parse_error& error) {
    return Error(fileName + ":" + std::to_string(error.source().begin.line) + ": " +
                 std::string(error.description()));
  }
}

}  // namespace platform_host
