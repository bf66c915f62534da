#include "TruststoreUpdateClient/HSM.h"

#include <botan/pubkey.h>
#include <botan/version.h>

#include <cstdint>
#include <exception>
#include <limits>
#include <utility>

#include "TruststoreUpdateClient/OcspConnection.h"
#include "csc_logging/CSCLogging.h"
#include "support/FileContents.h"

namespace truststore_update_client {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

namespace {

const std::string kContainerIdKey = "truststore-container-id";
const std::string kTimestampKey = "truststore-timestamp";
constexpr std::size_t kMaxRecordBytes = 100;
constexpr mode_t kRecordFileMode = 0644;

void LogCryptoLibraryVersion() {
  std::string mismatch = Botan::runtime_version_check(2, 11, 0);
  if (mismatch.empty()) {
    CSCLogging::LogInfo("Botan version: " + Botan::short_version_string());
  } else {
    while (mismatch.back() == '\n') mismatch.pop_back();
    CSCLogging::LogWarning(mismatch);
  }
}

// The record is a 32-bit number of seconds; a signed conversion would end in 2038.
std::uint32_t ToTimestamp(const std::string& text) {
  try {
    const long long seconds = std::stoll(text);
    if (seconds >= 0 && seconds <= std::numeric_limits<std::uint32_t>::max()) {
      return static_cast<std::uint32_t>(seconds);
    }
  } catch (const std::exception&) {
    // The line below tells all there is to tell.
  }
  CSCLogging::LogError("ERROR: Failed to interpret timestamp!");
  return 0;
}

HSM::Collaborators OnTheUnit(const std::shared_ptr<lumo_connector::LumoConnector>& connector) {
  HSM::Collaborators collaborators{ostra::tee::TrustStoreUpdateAPI::get_instance(),
                                   PersistentFileStorage()};
  if (connector) {
    collaborators.ocspConnection = std::make_shared<OcspConnection>(connector);
    collaborators.invocationUrl = [connector](const std::string& operationTypeId) {
      return connector->GetInvocationUrl(operationTypeId);
    };
  }
  collaborators.switches.emplace();
  return collaborators;
}

}  // namespace

HSM::HSM(const std::shared_ptr<lumo_connector::LumoConnector>& connector)
    : HSM(OnTheUnit(connector)) {}

HSM::HSM(Collaborators collaborators)
    : trustStoreApi(std::move(collaborators.trustStore)),
      ocspConnection(std::move(collaborators.ocspConnection)),
      fileStorage(std::move(collaborators.storage)),
      connectionRetryTestMode(collaborators.switches.has_value() &&
                              collaborators.switches->GetDevSwitchBool("ConnectionRetryTestMode")),
      containerIdFile(std::move(collaborators.containerIdFile)),
      timestampFile(std::move(collaborators.timestampFile)),
      now(std::move(collaborators.now)),
      invocationUrl(std::move(collaborators.invocationUrl)),
      ocspRetryInterval(collaborators.ocspRetryInterval),
      testabilityPause(collaborators.testabilityPause) {
  LogCryptoLibraryVersion();
  ClearRecordOfUnfinishedInstallation();
}

bool HSM::GetInstalledContainerId(std::string& id) {
  id.clear();
  if (fileStorage.LoadFile(kContainerIdKey, containerIdFile) != 0) {
    CSCLogging::LogError("Failed to load Container ID from persistent file storage.");
    return true;
  }
  if (support::ReadFile(containerIdFile, kMaxRecordBytes, id) != 0) {
    CSCLogging::LogError("Failed to read Container ID from the file.");
    return true;
  }
  return false;
}

bool HSM::SetInstalledContainerId(const std::string& id) {
  return StoreRecord(id, containerIdFile, kContainerIdKey,
                     "ERROR: Failed to store Container ID to persistent file storage!");
}

bool HSM::SetInstalledContainerTimestamp(std::uint32_t timestamp) {
  return StoreRecord(std::to_string(timestamp), timestampFile, kTimestampKey,
                     "ERROR: Failed to store Timestamp to persistent file storage!");
}

std::uint32_t HSM::GetInstalledContainerTimestamp() {
  std::string text;
  if (fileStorage.LoadFile(kTimestampKey, timestampFile) == 0 &&
      support::ReadFile(timestampFile, kMaxRecordBytes, text) == 0) {
    return ToTimestamp(text);
  }
  CSCLogging::LogError("Failed to load Timestamp from persistent file storage.");
  return TimestampOfRecord();
}

// The file is a mirror of the record: where it cannot be written, say because its file system is
// full, the record still counts. If nobody can tell what is installed, an old container of the
// right signer would pass as newer: none does.
std::uint32_t HSM::TimestampOfRecord() {
  std::string text;
  switch (fileStorage.ReadRecord(kTimestampKey, text)) {
    case RecordState::kPresent:
      return ToTimestamp(text);
    case RecordState::kUnreadable:
      CSCLogging::LogError("ERROR: The installed Timestamp is unknown: no container is newer!");
      return std::numeric_limits<std::uint32_t>::max();
    default:
      return 0;
  }
}

bool HSM::RemoveAllTrustStores() {
  // Records first: after a removal that was cut off, no container is refused as installed already
  // or as older.
  const bool idStays = SetInstalledContainerId("");
  if (idStays) CSCLogging::LogError("ERROR: Clearing the Container Id failed");
  const bool timestampStays = SetInstalledContainerTimestamp(0);
  if (timestampStays) CSCLogging::LogError("ERROR: Clearing the Timestamp failed");
  const bool storesStay = trustStoreApi->RemoveAllTrustStores() != 0;
  if (storesStay) {
    CSCLogging::LogError("ERROR: Clearing the truststores failed");
  } else {
    CSCLogging::LogInfo("Truststores cleared succesfully.");
  }
  // A full disk may have room now.
  if (idStays) DropRecord(kContainerIdKey);
  if (timestampStays) DropRecord(kTimestampKey);
  return idStays || timestampStays || storesStay;
}

bool HSM::InstallCertificateBundle(const std::string& name, const std::string& pem) {
  if (trustStoreApi->InstallCertificateBundle(name, pem) != 0) {
    CSCLogging::LogError("ERROR: Certification bundle " + name + " could not be installed!");
    return true;
  }
  CSCLogging::LogInfo("Certification bundle " + name + " updated succesfully.");
  return false;
}

bool HSM::Signature_Verify(const Botan::X509_Certificate& certificate, std::string_view data,
                           std::string_view signature) {
  try {
    const auto key = certificate.load_subject_public_key();
    // RFC 7518 section 3.4: ES256 is ECDSA. A key of another kind would be used without padding.
    if (key->algo_name() != "ECDSA") return true;
    Botan::PK_Verifier verifier(*key, "EMSA1(SHA-256)", Botan::IEEE_1363);
    verifier.update(reinterpret_cast<const std::uint8_t*>(data.data()), data.size());
    return !verifier.check_signature(reinterpret_cast<const std::uint8_t*>(signature.data()),
                                     signature.size());
  } catch (const std::exception& exception) {
    CSCLogging::LogError(CSCLogEntry()
                         << "Error: Signature verification failed! " << exception.what());
  }
  return true;
}

void HSM::DisableUpdateRetries(bool disable) {
  retriesDisabled = disable;  // before the wait ends: who wakes up looks at it
  CSCLogging::LogDebug(disable ? "HSM: OCSP retries Disabled" : "HSM: OCSP retries Enabled");
  if (disable) StopRetryTimer();
}

void HSM::WaitForRetry(int seconds) {
  retryTimer.WaitFor(std::chrono::seconds(seconds));
}

void HSM::StopRetryTimer() {
  retryTimer.Raise();
}

// Who loads a record at the same time puts its old bytes into the file before it is stored.
bool HSM::IsRecorded(const std::string& text, const std::string& key) const {
  std::string bytes;
  return fileStorage.ReadRecord(key, bytes) == RecordState::kPresent && bytes == text;
}

bool HSM::StoreRecord(const std::string& text, const std::string& file, const std::string& key,
                      std::string_view failureLine) {
  const int error = support::ReplaceFile(file, text, kRecordFileMode);
  if (error != 0) {
    CSCLogging::LogError(CSCLogEntry()
                         << "Cannot write '" << file << "': " << support::ErrorText(error));
  } else if (fileStorage.StoreFile(key, file) == 0 && IsRecorded(text, key)) {
    return false;
  }
  CSCLogging::LogError(failureLine);
  return true;
}

// A record that cannot be cleared, say because the directory of its file is missing, must not
// outlive the trust stores: a unit without bundles that believes to be up to date would never be
// updated again.
void HSM::DropRecord(const std::string& key) {
  std::string bytes;
  if (fileStorage.ReadRecord(key, bytes) != RecordState::kPresent) return;
  if (fileStorage.UnstoreFile(key) != 0) {
    CSCLogging::LogError("ERROR: Removing the record " + key + " failed");
  }
}

// Power that fails between the two records leaves a timestamp without an id. It would have the same
// container refused as installed already, with half of its bundles missing.
void HSM::ClearRecordOfUnfinishedInstallation() {
  std::string timestamp;
  if (fileStorage.ReadRecord(kTimestampKey, timestamp) != RecordState::kPresent) return;
  if (timestamp == "0") return;
  std::string id;
  const RecordState idState = fileStorage.ReadRecord(kContainerIdKey, id);
  if (idState == RecordState::kUnreadable || !id.empty()) return;
  CSCLogging::LogWarning(
      "The recorded Timestamp has no Container ID: an installation was interrupted. Clearing the "
      "Timestamp.");
  if (SetInstalledContainerTimestamp(0)) {
    CSCLogging::LogError("ERROR: Clearing the Timestamp failed");
    DropRecord(kTimestampKey);
  }
}

}  // namespace truststore_update_client
