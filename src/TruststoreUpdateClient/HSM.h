/// The trust store facade over the unit's own trust store and persistent storage. One exists per
/// container handler.
///
/// StopRetryTimer and DisableUpdateRetries: any thread. Everything else: the thread that verifies
/// and installs.
#ifndef TRUSTSTOREUPDATECLIENT_HSM_H
#define TRUSTSTOREUPDATECLIENT_HSM_H

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/Constants.h"
#include "TruststoreUpdateClient/DevelopmentTools.h"
#include "TruststoreUpdateClient/HSMIf.h"
#include "TruststoreUpdateClient/OcspConnectionIf.h"
#include "TruststoreUpdateClient/PersistentFileStorage.h"
#include "TruststoreUpdateClient/Trigger.h"
#include "lumo_connector/LumoConnector.h"
#include "ostra/tee/TrustStoreUpdateAPI.h"

namespace truststore_update_client {

/// The trust store's bundle that holds the roots of the containers' signers.
inline const std::string ZORA_ROOT_CERTIFICATE_ID = "ZORA";

/// More different certificates than this with one subject are refused before a path is looked for:
/// each further one multiplies the paths, and with eight the library searches for half a minute.
/// Two is what a cross certificate needs.
inline constexpr std::size_t kMaxCertificatesOfOneSubject = 2;

/// More subjects than this with more than one certificate are refused likewise: each doubles the
/// paths, and all of their signatures may verify when somebody below the root has made them. Seven
/// with RSA keys of 8,192 bits take the library six seconds.
inline constexpr std::size_t kMaxSharedSubjects = 3;

/// Between two attempts to ask about one certificate.
inline constexpr std::chrono::seconds kOcspRetryInterval{30};

/// How long a tester has to break the unit's way to the backend.
inline constexpr std::chrono::seconds kTestabilityPause{5};

/// Records live in small files, mirrored into persistent storage: that copy counts, the file is
/// only its last state.
class HSM : public HSMIf {
 public:
  /// What an HSM stands on.
  struct Collaborators {
    std::shared_ptr<ostra::tee::TrustStoreUpdateAPI> trustStore;
    PersistentFileStorage storage;
    std::string containerIdFile = TRUSTSTORE_HEADER_CONTAINER_ID_FILENAME;
    std::string timestampFile = TRUSTSTORE_HEADER_TIMESTAMP_FILENAME;
    std::function<std::chrono::system_clock::time_point()> now = std::chrono::system_clock::now;

    /// Who asks about revocation, and where. Without them no certificate counts as good.
    std::shared_ptr<OcspConnectionIf> ocspConnection = nullptr;
    std::function<lumo_connector::SCUrlResult(const std::string& operationTypeId)> invocationUrl =
        nullptr;

    std::optional<development_tools::DevelopmentTools> switches = std::nullopt;  ///< none: all off
    std::chrono::seconds ocspRetryInterval = kOcspRetryInterval;
    std::chrono::milliseconds testabilityPause = kTestabilityPause;
  };

  /// Over the unit's trust store and persistent storage, with revocation checks over `connector`.
  explicit HSM(const std::shared_ptr<lumo_connector::LumoConnector>& connector);

  /// Over other collaborators, for tests and tools. Clears what an installation that lost power
  /// left in the records.
  explicit HSM(Collaborators collaborators);

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

  /// Asks about each certificate of `chain`, from the one nearest to the root to the leaf, until
  /// one fails; about one that could not be asked for again and again. Returns 0 or 1.
  [[nodiscard]] int X5COcspValidation(const std::vector<Botan::X509_Certificate>& chain) override;
  void DisableUpdateRetries(bool disable) override;

  /// Waits until `seconds` have passed on the steady clock or StopRetryTimer is called; a call made
  /// while nobody waits ends the next wait at once.
  void WaitForRetry(int seconds);

  /// Ends the wait under way, or the next one.
  void StopRetryTimer();

  /// True when every certificate of `chain` was issued by the one after it, and the last by `root`.
  [[nodiscard]] static bool CheckCertificateChainOrder(
      const Botan::X509_Certificate& root, const std::vector<Botan::X509_Certificate>& chain);

  /// Splits a PEM text into single certificates, each with the character after its end marker. Text
  /// after the last marker is dropped.
  static void SplitCertificate(const std::string& pem, std::vector<std::string>& certificates);

 private:
  [[nodiscard]] bool GetZoraRootCertificates(std::vector<Botan::X509_Certificate>& roots) const;
  [[nodiscard]] static std::vector<Botan::X509_Certificate> DecodeRoots(const std::string& pem);
  [[nodiscard]] bool ValidatePath(const std::vector<Botan::X509_Certificate>& chain) const;
  [[nodiscard]] bool LeadsToRoot(const std::vector<Botan::X509_Certificate>& chain,
                                 const Botan::X509_Certificate& root) const;

  // One certificate of a chain and how to ask about it. `number` counts the checks from 1.
  struct RevocationCheck {
    std::size_t number;
    const Botan::X509_Certificate& certificate;
    const Botan::X509_Certificate& issuer;
    const std::string& operationTypeId;
  };

  [[nodiscard]] bool CheckRevocationOfAll(const std::vector<Botan::X509_Certificate>& chain);
  [[nodiscard]] std::optional<Botan::X509_Certificate> RootThatIssued(
      const Botan::X509_Certificate& certificate) const;
  [[nodiscard]] int CheckUntilAnswered(const RevocationCheck& check);
  [[nodiscard]] int CheckOnce(const RevocationCheck& check, const std::string& url);
  [[nodiscard]] std::string OcspUrl(const std::string& operationTypeId) const;
  void PauseForTester(std::size_t check, int pass);
  [[nodiscard]] bool StoreRecord(const std::string& text, const std::string& file,
                                 const std::string& key, std::string_view failureLine);
  [[nodiscard]] bool IsRecorded(const std::string& text, const std::string& key) const;
  [[nodiscard]] std::uint32_t TimestampOfRecord();
  void DropRecord(const std::string& key);
  void ClearRecordOfUnfinishedInstallation();

  const std::shared_ptr<ostra::tee::TrustStoreUpdateAPI> trustStoreApi;
  const std::shared_ptr<OcspConnectionIf> ocspConnection;
  PersistentFileStorage fileStorage;
  const bool connectionRetryTestMode;
  Trigger retryTimer;
  std::atomic<bool> retriesDisabled{false};  // what DisableUpdateRetries was told last
  const std::string containerIdFile;
  const std::string timestampFile;
  const std::function<std::chrono::system_clock::time_point()> now;
  const std::function<lumo_connector::SCUrlResult(const std::string&)> invocationUrl;
  const std::chrono::seconds ocspRetryInterval;
  const std::chrono::milliseconds testabilityPause;
};

}  // namespace truststore_update_client

#endif
