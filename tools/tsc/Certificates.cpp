#include "tools/tsc/Certificates.h"

#include <botan/data_src.h>
#include <botan/hash.h>
#include <botan/hex.h>
#include <botan/pkix_types.h>

#include <algorithm>
#include <sstream>

#include "TruststoreUpdateClient/SignerKeyBounds.h"
#include "tools/tsc/Files.h"

namespace tsc {

using Certificates = std::vector<Botan::X509_Certificate>;
using platform_host::Error;
using platform_host::Result;

namespace {

constexpr std::string_view kPemBegin = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view kPemEnd = "-----END CERTIFICATE-----";

Botan::X509_Certificate Decode(std::string_view bytes) {
  return Botan::X509_Certificate(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
}

Result<Certificates> DecodePem(std::string_view text) {
  Certificates certificates;
  for (auto begin = text.find(kPemBegin); begin != std::string_view::npos;
       begin = text.find(kPemBegin)) {
    const std::string number = "certificate " + std::to_string(certificates.size() + 1);
    const auto end = text.find(kPemEnd, begin);
    if (end == std::string_view::npos) return Error(number + ": no end line");
    const auto after = end + kPemEnd.size();
    try {
      certificates.push_back(Decode(text.substr(begin, after - begin)));
    } catch (const std::exception& exception) {
      return Error(number + ": " + exception.what());
    }
    text.remove_prefix(after);
  }
  return certificates;
}

Result<Certificates> DecodeDer(std::string_view bytes) {
  try {
    return Certificates{Decode(bytes)};
  } catch (const std::exception& exception) {
    return Error(std::string("no certificate: ") + exception.what());
  }
}

std::string Sha256(const std::vector<std::uint8_t>& bytes) {
  const auto hash = Botan::HashFunction::create_or_throw("SHA-256");
  return Botan::hex_encode(hash->process(bytes), false);
}

std::string NameText(const Botan::X509_DN& name) {
  std::ostringstream text;
  text << name;
  return text.str();
}

// The library writes "2049/12/31 23:59:59 UTC" for any year, those before 1970 included.
std::string TimeText(const Botan::X509_Time& time) {
  std::string text = time.readable_string();
  text.resize(text.rfind(' '));
  std::replace(text.begin(), text.end(), '/', '-');
  std::replace(text.begin(), text.end(), ' ', 'T');
  return text + "Z";
}

}  // namespace

Result<Certificates> LoadCertificates(const std::string& path) {
  const auto bytes = ReadWholeFile(path);
  if (!bytes.Ok()) return bytes.Failure();
  const bool pem = bytes.Value().find(kPemBegin) != std::string::npos;
  auto certificates = pem ? DecodePem(bytes.Value()) : DecodeDer(bytes.Value());
  if (!certificates.Ok()) return certificates.Failure().WithContext(path);
  return certificates;
}

CertificateFacts FactsOf(const std::vector<std::uint8_t>& encoding) {
  CertificateFacts facts;
  facts.sha256 = Sha256(encoding);
  try {
    // A certificate with a huge key holds the library for seconds; nobody has vouched for this one.
    facts.problem = truststore_update_client::BeyondSignerBounds(encoding);
    if (!facts.problem.empty()) return facts;
    const Botan::X509_Certificate certificate(encoding);
    facts.subject = NameText(certificate.subject_dn());
    facts.issuer = NameText(certificate.issuer_dn());
    facts.notBefore = TimeText(certificate.not_before());
    facts.notAfter = TimeText(certificate.not_after());
  } catch (const std::exception& exception) {
    facts.problem = exception.what();
  }
  return facts;
}

nlohmann::ordered_json ToJson(const CertificateFacts& facts) {
  if (!facts.problem.empty()) return {{"problem", facts.problem}, {"sha256", facts.sha256}};
  return {{"subject", facts.subject},
          {"issuer", facts.issuer},
          {"not_before", facts.notBefore},
          {"not_after", facts.notAfter},
          {"sha256", facts.sha256}};
}

std::string CommonNameOf(const Botan::X509_Certificate& certificate) {
  std::string all;
  for (const auto& value : certificate.subject_dn().get_attribute("CN")) all += value;
  return all;
}

}  // namespace tsc
