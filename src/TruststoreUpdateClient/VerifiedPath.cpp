#include "TruststoreUpdateClient/VerifiedPath.h"

#include <botan/pk_keys.h>
#include <botan/pkix_types.h>

#include <algorithm>
#include <exception>
#include <memory>

namespace truststore_update_client {

using Botan::X509_Certificate;

namespace {

using Certificates = std::vector<X509_Certificate>;
using Key = std::unique_ptr<Botan::Public_Key>;

// A chain has sixteen certificates at most, so that comparing each with each costs nothing. The
// order of the library's names is none to build a map on: it differs from their equality.
Certificates EachOnce(const Certificates& chain) {
  Certificates different;
  for (const X509_Certificate& certificate : chain) {
    if (std::find(different.begin(), different.end(), certificate) == different.end()) {
      different.push_back(certificate);
    }
  }
  return different;
}

std::size_t WithSubjectOf(const X509_Certificate& certificate, const Certificates& different) {
  return static_cast<std::size_t>(
      std::count_if(different.begin(), different.end(), [&certificate](const auto& other) {
        return other.subject_dn() == certificate.subject_dn();
      }));
}

// Null for a key that cannot be used: it signs nothing.
Key LoadKey(const X509_Certificate& certificate) {
  try {
    return certificate.load_subject_public_key();
  } catch (const std::exception&) {
    return nullptr;
  }
}

bool IsSignedBy(const X509_Certificate& certificate, const X509_Certificate& issuer,
                const Key& issuerKey) {
  return issuerKey && certificate.issuer_dn() == issuer.subject_dn() &&
         certificate.check_signature(*issuerKey);
}

}  // namespace

std::size_t MostCertificatesOfOneSubject(const Certificates& chain) {
  const Certificates different = EachOnce(chain);
  std::size_t most = 0;
  for (const X509_Certificate& certificate : different) {
    most = std::max(most, WithSubjectOf(certificate, different));
  }
  return most;
}

std::size_t SharedSubjects(const Certificates& chain) {
  const Certificates different = EachOnce(chain);
  std::vector<Botan::X509_DN> shared;
  for (const X509_Certificate& certificate : different) {
    if (WithSubjectOf(certificate, different) < 2) continue;
    const Botan::X509_DN& subject = certificate.subject_dn();
    if (std::find(shared.begin(), shared.end(), subject) == shared.end()) shared.push_back(subject);
  }
  return shared.size();
}

bool IsIssuedBy(const X509_Certificate& certificate, const X509_Certificate& issuer) {
  return IsSignedBy(certificate, issuer, LoadKey(issuer));
}

VerifiedPaths::VerifiedPaths(const Certificates& chain)
    : hasSharedSubjects(MostCertificatesOfOneSubject(chain) > 1),
      certificates(hasSharedSubjects ? EachOnce(chain) : chain),
      issuers(certificates.size()) {
  if (!hasSharedSubjects) return;
  for (std::size_t issuer = 0; issuer < certificates.size(); ++issuer) {
    const Key key = LoadKey(certificates[issuer]);
    for (std::size_t i = 0; i < certificates.size(); ++i) {
      if (i != issuer && IsSignedBy(certificates[i], certificates[issuer], key)) {
        issuers[i].push_back(issuer);
      }
    }
  }
}

std::vector<bool> VerifiedPaths::LeadsTo(const X509_Certificate& root) const {
  const Key key = LoadKey(root);
  std::vector<bool> leads(certificates.size());
  for (std::size_t i = 0; i < certificates.size(); ++i) {
    leads[i] = certificates[i] == root || IsSignedBy(certificates[i], root, key);
  }
  for (bool changed = true; changed;) {
    changed = false;
    for (std::size_t i = 0; i < certificates.size(); ++i) {
      const auto leadsToRoot = [&leads](std::size_t issuer) { return bool{leads[issuer]}; };
      if (leads[i] || std::none_of(issuers[i].begin(), issuers[i].end(), leadsToRoot)) continue;
      leads[i] = true;
      changed = true;
    }
  }
  return leads;
}

Certificates VerifiedPaths::LeadingTo(const X509_Certificate& root) const {
  if (!hasSharedSubjects) return certificates;
  const std::vector<bool> leads = LeadsTo(root);
  Certificates selected{certificates.front()};
  std::vector<bool> seen(certificates.size());
  seen[0] = true;
  std::vector<std::size_t> pending{0};
  while (!pending.empty()) {
    const std::size_t current = pending.back();
    pending.pop_back();
    for (const std::size_t issuer : issuers[current]) {
      if (seen[issuer] || !leads[issuer]) continue;
      seen[issuer] = true;
      selected.push_back(certificates[issuer]);
      pending.push_back(issuer);
    }
  }
  return selected;
}

}  // namespace truststore_update_client
