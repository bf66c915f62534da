/// A configuration of the host platform for one test, with directories of its own. One at a time,
/// on the test's thread, while no other thread asks for the environment.
#ifndef TESTS_SUPPORT_HOSTCONFIGURATION_H
#define TESTS_SUPPORT_HOSTCONFIGURATION_H

#include <cstdlib>
#include <optional>
#include <string>

#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace tests {

/// While it lives, the host libraries of this process find this configuration. Afterwards they find
/// what TSUC_HOST_CONFIG named before.
class HostConfiguration {
 public:
  /// A file that names Persistency() and TrustStore(), which do not exist yet.
  HostConfiguration() {
    Begin("[persistency]\ndirectory = \"" + Persistency() + "\"\n[trust_store]\ndirectory = \"" +
          TrustStore() + "\"\n");
  }

  /// A file that holds `text`.
  explicit HostConfiguration(const std::string& text) { Begin(text); }

  ~HostConfiguration() {
    if (former) {
      ::setenv(kVariable, former->c_str(), 1);
    } else {
      ::unsetenv(kVariable);
    }
  }
  HostConfiguration(const HostConfiguration&) = delete;
  HostConfiguration& operator=(const HostConfiguration&) = delete;

  /// The directory that holds the file and, once something is kept, the two below.
  [[nodiscard]] const std::string& Directory() const { return directory.Path(); }
  [[nodiscard]] std::string File() const { return Directory() + "/host.toml"; }
  [[nodiscard]] std::string Persistency() const { return Directory() + "/persistency"; }
  [[nodiscard]] std::string TrustStore() const { return Directory() + "/trust-store"; }

 private:
  static constexpr const char* kVariable = "TSUC_HOST_CONFIG";

  void Begin(const std::string& text) {
    WriteText(File(), text);
    if (const char* value = std::getenv(kVariable)) former = value;
    ::setenv(kVariable, File().c_str(), 1);
  }

  const TemporaryDirectory directory;
  std::optional<std::string> former;
};

}  // namespace tests

#endif
