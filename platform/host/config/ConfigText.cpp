#include "platform/host/config/ConfigText.h"

#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "platform/host/config/KeyDepth.h"

namespace platform_host {
namespace {

enum class Kind { kString, kInteger, kStringList };

/// One key that a table may hold.
struct KeyRule {
  std::string_view table;
  std::string_view key;
  Kind kind;
};

/// Stands for each table inside [service].
constexpr std::string_view kAnyService = "service.*";

constexpr std::array kKeyRules = {
    KeyRule{"logging", "level", Kind::kString},
    KeyRule{"logging", "sinks", Kind::kStringList},
    KeyRule{"trust_store", "directory", Kind::kString},
    KeyRule{"persistency", "directory", Kind::kString},
    KeyRule{"control", "socket", Kind::kString},
    KeyRule{"mqtt", "host", Kind::kString},
    KeyRule{"mqtt", "port", Kind::kInteger},
    KeyRule{"mqtt", "client_id", Kind::kString},
    KeyRule{"mqtt", "keep_alive_s", Kind::kInteger},
    KeyRule{"mqtt", "ca_file", Kind::kString},
    KeyRule{"mqtt", "cert_file", Kind::kString},
    KeyRule{"mqtt", "key_file", Kind::kString},
    KeyRule{"mqtt", "username", Kind::kString},
    KeyRule{"mqtt", "password_file", Kind::kString},
    KeyRule{"limits", "response_bytes", Kind::kInteger},
    KeyRule{"limits", "exchange_s", Kind::kInteger},
    KeyRule{kAnyService, "url", Kind::kString},
    KeyRule{kAnyService, "token_file", Kind::kString},
    KeyRule{kAnyService, "token", Kind::kString},
    KeyRule{kAnyService, "ca_file", Kind::kString},
    KeyRule{kAnyService, "bundle", Kind::kString},
    KeyRule{kAnyService, "cert_file", Kind::kString},
    KeyRule{kAnyService, "key_file", Kind::kString},
};

bool IsSection(std::string_view table) {
  if (table == kAnyService) return false;
  return std::any_of(kKeyRules.begin(), kKeyRules.end(),
                     [table](const KeyRule& rule) { return rule.table == table; });
}

const KeyRule* FindRule(std::string_view table, std::string_view key) {
  const auto* found = std::find_if(
      kKeyRules.begin(), kKeyRules.end(),
      [table, key](const KeyRule& rule) { return rule.table == table && rule.key == key; });
  return found == kKeyRules.end() ? nullptr : found;
}

bool HasKind(const toml::node& node, Kind kind) {
  switch (kind) {
    case Kind::kString:
      return node.is_string();
    case Kind::kInteger:
      return node.is_integer();
    case Kind::kStringList:
      break;
  }
  const auto* list = node.as_array();
  return list != nullptr && std::all_of(list->begin(), list->end(),
                                        [](const toml::node& item) { return item.is_string(); });
}

std::string_view DescriptionOf(Kind kind) {
  switch (kind) {
    case Kind::kString:
      return "must be a string";
    case Kind::kInteger:
      return "must be an integer";
    case Kind::kStringList:
      break;
  }
  return "must be a list of strings";
}

/// An absolute path that the system can open: a NUL byte would end it early.
bool IsUsablePath(std::string_view path) {
  return !path.empty() && path.front() == '/' && path.find('\0') == std::string_view::npos;
}

/// Checks one document and takes its values. Each operation returns the first failure, or none.
class Reader {
 public:
  explicit Reader(const std::string& fileName) : file(fileName) {}

  std::optional<Error> Read(const toml::table& document) {
    for (const auto& [key, node] : document) {
      auto failure = key.str() == "service" ? ReadServices(node) : ReadSection(key, node);
      if (failure) return failure;
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
    if (!IsSection(name)) return At(key.source(), name, "unknown key");
    return ReadTable(name, name, node);
  }

  std::optional<Error> ReadServices(const toml::node& node) {
    const auto* services = node.as_table();
    if (services == nullptr) return At(node.source(), "service", "must be a table");
    for (const auto& [key, service] : *services) {
      auto failure = ReadTable(kAnyService, "service.\"" + std::string(key.str()) + "\"", service);
      if (failure) return failure;
    }
    return std::nullopt;
  }

  std::optional<Error> ReadTable(std::string_view rules, const std::string& name,
                                 const toml::node& node) {
    const auto* table = node.as_table();
    if (table == nullptr) return At(node.source(), name, "must be a table");
    for (const auto& [key, value] : *table) {
      const std::string path = name + "." + std::string(key.str());
      const KeyRule* rule = FindRule(rules, key.str());
      if (rule == nullptr) return At(key.source(), path, "unknown key");
      if (!HasKind(value, rule->kind)) return At(value.source(), path, DescriptionOf(rule->kind));
      if (auto failure = TakeValue(path, value)) return failure;
    }
    return std::nullopt;
  }

  /// Keeps the values that are in use. The kind is checked already.
  std::optional<Error> TakeValue(const std::string& path, const toml::node& value) {
    if (path == "logging.level") return TakeLevel(path, value);
    if (path == "logging.sinks") return TakeSinks(path, *value.as_array());
    if (path == "trust_store.directory") return TakePath(path, value, config.trustStoreDirectory);
    if (path == "persistency.directory") return TakePath(path, value, config.persistencyDirectory);
    return std::nullopt;
  }

  std::optional<Error> TakeLevel(const std::string& path, const toml::node& value) {
    const auto level = LogLevelOf(value.as_string()->get());
    if (!level) {
      return At(value.source(), path, "must be verbose, debug, info, warning or error");
    }
    config.logLevel = *level;
    return std::nullopt;
  }

  std::optional<Error> TakeSinks(const std::string& path, const toml::array& values) {
    config.logToStandardError = false;
    for (const auto& value : values) {
      if (auto failure = TakeSink(path, value)) return failure;
    }
    return std::nullopt;
  }

  std::optional<Error> TakeSink(const std::string& path, const toml::node& value) {
    constexpr std::string_view kFile = "file:";
    const std::string& sink = value.as_string()->get();
    if (sink == "stderr") {
      config.logToStandardError = true;
      return std::nullopt;
    }
    if (sink == "dlt") return At(value.source(), path, "\"dlt\" is not built in");
    if (sink.compare(0, kFile.size(), kFile) != 0) {
      return At(value.source(), path, "each must be \"stderr\" or \"file:\" and a path");
    }
    config.logFiles.emplace_back();
    return TakePath(path, value, config.logFiles.back(), kFile.size());
  }

  std::optional<Error> TakePath(const std::string& path, const toml::node& value,
                                std::string& target, std::size_t start = 0) const {
    std::string candidate = value.as_string()->get().substr(start);
    if (!IsUsablePath(candidate)) return At(value.source(), path, "must be an absolute path");
    target = std::move(candidate);
    return std::nullopt;
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
