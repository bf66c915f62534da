// A certificate of the payload or of a signer chain: our short way to its PEM accepts what the
// library's constructor accepts and writes what the library writes, and what is within the bounds
// of signers is read without delay.
#include <botan/x509cert.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/PayloadCertificate.h"
#include "TruststoreUpdateClient/SignerKeyBounds.h"
#include "base64_utils/Base64Utils.h"
#include "fuzz/Require.h"

namespace {

template <typename Encode>
std::string PemOrNothing(Encode encode) {
  try {
    return encode();
  } catch (const std::exception&) {
    return {};
  }
}

std::vector<std::uint8_t> Encoding(const std::uint8_t* data, std::size_t size) {
  using base64_utils::Base64Utils;
  const std::string text(data, data + size);
  return Base64Utils::Base64Validate(text) ? Base64Utils::Base64DecodeToBinaryVector(text)
                                           : std::vector<std::uint8_t>(data, data + size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace truststore_update_client;
  const std::vector<std::uint8_t> encoding = Encoding(data, size);
  const std::string ours = PemOrNothing([&] { return PemOfCertificate(encoding); });
  // Beyond these bounds the library may take its time: that is what they are for.
  if (!BeyondSignerBounds(encoding).empty()) return 0;
  const std::string expected =
      PemOrNothing([&] { return Botan::X509_Certificate(encoding).PEM_encode(); });
  fuzz::Require(ours == expected, "the library and we agree on a certificate");
  return 0;
}
