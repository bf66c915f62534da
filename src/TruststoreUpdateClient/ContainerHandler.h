/// Verifies a container and installs it. Created by the update handler, which calls it on the
/// thread of the update.
///
/// Threads as ContainerHandlerIf tells. The stop and terminate flags are atomic; the installing id
/// has its own lock.
#ifndef TRUSTSTOREUPDATECLIENT_CONTAINERHANDLER_H
#define TRUSTSTOREUPDATECLIENT_CONTAINERHANDLER_H

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/CertificateBundles.h"
#include "TruststoreUpdateClient/ContainerHandlerIf.h"
#include "TruststoreUpdateClient/ContainerParsing.h"
#include "TruststoreUpdateClient/DevelopmentTools.h"
#include "TruststoreUpdateClient/HSMIf.h"
#include "lumo_connector/LumoConnector.h"
#include "support/Mutex.h"

namespace truststore_update_client {

/// A container's timestamp may lie this far ahead of the unit's clock.
inline constexpr std::uint32_t kMaxTimestampAheadSeconds = 86400;

/// Runs the checks in their fixed order. The trust stores change only in InstallCertificateBundles,
/// after everything in the container has been decoded; the records change only after all bundles
/// are installed.
class ContainerHandler : public ContainerHandlerIf, public ContainerParsing {
 public:
  using Clock = std::function<std::chrono::system_clock::time_point()>;

  /// Over the unit's trust store.
  explicit ContainerHandler(const std::shared_ptr<lumo_connector::LumoConnector>& connector);

  /// Over another facade, for tests and tools. A null `facade` makes every operation fail.
  ContainerHandler(std::shared_ptr<HSMIf> facade, development_tools::DevelopmentTools switches,
                   Clock clock = std::chrono::system_clock::now);

  [[nodiscard]] ResponseStatus VerifyAndInstallContainer(const std::string& container) override;
  [[nodiscard]] ResponseStatus RemoveAllTrustStores() const override;
  void GetInstallingContainerId(std::string& id) const override EXCLUDES(idMutex);
  void GetInstalledContainerId(std::string& id) const override;
  [[nodiscard]] std::uint32_t GetInstalledContainerTimestamp() const override;
  void StopProcessing(bool stop) override;
  void TerminateProcessing() override;
  void ConvertEpochTimestampToDatetime(std::uint32_t timestamp, std::string& text) const override;
  void DisableUpdateRetries(bool disable) const override;

 private:
  // The switches are read before the facade is made.
  ContainerHandler(development_tools::DevelopmentTools switches,
                   const std::shared_ptr<lumo_connector::LumoConnector>& connector);

  using Certificates = std::vector<Botan::X509_Certificate>;

  // What the header of one container says.
  struct ParsedContainer {
    std::string_view signingInput;
    std::string signature;
    std::string id;
    std::uint32_t timestamp = 0;
    Certificates chain;
  };

  [[nodiscard]] ResponseStatus VerifyAndInstallOrThrow(const std::string& container);
  [[nodiscard]] ResponseStatus ParseContainer(const std::string& container,
                                              ParsedContainer& parsed);
  [[nodiscard]] ResponseStatus VerifyContainer(const Certificates& chain, std::uint32_t timestamp,
                                               std::string_view signingInput,
                                               std::string_view signature) const;
  [[nodiscard]] ResponseStatus VerifyCommonName(const Certificates& chain) const;
  [[nodiscard]] ResponseStatus CheckTimestampFuture(std::uint32_t timestamp) const;
  [[nodiscard]] ResponseStatus CompareTimestamps(std::uint32_t installed,
                                                 std::uint32_t offered) const;
  [[nodiscard]] ResponseStatus VerifySigner(const Certificates& chain) const;
  [[nodiscard]] ResponseStatus VerifySignature(const Certificates& chain,
                                               std::string_view signingInput,
                                               std::string_view signature) const;
  [[nodiscard]] ResponseStatus InstallContainer(const std::string& container,
                                                const std::string& containerId,
                                                std::uint32_t timestamp) const;
  [[nodiscard]] ResponseStatus ValidateAndInstallCertificateBundles(
      const std::string& container) const;
  [[nodiscard]] ResponseStatus DecodePayload(const std::string& container,
                                             CertificateBundles& bundles) const;
  [[nodiscard]] ResponseStatus InstallCertificateBundles(const CertificateBundles& bundles) const;
  [[nodiscard]] bool IsOn(const char* developmentSwitch) const;
  [[nodiscard]] std::string Formatted(std::uint32_t timestamp) const;
  void TellFacadeOfRetries() const;
  [[nodiscard]] bool RetriesAreDisabled() const;
  void SetInstallingContainerId(const std::string& id) EXCLUDES(idMutex);

  const std::shared_ptr<HSMIf> hsm;
  mutable support::Mutex idMutex;
  std::string installingContainerId GUARDED_BY(idMutex);
  std::atomic<bool> stopped{false};
  std::atomic<bool> terminated{false};
  mutable std::atomic<bool> retriesDisabled{false};  // as DisableUpdateRetries was told last
  const development_tools::DevelopmentTools developmentTools;
  const Clock now;
};

}  // namespace truststore_update_client

#endif
