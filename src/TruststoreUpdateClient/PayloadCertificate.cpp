#include "TruststoreUpdateClient/PayloadCertificate.h"

#include <botan/ber_dec.h>
#include <botan/der_enc.h>
#include <botan/pkix_types.h>
#include <botan/x509cert.h>

#include "TruststoreUpdateClient/RawCertificate.h"

namespace truststore_update_client {

namespace {

void Append(Botan::DER_Encoder& encoder, const Botan::BER_Object& object) {
  encoder.add_object(object.type(), object.get_class(), object.bits(), object.length());
}

Botan::BER_Object WithinBound(Botan::BER_Object field) {
  if (field.length() > kMaxPayloadFieldBytes) throw Botan::Decoding_Error("field too long");
  return field;
}

Botan::X509_DN DecodeName(const Botan::BER_Object& object) {
  std::vector<std::uint8_t> encoding;
  Botan::DER_Encoder encoder(encoding);
  Append(encoder, object);
  Botan::X509_DN name;
  Botan::BER_Decoder(encoding).decode(name);
  return name;
}

// A name that differs from `subject` as the library compares names: no name at all, or some name
// where the subject is none. What it decodes counts, not the bytes: a subject of empty sets or
// empty texts is no name, too.
Botan::X509_DN OtherName(const Botan::BER_Object& subject) {
  Botan::X509_DN name;
  if (DecodeName(subject).empty()) name.add_attribute("X520.CommonName", "-");
  return name;
}

// The signed body of RFC 5280 section 4.1 with the issuer replaced. The issuer itself must be a
// name, as it must be for the library; every other field is passed on as it stands.
std::vector<std::uint8_t> BodyWithOtherIssuer(const RawCertificate& certificate) {
  Botan::BER_Decoder body(certificate.signed_body());
  std::vector<std::uint8_t> encoding;
  Botan::DER_Encoder twin(encoding);
  Botan::BER_Object field = body.get_next_object();
  if (field.is_a(0, Botan::ASN1_Tag(Botan::CONSTRUCTED | Botan::CONTEXT_SPECIFIC))) {
    Append(twin, field);
    field = body.get_next_object();
  }
  Append(twin, field);                              // serial number
  Append(twin, body.get_next_object());             // signature algorithm
  DecodeName(WithinBound(body.get_next_object()));  // issuer
  const Botan::BER_Object validity = body.get_next_object();
  const Botan::BER_Object subject = WithinBound(body.get_next_object());
  twin.encode(OtherName(subject));
  Append(twin, validity);
  Append(twin, subject);
  Append(twin, body.get_next_object());  // public key
  // Until an object is unset, not while bytes are left: the library passes over end-of-contents
  // marks.
  for (field = body.get_next_object(); field.is_set(); field = body.get_next_object()) {
    Append(twin, WithinBound(field));
  }
  return encoding;
}

std::vector<std::uint8_t> TwinOf(const RawCertificate& certificate) {
  std::vector<std::uint8_t> encoding;
  Botan::DER_Encoder(encoding)
      .start_cons(Botan::SEQUENCE)
      .start_cons(Botan::SEQUENCE)
      .raw_bytes(BodyWithOtherIssuer(certificate))
      .end_cons()
      .encode(certificate.signature_algorithm())
      .encode(certificate.signature(), Botan::BIT_STRING)
      .end_cons();
  return encoding;
}

}  // namespace

std::string PemOfCertificate(const std::vector<std::uint8_t>& encoding) {
  if (encoding.size() > kMaxPayloadCertificateBytes) {
    throw Botan::Decoding_Error("certificate too long");
  }
  const RawCertificate certificate(encoding);
  const Botan::X509_Certificate decoded(TwinOf(certificate));
  return certificate.PEM_encode();
}

}  // namespace truststore_update_client
