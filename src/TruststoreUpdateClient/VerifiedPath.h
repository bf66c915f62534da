/// Bounds the work of path validation for chains that a stranger has made: the library lists every
/// path that names allow before it verifies a signature, and certificates that share names multiply
/// the paths.
///
/// Used by HSM before it calls the library. No state; any thread. May throw what the cryptographic
/// library throws.
#ifndef TRUSTSTOREUPDATECLIENT_VERIFIEDPATH_H
#define TRUSTSTOREUPDATECLIENT_VERIFIEDPATH_H

#include <botan/x509cert.h>

#include <cstddef>
#include <vector>

namespace truststore_update_client {

/// The largest number of different certificates in `chain` that bear the same subject.
[[nodiscard]] std::size_t MostCertificatesOfOneSubject(
    const std::vector<Botan::X509_Certificate>& chain);

/// The number of subjects that more than one different certificate in `chain` bears.
[[nodiscard]] std::size_t SharedSubjects(const std::vector<Botan::X509_Certificate>& chain);

/// True when `certificate` names `issuer` as its issuer and was signed with its key. Throws when
/// that key cannot be used.
[[nodiscard]] bool IsIssuedBy(const Botan::X509_Certificate& certificate,
                              const Botan::X509_Certificate& issuer);

/// The part of `chain` (leaf first) that path validation against `root` needs to come to the same
/// verdict: the leaf, and those certificates through which verified signatures lead from the leaf
/// to `root`. A path with any other certificate fails at a signature. Where no two certificates
/// share a subject there is one path at most, and the whole chain is returned without a look at
/// signatures.
[[nodiscard]] std::vector<Botan::X509_Certificate> CertificatesOnVerifiedPaths(
    const std::vector<Botan::X509_Certificate>& chain, const Botan::X509_Certificate& root);

}  // namespace truststore_update_client

#endif
