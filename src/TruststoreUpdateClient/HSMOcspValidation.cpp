// The revocation checks of HSM: is every certificate of a signer chain still good?
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

constexpr std::int32_t kUrlSuccess = 1;
constexpr int kPassed = 0;

}  // namespace

int HSM::X5COcspValidation(const std::vector<X509_Certificate>& chain) {
  bool allPassed = false;
  try {
    allPassed = CheckRevocationOfAll(chain);
  } catch (const std::exception& exception) {
    CSCLogging::LogError(CSCLogEntry() << "ERROR: OCSP check ended: " << exception.what());
  }
  if (!allPassed) {
    CSCLogging::LogError("OCSP check FAILED");
    return 1;
  }
  CSCLogging::LogInfo("All OCSP checks Passed");
  return 0;
}

bool HSM::CheckRevocationOfAll(const std::vector<X509_Certificate>& chain) {
  if (chain.empty()) return false;
  if (!ocspConnection || !invocationUrl) {
    CSCLogging::LogError("ERROR: There is no OCSP connection!");
    return false;
  }
  const std::optional<X509_Certificate> root = RootThatIssued(chain.back());
  if (!root.has_value()) return false;
  const std::size_t last = chain.size() - 1;
  for (std::size_t i = chain.size(); i-- > 0;) {
    const RevocationCheck check{
        chain.size() - i, chain[i], i == last ? *root : chain[i + 1],
        i == last ? OcspRequestOperationTypeId : ModOcspRequestOperationTypeId};
    if (CheckUntilAnswered(check) != kPassed) return false;
  }
  return true;
}

std::optional<X509_Certificate> HSM::RootThatIssued(const X509_Certificate& certificate) const {
  std::string pem;
  if (trustStoreApi->ReadCertificateBundle(ZORA_ROOT_CERTIFICATE_ID, pem) != 0) {
    CSCLogging::LogError("ERROR: Unable to get Root Certificate!");
    return std::nullopt;
  }
  for (X509_Certificate& root : DecodeRoots(pem)) {
    if (IsIssuedBy(certificate, root)) return std::move(root);
  }
  CSCLogging::LogError("ERROR: No Root Certificate issued the top of the certificate chain!");
  return std::nullopt;
}

// A responder that cannot be reached says nothing about a certificate: only an answer ends this, or
// whoever disables retries. A wait that was cut short without that goes on with the next attempt.
int HSM::CheckUntilAnswered(const RevocationCheck& check) {
  for (int pass = 1;; ++pass) {
    const std::string url = OcspUrl(check.operationTypeId);
    if (connectionRetryTestMode) PauseForTester(check.number, pass);
    const int result = CheckOnce(check, url);
    if (result != kOcspNotCompleted || retriesDisabled) return result;
    CSCLogging::LogError(CSCLogEntry()
                         << "Retrying in " << ocspRetryInterval.count() << " seconds...");
    WaitForRetry(static_cast<int>(ocspRetryInterval.count()));
    if (retriesDisabled) return result;
  }
}

int HSM::CheckOnce(const RevocationCheck& check, const std::string& url) {
  const int result = ocspConnection->CheckCertificate(
      check.certificate.BER_encode(), check.issuer.BER_encode(), check.operationTypeId, url);
  CSCLogging::LogInfo(CSCLogEntry() << "OCSP Check " << check.number
                                    << (result == kPassed ? " Passed." : " Failed."));
  return result;
}

std::string HSM::OcspUrl(const std::string& operationTypeId) const {
  lumo_connector::SCUrlResult result = invocationUrl(operationTypeId);
  if (result.status == kUrlSuccess) {
    CSCLogging::LogInfo("Got URL for '" + operationTypeId + "'");
  } else {
    CSCLogging::LogError(CSCLogEntry() << "Failed to get the URL for '" << operationTypeId
                                       << "', status=" << result.status);
    result.url.clear();
  }
  return std::move(result.url);
}

// The flag of the timer may be up from an earlier stop: only disabled retries shorten the pause.
void HSM::PauseForTester(std::size_t check, int pass) {
  if (pass > 2) return;
  CSCLogging::LogError(CSCLogEntry() << "***** Testability Option: OCSP " << check << " Retry: "
                                     << (pass == 1 ? "Kill" : "Re-start") << " socks-sandbox now");
  if (pass != 1) return;
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + testabilityPause;
  while (!retriesDisabled && Clock::now() < end) {
    retryTimer.WaitFor(std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()));
  }
}

}  // namespace truststore_update_client
