#include "TruststoreUpdateClient/SignerKeyBounds.h"

#include <botan/alg_id.h>
#include <botan/ber_dec.h>
#include <botan/bigint.h>
#include <botan/oids.h>

#include <exception>

#include "TruststoreUpdateClient/RawCertificate.h"

namespace truststore_update_client {

namespace {

constexpr int kFieldsBetweenSerialAndKey = 4;  // signature, issuer, validity, subject

// Steps through the signed body with the library's own decoder, so that both see the same key.
Botan::BER_Object SubjectPublicKey(const RawCertificate& certificate) {
  Botan::BER_Decoder body(certificate.signed_body());
  Botan::BER_Object field = body.get_next_object();
  const bool isVersion =
      field.is_a(0, Botan::ASN1_Tag(Botan::CONSTRUCTED | Botan::CONTEXT_SPECIFIC));
  if (isVersion) field = body.get_next_object();
  for (int i = 0; i < kFieldsBetweenSerialAndKey; ++i) field = body.get_next_object();
  return body.get_next_object();
}

std::string BeyondRsaBounds(const std::vector<std::uint8_t>& keyBits) {
  Botan::BigInt modulus;
  Botan::BigInt exponent;
  Botan::BER_Decoder(keyBits).start_cons(Botan::SEQUENCE).decode(modulus).decode(exponent);
  if (modulus.bits() > kMaxRsaModulusBits) return "RSA modulus too long";
  if (exponent.bits() > kMaxRsaExponentBits) return "RSA exponent too long";
  return {};
}

// Estimating the strength of a McEliece key of a few bytes takes the library hours; others can
// encrypt, but sign nothing.
bool IsForSignatures(const std::string& algorithm) {
  return algorithm == "ECDSA" || algorithm == "Ed25519";
}

std::string BeyondKeyBounds(const std::vector<std::uint8_t>& encoding) {
  const Botan::BER_Object key = SubjectPublicKey(RawCertificate(encoding));
  Botan::AlgorithmIdentifier algorithm;
  std::vector<std::uint8_t> keyBits;
  Botan::BER_Decoder(key).decode(algorithm).decode(keyBits, Botan::BIT_STRING);
  // RSA keys of every use (RSA, RSA/EMSA4, RSA/OAEP) have one form.
  const std::string name = Botan::OIDS::oid2str_or_empty(algorithm.get_oid());
  if (name.compare(0, 3, "RSA") == 0) return BeyondRsaBounds(keyBits);
  if (!name.empty() && !IsForSignatures(name)) return "key algorithm not for signers";
  if (algorithm.get_parameters().size() > kMaxKeyParameterBytes) return "key parameters too long";
  return {};
}

}  // namespace

std::string BeyondSignerBounds(const std::vector<std::uint8_t>& encoding) {
  if (encoding.size() > kMaxSignerCertificateBytes) return "certificate too long";
  try {
    return BeyondKeyBounds(encoding);
  } catch (const std::exception&) {
    return {};
  }
}

}  // namespace truststore_update_client
