#include "tests/support/TestContainer.h"

#include <botan/auto_rng.h>
#include <botan/data_src.h>
#include <botan/pkcs8.h>
#include <botan/pubkey.h>

#include <memory>

#include "base64_utils/Base64Utils.h"

namespace tests {

using base64_utils::Base64Utils;

namespace {

template <typename Encode>
std::string JsonArray(const std::vector<Bytes>& encodings, Encode encode) {
  std::string text = "[";
  for (const Bytes& encoding : encodings) {
    if (text.size() > 1) text += ",";
    text += "\"" + encode(encoding) + "\"";
  }
  return text + "]";
}

}  // namespace

TestContainer::TestContainer(const std::string& chainName)
    : keyPem(PkiText(chainName + "/leaf.key.pem")),
      fields{{"alg", "\"ES256\""},
             {"ts", "\"2026-01-02T03:04:05\""},
             {"ContainerId", "\"container-1\""},
             {"x5c", X5cArray(ChainBytes(chainName))}},
      payloadJson("{\"A\":" + BundleArray({PkiBytes("payload/00.der")}) + ",\"B\":" +
                  BundleArray({PkiBytes("payload/01.der"), PkiBytes("payload/02.der")}) + "}") {}

TestContainer& TestContainer::Algorithm(const std::string& rawValue) {
  fields[0].second = rawValue;
  return *this;
}

TestContainer& TestContainer::Timestamp(const std::string& rawValue) {
  fields[1].second = rawValue;
  return *this;
}

TestContainer& TestContainer::Id(const std::string& rawValue) {
  fields[2].second = rawValue;
  return *this;
}

TestContainer& TestContainer::X5c(const std::string& rawValue) {
  fields[3].second = rawValue;
  return *this;
}

TestContainer& TestContainer::HeaderJson(const std::string& text) {
  headerJson = text;
  return *this;
}

TestContainer& TestContainer::PayloadJson(const std::string& text) {
  payloadJson = text;
  return *this;
}

TestContainer& TestContainer::SpoilSignature() {
  spoiled = true;
  return *this;
}

std::string TestContainer::Build() const {
  const std::string signingInput =
      Base64Utils::Base64UrlEncode(Header()) + "." + Base64Utils::Base64UrlEncode(payloadJson);
  std::string signature = Sign(signingInput);
  if (spoiled) signature[40] = static_cast<char>(signature[40] ^ 1);
  return signingInput + "." + Base64Utils::Base64UrlEncode(signature);
}

std::string TestContainer::X5cArray(const std::vector<Bytes>& encodings) {
  return JsonArray(encodings, Base64Utils::Base64EncodeFromBinaryVector);
}

std::string TestContainer::BundleArray(const std::vector<Bytes>& encodings) {
  return JsonArray(encodings, Base64Utils::Base64UrlEncodeFromBinaryVector);
}

std::string TestContainer::Header() const {
  if (!headerJson.empty()) return headerJson;
  std::string text = "{";
  for (const auto& [key, value] : fields) {
    if (value.empty()) continue;
    if (text.size() > 1) text += ",";
    text.append("\"").append(key).append("\":").append(value);
  }
  return text + "}";
}

std::string TestContainer::Sign(const std::string& signingInput) const {
  Botan::AutoSeeded_RNG rng;
  Botan::DataSource_Memory source(keyPem);
  const std::unique_ptr<Botan::Private_Key> key(Botan::PKCS8::load_key(source));
  Botan::PK_Signer signer(*key, rng, "EMSA1(SHA-256)", Botan::IEEE_1363);
  signer.update(signingInput);
  const auto signature = signer.signature(rng);
  return {signature.begin(), signature.end()};
}

}  // namespace tests
