#include "TruststoreUpdateClient/ContainerHandler.h"

#include <botan/pkix_types.h>

#include <exception>
#include <utility>

#include "TruststoreUpdateClient/CommonNamePattern.h"
#include "TruststoreUpdateClient/HSM.h"
#include "csc_logging/CSCLogging.h"

namespace truststore_update_client {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

namespace {

std::shared_ptr<HSMIf> CreateHsm(const std::shared_ptr<lumo_connector::LumoConnector>& connector) {
  try {
    return std::make_shared<HSM>(connector);
  } catch (const std::exception&) {
    return nullptr;  // logged by the constructor of the handler
  }
}

}  // namespace

ContainerHandler::ContainerHandler(const std::shared_ptr<lumo_connector::LumoConnector>& connector)
    : ContainerHandler(development_tools::DevelopmentTools(), connector) {}

ContainerHandler::ContainerHandler(development_tools::DevelopmentTools switches,
                                   const std::shared_ptr<lumo_connector::LumoConnector>& connector)
    : ContainerHandler(CreateHsm(connector), std::move(switches)) {}

ContainerHandler::ContainerHandler(std::shared_ptr<HSMIf> facade,
                                   development_tools::DevelopmentTools switches, Clock clock)
    : hsm(std::move(facade)), developmentTools(std::move(switches)), now(std::move(clock)) {
  if (!hsm) CSCLogging::LogError("Cannot create Hsm!");
}

ResponseStatus ContainerHandler::VerifyAndInstallContainer(const std::string& container) {
  try {
    SetInstallingContainerId("");
    return VerifyAndInstallOrThrow(container);
  } catch (const std::exception& exception) {
    CSCLogging::LogError(CSCLogEntry()
                         << "ERROR: Container processing failed! " << exception.what());
    return STATUS_CODE_UNEXPECTED_ERROR;
  }
}

ResponseStatus ContainerHandler::VerifyAndInstallOrThrow(const std::string& container) {
  if (!hsm) {
    CSCLogging::LogError("ERROR: There is no Hsm to verify the container with!");
    return STATUS_CODE_UNEXPECTED_ERROR;
  }
  ParsedContainer parsed;
  ResponseStatus status = ParseContainer(container, parsed);
  if (status != kInstalled) return status;
  status = VerifyContainer(parsed.chain, parsed.timestamp, parsed.signingInput, parsed.signature);
  if (status != kInstalled && !IsOn("no-check-all")) return status;
  return InstallContainer(container, parsed.id, parsed.timestamp);
}

ResponseStatus ContainerHandler::ParseContainer(const std::string& container,
                                                ParsedContainer& parsed) {
  json_parser::KeyValuePairs header;
  if (ContainerSplitter(container, parsed.signingInput, parsed.signature, header) != 0 ||
      ParseContainerEpochTimestamp(header, parsed.timestamp) != 0 || ParseAlgorithm(header) != 0) {
    return kNotParsed;
  }
  const int idResult = ParseContainerId(header, parsed.id);
  SetInstallingContainerId(parsed.id);
  std::string x5c;
  if (idResult != 0 || GetValueForKey(header, "x5c", x5c) != 0 ||
      ParseX5CCertificates(x5c, parsed.chain) != 0) {
    return kNotParsed;
  }
  return kInstalled;
}

ResponseStatus ContainerHandler::VerifyContainer(const Certificates& chain, std::uint32_t timestamp,
                                                 std::string_view signingInput,
                                                 std::string_view signature) const {
  ResponseStatus status = VerifyCommonName(chain);
  if (status != kInstalled && !IsOn("no-check-signcertcn")) return status;

  status = CheckTimestampFuture(timestamp);
  if (status != kInstalled && !IsOn("no-check-timestampfuture")) return status;

  status = CompareTimestamps(hsm->GetInstalledContainerTimestamp(), timestamp);
  if (status != kInstalled && !IsOn("no-check-replayprotection")) return status;

  status = VerifySigner(chain);
  if (status != kInstalled) return status;

  status = VerifySignature(chain, signingInput, signature);
  return IsOn("no-check-tscsignature") ? kInstalled : status;
}

ResponseStatus ContainerHandler::VerifyCommonName(const Certificates& chain) const {
  std::string commonName;
  for (const std::string& value : chain.at(0).subject_dn().get_attribute("CN")) {
    commonName += value;
  }
  if (MatchesPrefixPattern(commonName, TARGET_COMMON_NAME)) {
    CSCLogging::LogInfo("Verifying the Common Name passed.");
    return kInstalled;
  }
  CSCLogging::LogError("ERROR: Certificate CommonName '" + commonName + "' is not valid! ");
  return kCommonNameWrong;
}

ResponseStatus ContainerHandler::CheckTimestampFuture(std::uint32_t timestamp) const {
  const auto limit = std::chrono::duration_cast<std::chrono::seconds>(now().time_since_epoch()) +
                     std::chrono::seconds(kMaxTimestampAheadSeconds);
  if (timestamp > static_cast<std::uint32_t>(limit.count())) {
    CSCLogging::LogError("ERROR: Container timestamp more than 24h in future: " +
                         Formatted(timestamp));
    return kTimestampInFuture;
  }
  CSCLogging::LogInfo("Checking the Timestamp passed.");
  return kInstalled;
}

ResponseStatus ContainerHandler::CompareTimestamps(std::uint32_t installed,
                                                   std::uint32_t offered) const {
  CSCLogging::LogInfo("Timestamp in the installed container: " + Formatted(installed));
  CSCLogging::LogInfo("Timestamp in the new container: " + Formatted(offered));
  if (installed == offered) {
    CSCLogging::LogInfo(
        "Timestamps in the installed container and in the new container are the same.");
    return kAlreadyInstalled;
  }
  if (installed > offered) {
    CSCLogging::LogError(
        "ERROR: Timestamp in the new container is older than the timestamp in the installed "
        "container!");
    return kOlderThanInstalled;
  }
  return kInstalled;
}

ResponseStatus ContainerHandler::VerifySigner(const Certificates& chain) const {
  if (hsm->X5CPathValidation(chain) && !IsOn("no-check-signcertpath")) return kPathNotValid;
  if (IsOn("OcspDisable")) return kInstalled;
  if (hsm->X5COcspValidation(chain) != 0 && !IsOn("no-check-ocsp")) return kRevokedOrSignatureWrong;
  return kInstalled;
}

ResponseStatus ContainerHandler::VerifySignature(const Certificates& chain,
                                                 std::string_view signingInput,
                                                 std::string_view signature) const {
  if (hsm->Signature_Verify(chain.at(0), signingInput, signature)) {
    CSCLogging::LogError("ERROR: Container signature verification failed!");
    return kRevokedOrSignatureWrong;
  }
  CSCLogging::LogInfo("Verifying the Signature passed.");
  return kInstalled;
}

ResponseStatus ContainerHandler::InstallContainer(const std::string& container,
                                                  const std::string& containerId,
                                                  std::uint32_t timestamp) const {
  const ResponseStatus status = ValidateAndInstallCertificateBundles(container);
  if (status != kInstalled) return status;
  if (hsm->SetInstalledContainerTimestamp(timestamp)) return kRecordsNotStored;
  if (hsm->SetInstalledContainerId(containerId)) return kRecordsNotStored;
  return kInstalled;
}

ResponseStatus ContainerHandler::ValidateAndInstallCertificateBundles(
    const std::string& container) const {
  CertificateBundles bundles;
  const ResponseStatus status = DecodePayload(container, bundles);
  return status == kInstalled ? InstallCertificateBundles(bundles) : status;
}

ResponseStatus ContainerHandler::DecodePayload(const std::string& container,
                                               CertificateBundles& bundles) const {
  std::string payload;
  if (GetPayload(container, payload) != 0) {
    CSCLogging::LogError("ERROR: Unable to parse the payload!");
    return kNotParsed;
  }
  json_parser::KeyValuePairs pairs;
  if (PopulateJsonData(std::move(payload), pairs) != 0 || pairs.empty()) {
    CSCLogging::LogError("ERROR: Unable to parse the certificates!");
    return kNotParsed;
  }
  return DecodeCertificateBundles(pairs, bundles);
}

ResponseStatus ContainerHandler::InstallCertificateBundles(
    const CertificateBundles& bundles) const {
  if (stopped || terminated) {
    CSCLogging::LogError("Processing stopped!");
    return kProcessingStopped;
  }
  if (hsm->RemoveAllTrustStores()) return kStoresNotRemoved;
  for (const auto& [name, pem] : bundles) {
    if (!hsm->InstallCertificateBundle(name, pem)) continue;
    CSCLogging::LogError("ERROR: Certificate group update failed!");
    return hsm->RemoveAllTrustStores() ? kStoresNotRemoved : kBundleNotInstalled;
  }
  return kInstalled;
}

ResponseStatus ContainerHandler::RemoveAllTrustStores() const {
  return hsm && !hsm->RemoveAllTrustStores() ? kInstalled : kStoresNotRemoved;
}

void ContainerHandler::GetInstallingContainerId(std::string& id) const {
  const support::MutexLock lock(idMutex);
  id = installingContainerId;
}

void ContainerHandler::GetInstalledContainerId(std::string& id) const {
  if (!hsm || hsm->GetInstalledContainerId(id)) id.clear();
}

std::uint32_t ContainerHandler::GetInstalledContainerTimestamp() const {
  return hsm ? hsm->GetInstalledContainerTimestamp() : 0;
}

// Each request tells the facade what holds with the others. A resume that disabled retries first,
// to enable them afterwards, could end a check that waits meanwhile; an update that begins or ends
// beside a stop could have a check wait that nobody ends any more. Who told the facade looks again:
// a request that came in between may have told it first.
void ContainerHandler::TellFacadeOfRetries() const {
  if (!hsm) return;
  bool told = false;
  do {
    told = RetriesAreDisabled();
    hsm->DisableUpdateRetries(told);
  } while (told != RetriesAreDisabled());
}

bool ContainerHandler::RetriesAreDisabled() const {
  return stopped || terminated || retriesDisabled;
}

void ContainerHandler::StopProcessing(bool stop) {
  stopped = stop;
  TellFacadeOfRetries();
  CSCLogging::LogDebug("ContainerHandler: Processing stopped");
}

void ContainerHandler::TerminateProcessing() {
  terminated = true;
  TellFacadeOfRetries();
  CSCLogging::LogDebug("ContainerHandler: Processing terminated");
}

void ContainerHandler::ConvertEpochTimestampToDatetime(std::uint32_t timestamp,
                                                       std::string& text) const {
  FormatTimestamp(timestamp, text);
}

void ContainerHandler::DisableUpdateRetries(bool disable) const {
  retriesDisabled = disable;
  TellFacadeOfRetries();
  CSCLogging::LogDebug("ContainerHandler: Retries disabled");
}

bool ContainerHandler::IsOn(const char* developmentSwitch) const {
  return developmentTools.GetDevSwitchBool(developmentSwitch);
}

std::string ContainerHandler::Formatted(std::uint32_t timestamp) const {
  std::string text;
  ConvertEpochTimestampToDatetime(timestamp, text);
  return text;
}

void ContainerHandler::SetInstallingContainerId(const std::string& id) {
  const support::MutexLock lock(idMutex);
  installingContainerId = id;
}

}  // namespace truststore_update_client
