/// A certificate taken apart into its signed body, algorithm and signature, and no further (RFC
/// 5280 section 4.1).
///
/// Constructing Botan::X509_Certificate also verifies the signature of most self-issued
/// certificates, which costs up to seconds for a hostile key and is most of the time of an
/// installation. What needs only the outer form, or has to look at a stranger's key first, reads
/// this. Immutable after construction: any thread.
#ifndef TRUSTSTOREUPDATECLIENT_RAWCERTIFICATE_H
#define TRUSTSTOREUPDATECLIENT_RAWCERTIFICATE_H

#include <botan/x509_obj.h>

#include <cstdint>
#include <string>
#include <vector>

namespace truststore_update_client {

/// Decodes exactly what Botan::X509_Certificate decodes first: DER, or PEM text in its place.
/// PEM_encode and BER_encode give the same as those of an X509_Certificate from the same bytes.
class RawCertificate : public Botan::X509_Object {
 public:
  /// Throws what the library throws for bytes that are no signed object.
  explicit RawCertificate(const std::vector<std::uint8_t>& encoding);

  std::string PEM_label() const override;
  std::vector<std::string> alternate_PEM_labels() const override;

 private:
  void force_decode() override {}
};

}  // namespace truststore_update_client

#endif
