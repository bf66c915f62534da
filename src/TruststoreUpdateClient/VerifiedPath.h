/// Bounds the work of path validation for chains that a stranger has made: the library lists every
/// path that names allow before it verifies a signature, and certificates that share names multiply
/// the paths.
///
/// Used by HSM before it calls the library. May throw what the cryptographic library throws.
#ifndef TRUSTSTOREUPDATECLIENT_VERIFIEDPATH_H
#define TRUSTSTOREUPDATECLIENT_VERIFIEDPATH_H

#include <botan/x509cert.h>

#include <cstddef>
#include <vector>

namespace truststore_update_client {

/// The largest number of different certificates in `chain` that bear the same subject, as the
/// library compares names: without regard to case and white space. Any thread.
[[nodiscard]] std::size_t MostCertificatesOfOneSubject(
    const std::vector<Botan::X509_Certificate>& chain);

/// The number of subjects that more than one different certificate in `chain` bears. Any thread.
[[nodiscard]] std::size_t SharedSubjects(const std::vector<Botan::X509_Certificate>& chain);

/// True when `certificate` names `issuer` as its issuer and was signed with its key. A key that
/// cannot be used has signed nothing. Any thread.
[[nodiscard]] bool IsIssuedBy(const Botan::X509_Certificate& certificate,
                              const Botan::X509_Certificate& issuer);

/// The certificates of one chain and which of them signed which. Built once a chain, asked once a
/// root. Immutable after construction: any thread.
class VerifiedPaths {
 public:
  /// REQUIRES: `chain` is leaf first. Where no two certificates share a subject there is one path
  /// at most: no signature is looked at.
  explicit VerifiedPaths(const std::vector<Botan::X509_Certificate>& chain);

  /// What path validation against `root` needs to come to the same verdict as with the whole chain:
  /// the leaf, and those certificates through which verified signatures lead from the leaf to
  /// `root`. A path with any other certificate fails at a signature. Where no two certificates
  /// share a subject: the whole chain.
  [[nodiscard]] std::vector<Botan::X509_Certificate> LeadingTo(
      const Botan::X509_Certificate& root) const;

 private:
  [[nodiscard]] std::vector<bool> LeadsTo(const Botan::X509_Certificate& root) const;

  bool hasSharedSubjects;
  std::vector<Botan::X509_Certificate> certificates;  // each once, if subjects are shared
  std::vector<std::vector<std::size_t>> issuers;      // of each certificate, in `certificates`
};

}  // namespace truststore_update_client

#endif
