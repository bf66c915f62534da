#include "tools/tsc/ContainerWriter.h"

#include <botan/pubkey.h>
#include <botan/system_rng.h>

#include <nlohmann/json.hpp>
#include <string_view>

#include "base64_utils/Base64Utils.h"

namespace tsc {

using base64_utils::Base64Utils;

namespace {

std::string Dump(const nlohmann::ordered_json& json) {
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

// Base64url without padding (RFC 7515 section 2).
template <typename Bytes>
std::string Segment(const Bytes& bytes) {
  std::string text = Base64Utils::Base64UrlEncode(
      std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  text.resize(text.find_last_not_of('=') + 1);
  return text;
}

}  // namespace

std::string HeaderText(const ContainerDraft& draft) {
  nlohmann::ordered_json chain = nlohmann::ordered_json::array();
  for (const auto& certificate : draft.chain) {
    chain.push_back(Base64Utils::Base64EncodeFromBinaryVector(certificate.BER_encode()));
  }
  nlohmann::ordered_json header;
  header["alg"] = draft.algorithm;
  header["ts"] = draft.timestamp;
  header["ContainerId"] = draft.id;
  header["x5c"] = std::move(chain);
  return Dump(header);
}

std::string PayloadText(const ContainerDraft& draft) {
  nlohmann::ordered_json payload = nlohmann::ordered_json::object();
  for (const auto& [name, certificates] : draft.bundles) {
    nlohmann::ordered_json& bundle = payload[name] = nlohmann::ordered_json::array();
    for (const auto& certificate : certificates)
      bundle.push_back(Segment(certificate.BER_encode()));
  }
  return Dump(payload);
}

std::string WriteContainer(const ContainerDraft& draft, const Botan::Private_Key& key) {
  std::string container = Segment(HeaderText(draft)) + "." + Segment(PayloadText(draft));
  // RFC 7518 section 3.4.
  Botan::PK_Signer signer(key, Botan::system_rng(), "EMSA1(SHA-256)", Botan::IEEE_1363);
  signer.update(container);
  return container + "." + Segment(signer.signature(Botan::system_rng()));
}

}  // namespace tsc
