#include "tools/tsc/VerificationFacade.h"

#include <utility>

#include "TruststoreUpdateClient/PersistentFileStorageImpl.h"
#include "csc_logging/CSCLogging.h"
#include "tools/tsc/OcspResponder.h"
#include "tools/tsc/UnitStore.h"

namespace tsc {

using csc_logging::CSCLogging;
namespace tuc = truststore_update_client;

namespace {

// Holds the roots, and takes every bundle that a unit can keep without keeping it.
class RootsOnly : public ostra::tee::TrustStoreUpdateAPI {
 public:
  explicit RootsOnly(std::string pem) : roots(std::move(pem)) {}

  int ReadCertificateBundle(const std::string& name, std::string& pem) override {
    pem = name == tuc::ZORA_ROOT_CERTIFICATE_ID ? roots : "";
    return pem.empty() ? 1 : 0;
  }
  int InstallCertificateBundle(const std::string& name, const std::string& pem) override {
    const std::string failure = StoreFailure(name, pem);
    if (!failure.empty()) CSCLogging::LogError(failure);
    return failure.empty() ? 0 : 1;
  }
  int RemoveAllTrustStores() override { return 0; }

 private:
  const std::string roots;
};

// A storage that holds nothing and keeps nothing.
class NoRecords : public tuc::PersistentFileStorageIf {
 public:
  int StoreFile(const std::string&, const std::string&) const override { return 0; }
  int LoadFile(const std::string&, const std::string&) const override { return 1; }
  int UnstoreFile(const std::string&) const override { return 0; }
  tuc::RecordState ReadRecord(const std::string&, std::string&) const override {
    return tuc::RecordState::kMissing;
  }
};

tuc::HSM::Collaborators ChecksOver(const UnitState& state) {
  tuc::HSM::Collaborators collaborators{std::make_shared<RootsOnly>(state.rootsPem),
                                        tuc::PersistentFileStorage(std::make_shared<NoRecords>()),
                                        "", "", state.now};
  if (state.responder) AskResponder(*state.responder, collaborators);
  return collaborators;
}

}  // namespace

VerificationFacade::VerificationFacade(UnitState unitState)
    : state(std::move(unitState)), checks(ChecksOver(state)) {
  checks.DisableUpdateRetries(true);
}

bool VerificationFacade::GetInstalledContainerId(std::string& id) {
  id = state.installedId;
  return false;
}

bool VerificationFacade::SetInstalledContainerId(const std::string& id) {
  if (id.size() <= truststore_update_client::PersistentFileStorageImpl::kMaxFileBytes) return false;
  CSCLogging::LogError("PersistantFileStorage: File is too big!");
  CSCLogging::LogError("ERROR: Failed to store Container ID to persistent file storage!");
  return true;
}

bool VerificationFacade::SetInstalledContainerTimestamp(std::uint32_t) {
  return false;
}

std::uint32_t VerificationFacade::GetInstalledContainerTimestamp() {
  return state.installedTimestamp;
}

bool VerificationFacade::RemoveAllTrustStores() {
  CSCLogging::LogInfo("Truststores cleared succesfully.");
  return false;
}

bool VerificationFacade::InstallCertificateBundle(const std::string& name, const std::string& pem) {
  return checks.InstallCertificateBundle(name, pem);
}

bool VerificationFacade::Signature_Verify(const Botan::X509_Certificate& certificate,
                                          std::string_view data, std::string_view signature) {
  return checks.Signature_Verify(certificate, data, signature);
}

bool VerificationFacade::X5CPathValidation(
    const std::vector<Botan::X509_Certificate>& chain) const {
  return checks.X5CPathValidation(chain);
}

int VerificationFacade::X5COcspValidation(const std::vector<Botan::X509_Certificate>& chain) {
  if (state.responder) return checks.X5COcspValidation(chain);
  if (state.ocsp == OcspAnswer::kGood) return 0;
  CSCLogging::LogError(state.ocsp == OcspAnswer::kRevoked
                           ? "Error: OCSP: a certificate of the signer chain is revoked"
                           : "Error: OCSP: no answer is known (--ocsp tells one)");
  return 1;
}

void VerificationFacade::DisableUpdateRetries(bool) {}

}  // namespace tsc
