#include "tools/tsc/SignerChecks.h"

#include <botan/ecdsa.h>

#include <chrono>
#include <string_view>

#include "TruststoreUpdateClient/CommonNamePattern.h"
#include "TruststoreUpdateClient/HSM.h"
#include "TruststoreUpdateClient/SignerKeyBounds.h"
#include "TruststoreUpdateClient/VerifiedPath.h"
#include "tools/tsc/Certificates.h"
#include "tools/tsc/ContainerId.h"
#include "tools/tsc/Timestamps.h"
#include "tools/tsc/UnitStore.h"

namespace tsc {

using Texts = std::vector<std::string>;
namespace tuc = truststore_update_client;

namespace {

constexpr std::size_t kMinimumKeyStrength = 128;
constexpr std::uint32_t kDaySeconds = 86400;

std::string Element(std::size_t index) {
  return "x5c[" + std::to_string(index) + "]: ";
}

void CheckHeader(const ContainerDraft& draft, Texts& objections) {
  if (draft.algorithm != "ES256") objections.push_back("alg: a unit takes ES256 only");
  for (const auto& objection : IdObjections(draft.id)) {
    objections.push_back("ContainerId: " + objection);
  }
  const std::uint32_t now = SecondsNow();
  const auto timestamp = ParseTimestamp(draft.timestamp, now);
  if (!timestamp.has_value()) {
    objections.push_back("ts: no date and time");
  } else if (*timestamp > now && *timestamp - now > kDaySeconds) {
    objections.push_back("ts: more than 24 hours ahead");
  }
}

void CheckKey(const ContainerDraft& draft, const Botan::Private_Key& key, Texts& objections) {
  const auto* ecdsa = dynamic_cast<const Botan::ECDSA_PrivateKey*>(&key);
  if (ecdsa == nullptr || ecdsa->domain().get_curve_oid() != Botan::OID("1.2.840.10045.3.1.7")) {
    objections.push_back("key: ES256 needs an EC key on P-256");
  }
  try {
    const auto leafKey = draft.chain.front().load_subject_public_key();
    if (leafKey->subject_public_key() == key.subject_public_key()) return;
    objections.push_back("key: does not belong to the first certificate of the chain");
  } catch (const std::exception& exception) {
    objections.push_back(Element(0) + exception.what());
  }
}

void CheckElement(const ContainerDraft& draft, std::size_t index, Texts& objections) {
  const auto& certificate = draft.chain[index];
  const Botan::X509_Time now(std::chrono::system_clock::now());
  if (now < certificate.not_before()) objections.push_back(Element(index) + "not valid yet");
  if (now > certificate.not_after()) objections.push_back(Element(index) + "expired");
  if (certificate.load_subject_public_key()->estimated_strength() < kMinimumKeyStrength) {
    objections.push_back(Element(index) + "key too weak");
  }
  if (index > 0 && !certificate.is_CA_cert()) objections.push_back(Element(index) + "not a CA");
  if (index + 1 < draft.chain.size() && !tuc::IsIssuedBy(certificate, draft.chain[index + 1])) {
    objections.push_back(Element(index) + "not issued by the next certificate");
  }
}

void CheckChain(const ContainerDraft& draft, Texts& objections) {
  for (std::size_t index = 0; index < draft.chain.size(); ++index) {
    const std::string bound = tuc::BeyondSignerBounds(draft.chain[index].BER_encode());
    if (!bound.empty()) {
      objections.push_back(Element(index) + bound);
      continue;
    }
    try {
      CheckElement(draft, index, objections);
    } catch (const std::exception& exception) {
      objections.push_back(Element(index) + exception.what());
    }
  }
  if (draft.chain.size() > tuc::kMaxSignerCertificates) {
    objections.push_back("x5c: more than " + std::to_string(tuc::kMaxSignerCertificates) +
                         " certificates");
  }
  if (tuc::MostCertificatesOfOneSubject(draft.chain) > tuc::kMaxCertificatesOfOneSubject) {
    objections.push_back("x5c: too many certificates of one subject");
  }
}

void CheckBundles(const ContainerDraft& draft, Texts& objections) {
  if (draft.bundles.empty()) objections.push_back("bundle: at least one is needed");
  for (const auto& [name, certificates] : draft.bundles) {
    if (NeedsEscape(name)) {
      objections.push_back("bundle '" + name + "': has a character that JSON must escape");
    }
    if (!FitsStore(name)) {
      objections.push_back("bundle '" + name + "': name too long for a unit's store");
    }
  }
}

}  // namespace

Texts Objections(const ContainerDraft& draft, const Botan::Private_Key& key) {
  Texts objections;
  CheckHeader(draft, objections);
  if (draft.chain.empty()) {
    objections.push_back("x5c: empty");
  } else {
    CheckKey(draft, key, objections);
    const std::string commonName = CommonNameOf(draft.chain.front());
    if (!tuc::MatchesPrefixPattern(commonName, tuc::TARGET_COMMON_NAME)) {
      objections.push_back(Element(0) + "Common Name '" + commonName + "' does not match " +
                           tuc::TARGET_COMMON_NAME);
    }
    CheckChain(draft, objections);
  }
  CheckBundles(draft, objections);
  return objections;
}

}  // namespace tsc
