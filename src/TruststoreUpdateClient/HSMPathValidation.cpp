// The path validation of HSM: does a signer chain lead to a root that the trust store holds, and is
// it in order?
#include <botan/certstor.h>
#include <botan/data_src.h>
#include <botan/pkix_types.h>
#include <botan/x509path.h>

#include <algorithm>
#include <exception>

#include "TruststoreUpdateClient/HSM.h"
#include "TruststoreUpdateClient/VerifiedPath.h"
#include "csc_logging/CSCLogging.h"

namespace truststore_update_client {

using Botan::X509_Certificate;
using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

namespace {

constexpr std::size_t kMinKeyStrengthBits = 128;
const std::string kPemEnd = "-----END CERTIFICATE-----";

Botan::Path_Validation_Restrictions Restrictions() {
  return Botan::Path_Validation_Restrictions(/*require_rev=*/false, kMinKeyStrengthBits,
                                             /*ocsp_all_intermediates=*/false,
                                             /*max_ocsp_age=*/std::chrono::seconds::zero());
}

void LogWrongOrder() {
  CSCLogging::LogError(
      "Error: X5C certificates Path validation failed. Certificates in the wrong order!");
}

}  // namespace

bool HSM::X5CPathValidation(const std::vector<X509_Certificate>& chain) const {
  try {
    return !ValidatePath(chain);
  } catch (const std::exception& exception) {
    CSCLogging::LogError(CSCLogEntry()
                         << "Error: X5C certificates path validation failed! " << exception.what());
  } catch (...) {
    CSCLogging::LogError("Error: X5C certificates path validation failed! Unknown reason.");
  }
  return true;
}

bool HSM::ValidatePath(const std::vector<X509_Certificate>& chain) const {
  std::vector<X509_Certificate> roots;
  if (GetZoraRootCertificates(roots)) return false;
  if (MostCertificatesOfOneSubject(chain) > kMaxCertificatesOfOneSubject ||
      SharedSubjects(chain) > kMaxSharedSubjects) {
    LogWrongOrder();
    return false;
  }
  const VerifiedPaths paths(chain);
  for (const X509_Certificate& root : roots) {
    if (LeadsToRoot(paths.LeadingTo(root), root)) {
      if (!CheckCertificateChainOrder(root, chain)) {
        LogWrongOrder();
        return false;
      }
      CSCLogging::LogInfo("X5C certificates path validation succeeded!");
      return true;
    }
    CSCLogging::LogError("Error: Certificate path cannot be validated against: " +
                         root.subject_dn().get_first_attribute("CN"));
  }
  CSCLogging::LogError("Error: Certificate Path validation failed");
  return false;
}

bool HSM::LeadsToRoot(const std::vector<X509_Certificate>& chain,
                      const X509_Certificate& root) const {
  Botan::Certificate_Store_In_Memory store;
  store.add_certificate(root);
  const auto result = Botan::x509_path_validate(chain, Restrictions(), store, /*hostname=*/"",
                                                Botan::Usage_Type::UNSPECIFIED, now(),
                                                std::chrono::milliseconds::zero(), {});
  return result.successful_validation() && result.trust_root() == root;
}

bool HSM::GetZoraRootCertificates(std::vector<X509_Certificate>& roots) const {
  std::string pem;
  if (trustStoreApi->ReadCertificateBundle(ZORA_ROOT_CERTIFICATE_ID, pem) != 0) {
    CSCLogging::LogError("Error: Unable to get Root Certificate!");
    return true;
  }
  try {
    roots = DecodeRoots(pem);
  } catch (const std::exception&) {
    CSCLogging::LogError("Error: Unable to populate X509_Certificate with ZORA root certificate!");
    return true;
  }
  return false;
}

std::vector<X509_Certificate> HSM::DecodeRoots(const std::string& pem) {
  std::vector<std::string> pieces;
  SplitCertificate(pem, pieces);
  std::vector<X509_Certificate> roots;
  for (const std::string& piece : pieces) {
    Botan::DataSource_Memory source(piece);
    roots.emplace_back(source);
  }
  return roots;
}

bool HSM::CheckCertificateChainOrder(const X509_Certificate& root,
                                     const std::vector<X509_Certificate>& chain) {
  const X509_Certificate* issuer = &root;
  for (auto certificate = chain.rbegin(); certificate != chain.rend(); ++certificate) {
    if (!IsIssuedBy(*certificate, *issuer)) return false;
    issuer = &*certificate;
  }
  return true;
}

void HSM::SplitCertificate(const std::string& pem, std::vector<std::string>& certificates) {
  std::size_t start = 0;
  for (auto end = pem.find(kPemEnd); end != std::string::npos; end = pem.find(kPemEnd, start)) {
    const std::size_t next = std::min(end + kPemEnd.size() + 1, pem.size());
    certificates.push_back(pem.substr(start, next - start));
    start = next;
  }
}

}  // namespace truststore_update_client
