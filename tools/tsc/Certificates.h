/// Certificates of the tool's inputs and what it tells about them. No state; any thread.
#ifndef TOOLS_TSC_CERTIFICATES_H
#define TOOLS_TSC_CERTIFICATES_H

#include <botan/x509cert.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/host/config/Result.h"

namespace tsc {

/// What a person wants to know of one certificate. Names are outside text.
struct CertificateFacts {
  std::string subject;
  std::string issuer;
  std::string notBefore;  ///< UTC, ISO 8601
  std::string notAfter;
  std::string sha256;   ///< of the encoding, lower-case hexadecimal
  std::string problem;  ///< why the texts above but the hash are empty; empty when they are not
};

/// The certificates of a file: any number in PEM, text between them ignored, or one in DER. The
/// error names the file and, in PEM, which certificate of it. At least one on success.
[[nodiscard]] platform_host::Result<std::vector<Botan::X509_Certificate>> LoadCertificates(
    const std::string& path);

/// What stands in `encoding`, which may be anything and is looked at only as far as that is cheap.
[[nodiscard]] CertificateFacts FactsOf(const std::vector<std::uint8_t>& encoding);

/// The facts as an object of the keys "subject", "issuer", "not_before", "not_after", "sha256"; or
/// "problem" and "sha256".
[[nodiscard]] nlohmann::ordered_json ToJson(const CertificateFacts& facts);

/// All values of the subject's Common Name, one after the other: what a unit matches.
[[nodiscard]] std::string CommonNameOf(const Botan::X509_Certificate& certificate);

}  // namespace tsc

#endif
