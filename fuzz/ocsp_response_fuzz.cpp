// What an OCSP responder answers, about a certificate of an issuer whose key nobody has: nothing
// makes the certificate good. Every certificate that the library has constructed was within the
// bounds that were looked at before. Answers are taken as they are and as base64 text.
#include <botan/base64.h>
#include <botan/ocsp.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/OcspResponseCheck.h"
#include "TruststoreUpdateClient/SignerKeyBounds.h"
#include "base64_utils/Base64Utils.h"
#include "fuzz/Require.h"

namespace {

using fuzz::Require;
using namespace truststore_update_client;
using Bytes = std::vector<std::uint8_t>;

Botan::X509_Certificate FromBase64(const char* text) {
  const auto encoding = Botan::base64_decode(text);
  return Botan::X509_Certificate(encoding.data(), encoding.size());
}

const char* const kIssuer =
    "MIIB+zCCAaKgAwIBAgIUGd7AEXzUEWu6bV4fYnuTQHp3r0wwCgYIKoZIzj0EAwIwLzEZMBcGA1UECgwQVHJ1c3RzdG9yZS"
    "BUZXN0czESMBAGA1UEAwwJT0NTUCBSb290MB4XDTI2MTEyMDE2MDQwMVoXDTM2MTExODE2MDQwMVowMTEZMBcGA1UECgwQ"
    "VHJ1c3RzdG9yZSBUZXN0czEUMBIGA1UEAwwLT0NTUCBJc3N1ZXIwWTATBgcqhkjOPQIBBggqhkjOPQMBBwNCAARdN36l04"
    "de6Jjt58JnGU5OIPY8mTFb9cDd71kppcy2yBhDlNEsHYe/9saIkdcsMXUiL7Nl6Cg4fK+aDKOa0Tido4GZMIGWMA8GA1Ud"
    "EwEB/wQFMAMBAf8wDgYDVR0PAQH/BAQDAgEGMB0GA1UdDgQWBBS7R9yZ96VHc1QcB9++T/N0mw3DcjAfBgNVHSMEGDAWgB"
    "RdxYcuazC6xwWcZsXWRG3zGcBTOTAzBggrBgEFBQcBAQQnMCUwIwYIKwYBBQUHMAGGF2h0dHA6Ly9vY3NwLmludmFsaWQv"
    "YXNrMAoGCCqGSM49BAMCA0cAMEQCIA8lR/J98fvHptgjKRayPTqOgWl3PDu6v6bEm74OHpkZAiAHiq/mqTSI9pZ3NwM1ih"
    "laPEAvp5CwwQyGYn60pmU8RQ==";
const char* const kCertificate =
    "MIIB/DCCAaOgAwIBAgIUEVU+hlZr8RiYpFm6IAeRyze69PEwCgYIKoZIzj0EAwIwMTEZMBcGA1UECgwQVHJ1c3RzdG9yZS"
    "BUZXN0czEUMBIGA1UEAwwLT0NTUCBJc3N1ZXIwHhcNMjYxMTIwMTYwNDAxWhcNMzYxMTE4MTYwNDAxWjAzMRkwFwYDVQQK"
    "DBBUcnVzdHN0b3JlIFRlc3RzMRYwFAYDVQQDDA1LQUxWSVJPTiBnb29kMFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEIO"
    "nDJJJdaVu14gCbuRKMCvue8x6dmhKJuBe0fdII0cvA2a0BdfyU6wbeVV7RTBl3LypbJuCEy5Cwsx8pLUJntaOBljCBkzAM"
    "BgNVHRMBAf8EAjAAMA4GA1UdDwEB/wQEAwIHgDAdBgNVHQ4EFgQUQVe31BPS60cVskxS3DiErD4itF4wHwYDVR0jBBgwFo"
    "AUu0fcmfelR3NUHAffvk/zdJsNw3IwMwYIKwYBBQUHAQEEJzAlMCMGCCsGAQUFBzABhhdodHRwOi8vb2NzcC5pbnZhbGlk"
    "L2FzazAKBggqhkjOPQQDAgNHADBEAiA1gJrVP+aHQ7RFG/Vf2ARHyWlRxoYmmZ7sAyeEBrCc8QIgbual2er9r6AhRU5bzu"
    "ke6WiPoIpXWAxw/wei4dVyPAg=";
constexpr std::chrono::system_clock::time_point kNow{std::chrono::seconds(1795280641)};

Bytes Answer(const std::uint8_t* data, std::size_t size) {
  using base64_utils::Base64Utils;
  const std::string text(data, data + size);
  return Base64Utils::Base64Validate(text) ? Base64Utils::Base64DecodeToBinaryVector(text)
                                           : Bytes(data, data + size);
}

void CheckCertificatesOf(const Bytes& answer) {
  const Botan::OCSP::Response read(answer);
  for (const auto& certificate : read.certificates()) {
    Require(BeyondSignerBounds(certificate.BER_encode()).empty(),
            "every certificate of an answer that is read is within the bounds");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Botan::X509_Certificate kReadIssuer = FromBase64(kIssuer);
  static const Botan::X509_Certificate kReadCertificate = FromBase64(kCertificate);
  const Bytes answer = Answer(data, size);
  if (!BeyondOcspBounds(answer).empty()) return 0;
  try {
    const OcspVerdict verdict = EvaluateOcspResponse(kReadCertificate, kReadIssuer, answer, kNow);
    Require(!verdict.IsGood(), "nobody can say that the certificate is good");
    Require(!OcspStatusText(verdict.status).empty(), "every status has a text");
    CheckCertificatesOf(answer);
  } catch (const std::exception&) {
    // Bytes that are no answer.
  }
  return 0;
}
