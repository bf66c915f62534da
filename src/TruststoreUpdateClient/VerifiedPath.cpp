#include "TruststoreUpdateClient/VerifiedPath.h"

#include <botan/pk_keys.h>
#include <botan/pkix_types.h>

#include <algorithm>
#include <exception>
#include <map>
#include <set>

namespace truststore_update_client {

using Botan::X509_Certificate;

namespace {

std::map<Botan::X509_DN, std::set<std::vector<std::uint8_t>>> BySubject(
    const std::vector<X509_Certificate>& chain) {
  std::map<Botan::X509_DN, std::set<std::vector<std::uint8_t>>> encodings;
  for (const X509_Certificate& certificate : chain) {
    encodings[certificate.subject_dn()].insert(certificate.BER_encode());
  }
  return encodings;
}

bool IsSignedBy(const X509_Certificate& certificate, const X509_Certificate& issuer) {
  try {
    return IsIssuedBy(certificate, issuer);
  } catch (const std::exception&) {
    return false;  // a key that cannot be used signs nothing
  }
}

// Which certificate is signed by which other one: each pair with fitting names is verified once.
class SignatureGraph {
 public:
  SignatureGraph(const std::vector<X509_Certificate>& certificates, const X509_Certificate& root)
      : chain(certificates), issuers(certificates.size()), leads(certificates.size()) {
    for (std::size_t i = 0; i < chain.size(); ++i) {
      leads[i] = chain[i] == root || IsSignedBy(chain[i], root);
      for (std::size_t j = 0; j < chain.size(); ++j) {
        if (i != j && IsSignedBy(chain[i], chain[j])) issuers[i].push_back(j);
      }
    }
    SpreadFromRoot();
  }

  // The certificates above the leaf that lead to the root, the leaf first.
  std::vector<X509_Certificate> Select() const {
    std::vector<X509_Certificate> selected{chain.front()};
    std::vector<bool> seen(chain.size());
    seen[0] = true;
    std::vector<std::size_t> pending{0};
    while (!pending.empty()) {
      const std::size_t current = pending.back();
      pending.pop_back();
      for (const std::size_t issuer : issuers[current]) {
        if (seen[issuer] || !leads[issuer]) continue;
        seen[issuer] = true;
        selected.push_back(chain[issuer]);
        pending.push_back(issuer);
      }
    }
    return selected;
  }

 private:
  void SpreadFromRoot() {
    for (bool changed = true; changed;) {
      changed = false;
      for (std::size_t i = 0; i < chain.size(); ++i) {
        const auto leadsToRoot = [this](std::size_t issuer) { return bool{leads[issuer]}; };
        if (leads[i] || std::none_of(issuers[i].begin(), issuers[i].end(), leadsToRoot)) continue;
        leads[i] = true;
        changed = true;
      }
    }
  }

  const std::vector<X509_Certificate>& chain;
  std::vector<std::vector<std::size_t>> issuers;
  std::vector<bool> leads;
};

}  // namespace

std::size_t MostCertificatesOfOneSubject(const std::vector<X509_Certificate>& chain) {
  std::size_t most = 0;
  for (const auto& entry : BySubject(chain)) most = std::max(most, entry.second.size());
  return most;
}

std::size_t SharedSubjects(const std::vector<X509_Certificate>& chain) {
  std::size_t shared = 0;
  for (const auto& entry : BySubject(chain)) shared += entry.second.size() > 1 ? 1U : 0U;
  return shared;
}

bool IsIssuedBy(const X509_Certificate& certificate, const X509_Certificate& issuer) {
  if (certificate.issuer_dn() != issuer.subject_dn()) return false;
  const auto key = issuer.load_subject_public_key();
  return certificate.check_signature(*key);
}

std::vector<X509_Certificate> CertificatesOnVerifiedPaths(
    const std::vector<X509_Certificate>& chain, const X509_Certificate& root) {
  if (MostCertificatesOfOneSubject(chain) <= 1) return chain;
  return SignatureGraph(chain, root).Select();
}

}  // namespace truststore_update_client
