#include "TruststoreUpdateClient/OcspResponseCheck.h"

#include <botan/asn1_obj.h>
#include <botan/ber_dec.h>
#include <botan/der_enc.h>
#include <botan/ocsp.h>
#include <botan/x509_ext.h>

#include <algorithm>
#include <exception>
#include <new>
#include <string_view>

#include "TruststoreUpdateClient/SignerKeyBounds.h"
#include "TruststoreUpdateClient/VerifiedPath.h"

namespace truststore_update_client {

using Botan::BER_Decoder;
using Botan::BER_Object;
using Botan::X509_Certificate;
using Status = Botan::Certificate_Status_Code;

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kDerSequence = 0x30;
const Botan::OID kOcspSigning("1.3.6.1.5.5.7.3.9");
constexpr std::string_view kPemBegin = "-----BEGIN ";

// One element of the answer's list of certificates, which holds any number of them. The library
// reads text in place of DER wherever this marker is found.
std::string BeyondCertificateBounds(const Bytes& content) {
  const bool hasText = std::search(content.begin(), content.end(), kPemBegin.begin(),
                                   kPemBegin.end()) != content.end();
  if (content.empty() || content.front() != kDerSequence || hasText) return "certificate not DER";
  BER_Decoder certificates(content);
  while (certificates.more_items()) {
    const BER_Object certificate = certificates.get_next_object();
    Bytes encoding;
    Botan::DER_Encoder(encoding).add_object(Botan::SEQUENCE, Botan::CONSTRUCTED, certificate.bits(),
                                            certificate.length());
    std::string reason = BeyondSignerBounds(encoding);
    if (!reason.empty()) return reason;
  }
  return {};
}

// Steps through a BasicOCSPResponse (RFC 6960 section 4.2.1) with the library's own decoder and in
// its own steps, so that both find the same certificates.
std::string BeyondListBounds(const Bytes& response) {
  BER_Decoder outer = BER_Decoder(response).start_cons(Botan::SEQUENCE);
  outer.get_next_object();  // status
  BER_Decoder typed = outer.start_cons(Botan::ASN1_Tag(0), Botan::CONTEXT_SPECIFIC);
  BER_Decoder bytes = typed.start_cons(Botan::SEQUENCE);
  bytes.get_next_object();  // type
  const auto encoded = bytes.get_next_octet_string();
  BER_Decoder basic = BER_Decoder(encoded).start_cons(Botan::SEQUENCE);
  constexpr int kFieldsBeforeCertificates = 3;  // signed data, algorithm, signature
  for (int i = 0; i < kFieldsBeforeCertificates; ++i) basic.get_next_object();
  const BER_Object list = basic.get_next_object();
  if (!list.is_a(0, Botan::ASN1_Tag(Botan::CONSTRUCTED | Botan::CONTEXT_SPECIFIC))) return {};
  BER_Decoder elements(list);
  while (elements.more_items()) {
    const BER_Object element = elements.get_next_object();
    std::string reason =
        BeyondCertificateBounds(Bytes(element.bits(), element.bits() + element.length()));
    if (!reason.empty()) return reason;
  }
  return {};
}

bool HasUnknownCriticalExtension(const X509_Certificate& certificate) {
  const Botan::Extensions& extensions = certificate.v3_extensions();
  const auto& oids = extensions.get_extension_oids();
  return std::any_of(oids.begin(), oids.end(), [&extensions](const Botan::OID& oid) {
    const auto* extension = extensions.get_extension_object(oid);
    return extensions.critical_extension_set(oid) &&
           dynamic_cast<const Botan::Cert_Extension::Unknown_Extension*>(extension) != nullptr;
  });
}

// RFC 6960 section 4.2.2.2. The library's own check takes a responder out of its time, and one
// without any extended key usage.
bool MayAnswerFor(const X509_Certificate& responder, const X509_Certificate& issuer,
                  const Botan::X509_Time& now) {
  return responder.has_ex_constraint(kOcspSigning) &&
         responder.allowed_usage(Botan::DIGITAL_SIGNATURE) && responder.not_before() <= now &&
         now <= responder.not_after() && !HasUnknownCriticalExtension(responder) &&
         IsIssuedBy(responder, issuer);
}

// A responder that is itself asked about would vouch for its own key, stolen or not.
bool HasKeyOf(const X509_Certificate& responder, const X509_Certificate& certificate) {
  return responder.subject_public_key_bits() == certificate.subject_public_key_bits();
}

Status SignatureOf(const Botan::OCSP::Response& answer, const X509_Certificate& certificate,
                   const X509_Certificate& issuer, const Botan::X509_Time& now) {
  if (answer.verify_signature(issuer) == Status::OCSP_SIGNATURE_OK) {
    return Status::OCSP_SIGNATURE_OK;
  }
  for (const X509_Certificate& responder : answer.certificates()) {
    if (HasKeyOf(responder, certificate) || !MayAnswerFor(responder, issuer, now)) continue;
    if (answer.verify_signature(responder) == Status::OCSP_SIGNATURE_OK) {
      return Status::OCSP_SIGNATURE_OK;
    }
  }
  return Status::OCSP_SIGNATURE_ERROR;
}

}  // namespace

bool OcspVerdict::IsGood() const {
  return status == Status::OCSP_RESPONSE_GOOD && signature == Status::OCSP_SIGNATURE_OK;
}

std::string BeyondOcspBounds(const Bytes& response) {
  if (response.size() > kMaxOcspResponseBytes) return "answer too long";
  try {
    return BeyondListBounds(response);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    return {};
  }
}

OcspVerdict EvaluateOcspResponse(const X509_Certificate& certificate,
                                 const X509_Certificate& issuer, const Bytes& response,
                                 std::chrono::system_clock::time_point now) {
  const Botan::OCSP::Response answer(response);
  OcspVerdict verdict;
  // Without the answer itself the library tells a status that reads like a success.
  if (answer.status() != Botan::OCSP::Response_Status_Code::Successful) return verdict;
  verdict.status = answer.status_for(issuer, certificate, now, kMaxOcspAge);
  verdict.signature = SignatureOf(answer, certificate, issuer, Botan::X509_Time(now));
  return verdict;
}

std::string OcspStatusText(Status status) {
  switch (status) {
    case Status::OCSP_RESPONSE_GOOD:
      return "good";
    case Status::OCSP_SIGNATURE_OK:
      return "OK";
    case Status::CERT_IS_REVOKED:
      return "revoked";
    case Status::OCSP_BAD_STATUS:
      return "unknown to the responder";
    case Status::OCSP_CERT_NOT_LISTED:
      return "not in the answer";
    case Status::OCSP_NOT_YET_VALID:
      return "answer not valid yet";
    case Status::OCSP_HAS_EXPIRED:
      return "answer expired";
    case Status::OCSP_IS_TOO_OLD:
      return "answer too old";
    case Status::OCSP_RESPONSE_INVALID:
      return "no usable answer";
    case Status::OCSP_SIGNATURE_ERROR:
      return "not signed by the issuer or its responder";
    default:
      return "status " + std::to_string(static_cast<int>(status));
  }
}

}  // namespace truststore_update_client
