#include "TruststoreUpdateClient/CertificateBundles.h"

#include <exception>
#include <utility>
#include <vector>

#include "TruststoreUpdateClient/PayloadCertificate.h"
#include "TruststoreUpdateClient/QuotedTexts.h"
#include "base64_utils/Base64Utils.h"
#include "csc_logging/CSCLogging.h"

namespace truststore_update_client {

using csc_logging::CSCLogging;

namespace {

ResponseStatus AppendCertificate(std::string_view quoted, std::string& pem) {
  const std::vector<std::uint8_t> encoding =
      base64_utils::Base64Utils::Base64UrlDecodeToBinaryVector(quoted);
  if (encoding.empty()) {
    CSCLogging::LogError("ERROR: Base64 decoding error when parsing certificate!");
    return kNotParsed;
  }
  try {
    pem += PemOfCertificate(encoding);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    CSCLogging::LogError("ERROR: Certificate group update failed! Invalid certificate format!");
    return kPayloadCertificateInvalid;
  }
  return kInstalled;
}

// PEM has a line feed for every 64 characters of base64 and two marker lines; growing the text by
// doubling would hold it twice in memory.
std::size_t PemSizeAtMost(std::string_view arrayText) {
  constexpr std::size_t kMarkerBytes = 64;
  constexpr std::size_t kSmallestCertificate = 256;
  return arrayText.size() + arrayText.size() / 32 +
         (arrayText.size() / kSmallestCertificate + 1) * kMarkerBytes;
}

ResponseStatus DecodeBundle(std::string_view arrayText, std::string& pem) {
  QuotedTexts texts(arrayText);
  std::string_view quoted;
  while (texts.Next(quoted)) {
    if (pem.empty()) pem.reserve(PemSizeAtMost(arrayText));
    const ResponseStatus status = AppendCertificate(quoted, pem);
    if (status != kInstalled) return status;
  }
  if (!texts.IsUnterminated()) return kInstalled;
  CSCLogging::LogError("ERROR: Unable to parse the certificate!");
  return kNotParsed;
}

bool EndsBehind(std::string_view later, std::string_view earlier) {
  return later.data() + later.size() > earlier.data() + earlier.size();
}

// Pairs stand in document order, so that a nested one follows the pair that encloses it.
bool HasNestedBundles(const json_parser::KeyValuePairs& pairs) {
  std::string_view enclosing;
  for (const auto& pair : pairs) {
    if (!enclosing.empty() && !EndsBehind(pair.value, enclosing)) return true;
    enclosing = pair.value;
  }
  return false;
}

ResponseStatus RefuseBundles(const char* reason) {
  CSCLogging::LogError(std::string("ERROR: Unable to parse the certificates: ") + reason);
  return kNotParsed;
}

}  // namespace

ResponseStatus DecodeCertificateBundles(const json_parser::KeyValuePairs& pairs,
                                        CertificateBundles& bundles) {
  if (pairs.size() > kMaxBundles) return RefuseBundles("too many bundles");
  if (HasNestedBundles(pairs)) return RefuseBundles("a bundle inside another one");
  for (const auto& pair : pairs) {
    std::string pem;
    const ResponseStatus status = DecodeBundle(pair.value, pem);
    if (status != kInstalled) return status;
    bundles.emplace(pair.key, std::move(pem));
  }
  return kInstalled;
}

}  // namespace truststore_update_client
