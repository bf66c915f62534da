/// The trust store of a unit that does not exist: roots, records and revocation answers (or who is
/// asked for them) come from the command line, and an installation changes nothing. The path,
/// signature and revocation checks are the client's own.
#ifndef TOOLS_TSC_VERIFICATIONFACADE_H
#define TOOLS_TSC_VERIFICATIONFACADE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/HSM.h"
#include "platform/host/config/HostConfig.h"

namespace tsc {

/// What the unit is told about revocation.
enum class OcspAnswer { kNone, kGood, kRevoked };

/// What is known of the unit.
struct UnitState {
  std::string rootsPem;  ///< the bundle of the signers' roots
  std::string installedId;
  std::uint32_t installedTimestamp = 0;  ///< 0: nothing installed
  OcspAnswer ocsp = OcspAnswer::kNone;
  std::function<std::chrono::system_clock::time_point()> now = std::chrono::system_clock::now;
  std::optional<platform_host::ServiceConfig> responder;  ///< asked in place of `ocsp` if any
};

/// One thread, but for DisableUpdateRetries, which any may call.
class VerificationFacade : public truststore_update_client::HSMIf {
 public:
  explicit VerificationFacade(UnitState unitState);

  [[nodiscard]] bool GetInstalledContainerId(std::string& id) override;
  [[nodiscard]] bool SetInstalledContainerId(const std::string& id) override;
  [[nodiscard]] bool SetInstalledContainerTimestamp(std::uint32_t timestamp) override;
  [[nodiscard]] std::uint32_t GetInstalledContainerTimestamp() override;
  [[nodiscard]] bool RemoveAllTrustStores() override;
  [[nodiscard]] bool InstallCertificateBundle(const std::string& name,
                                              const std::string& pem) override;
  [[nodiscard]] bool Signature_Verify(const Botan::X509_Certificate& certificate,
                                      std::string_view data, std::string_view signature) override;
  [[nodiscard]] bool X5CPathValidation(
      const std::vector<Botan::X509_Certificate>& chain) const override;

  /// The responder's answers to the client's own check, which asks once: where a unit would go on
  /// asking one that it cannot reach, this fails. Without a responder the answer of the state;
  /// kNone fails, as a unit without a connection does. Blocks for one exchange a certificate.
  [[nodiscard]] int X5COcspValidation(const std::vector<Botan::X509_Certificate>& chain) override;

  /// Nothing here ever waits for another attempt.
  void DisableUpdateRetries(bool disable) override;

 private:
  UnitState state;
  truststore_update_client::HSM checks;
};

}  // namespace tsc

#endif
