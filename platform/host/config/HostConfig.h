/// The one configuration file of the host platform (docs/host-platform.md describes its keys). Its
/// libraries ask for it when they need it; the client does not know it.
#ifndef PLATFORM_HOST_CONFIG_HOSTCONFIG_H
#define PLATFORM_HOST_CONFIG_HOSTCONFIG_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/config/LogLevel.h"
#include "platform/host/config/Result.h"

namespace platform_host {

/// The MQTT broker. Plain values; a path is empty or absolute.
struct BrokerConfig {
  std::string host;
  std::uint16_t port = 1883;
  std::string clientId;
  std::chrono::seconds keepAlive{60};
  std::string caFile;  ///< not empty: TLS, the broker verified against these certificates
  std::string certFile;
  std::string keyFile;
  std::string username;
  std::string passwordFile;
};

/// Where one operation of the backend is, and by what it is trusted. Plain values; a path is empty
/// or absolute.
struct ServiceConfig {
  std::string url;  ///< empty: not configured
  std::string tokenFile;
  std::optional<std::string> token;  ///< never beside tokenFile
  std::string caFile;                ///< for https: this or a bundle's name, never both
  std::string bundle;
  std::string certFile;  ///< a client certificate; never without its key
  std::string keyFile;

  /// True when the connector speaks TLS for this operation. The scheme's case does not matter (RFC
  /// 3986 section 3.1).
  [[nodiscard]] bool IsTls() const;
};

/// Guard rails of every exchange with a peer.
struct ExchangeLimits {
  std::size_t responseBytes = 16777216;
  std::chrono::seconds duration{120};
};

/// The settings in use; a new object holds the defaults. Plain values.
struct HostConfig {
  /// Largest configuration file that is read.
  static constexpr std::size_t kSizeLimit = 65536;

  /// Where the file is when the environment names none.
  static constexpr const char* kDefaultPath = "/etc/truststore-update-client/host-platform.toml";

  /// Names the file instead of kDefaultPath unless it is empty.
  static constexpr const char* kPathVariable = "TSUC_HOST_CONFIG";

  LogLevel logLevel = LogLevel::kInfo;
  bool logToStandardError = true;
  bool logToDlt = false;
  std::vector<std::string> logFiles;  ///< absolute paths
  std::string trustStoreDirectory = "/var/lib/truststore-update-client/trust-store";  ///< absolute
  std::string persistencyDirectory = "/var/lib/truststore-update-client/persistency";
  std::string controlSocket = "/run/truststore-update-client/control.sock";  ///< absolute
  std::optional<BrokerConfig> broker;                                        ///< none: no topics
  std::map<std::string, ServiceConfig> services;  ///< by operation type id
  ExchangeLimits limits;
  std::string missingFile;  ///< the path of Load when nothing was there; empty: it was read

  /// The file that keeps two processes from working on trust store and records at once.
  [[nodiscard]] std::string WorkLockFile() const { return persistencyDirectory + "/work.lock"; }

  /// Reads settings from `text`; what it leaves out keeps its default. Fails with "FILE:LINE: KEY:
  /// reason" for a syntax error (which has no key), an unknown key or table, a wrong type, and a
  /// value that cannot be used, where FILE is `fileName`; with "FILE: reason" for a text above
  /// kSizeLimit. Touches no file.
  static Result<HostConfig> Parse(std::string_view text, const std::string& fileName);

  /// Reads settings from the file at `path`. No such file: the defaults, and missingFile. Fails as
  /// Parse does, and with "PATH: reason" when the file is there and cannot be read. Blocks for the
  /// reading only.
  static Result<HostConfig> Load(const std::string& path);

  /// The configuration of this process: Load of the path that the environment names, read at the
  /// first call for that path and then kept. The reference stays valid until the process has ended.
  /// Any thread.
  static const Result<HostConfig>& OfProcess();
};

}  // namespace platform_host

#endif
