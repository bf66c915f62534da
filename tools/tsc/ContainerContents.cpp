#include "tools/tsc/ContainerContents.h"

#include <algorithm>
#include <optional>

#include "TruststoreUpdateClient/ContainerParsing.h"
#include "TruststoreUpdateClient/QuotedTexts.h"
#include "TruststoreUpdateClient/SignerKeyBounds.h"
#include "base64_utils/Base64Utils.h"
#include "json_parser/JsonParser.h"

namespace tsc {

using base64_utils::Base64Utils;
using json_parser::KeyValuePairs;
using platform_host::Error;
using platform_host::Result;
using truststore_update_client::QuotedTexts;

namespace {

using Facts = std::vector<CertificateFacts>;

std::string FieldText(const KeyValuePairs& pairs, std::string_view key) {
  for (const auto& pair : pairs) {
    if (pair.key == key) return std::string(pair.value);
  }
  return "";
}

Result<KeyValuePairs> ReadPairs(std::string_view segment, std::size_t limit) {
  std::string text = Base64Utils::Base64UrlDecode(segment);
  if (text.empty()) return Error("no base64url text");
  if (text.size() > limit) return Error("more than " + std::to_string(limit) + " bytes");
  const json_parser::JsonParser parser(std::move(text));
  const KeyValuePairs pairs = parser.GetValuesForAllKeys();
  if (parser.GetParserStatus() < 1 || pairs.begin() == pairs.end()) {
    return Error("no JSON object with any key");
  }
  return pairs;
}

// `unescape`: the chain's elements may carry escaped slashes.
std::string DecodeElement(std::string_view element, bool unescape) {
  std::string text(element);
  if (unescape) text.erase(std::remove(text.begin(), text.end(), '\\'), text.end());
  return Base64Utils::Base64Decode(text);
}

Result<Facts> ReadCertificates(std::string_view array, bool unescape) {
  Facts all;
  QuotedTexts elements(array);
  std::string_view element;
  while (elements.Next(element)) {
    const std::string bytes = DecodeElement(element, unescape);
    if (bytes.empty()) return Error("[" + std::to_string(all.size()) + "]: no base64 text");
    all.push_back(FactsOf({bytes.begin(), bytes.end()}));
  }
  if (elements.IsUnterminated()) {
    return Error("[" + std::to_string(all.size()) + "]: a quote is missing");
  }
  return all;
}

// Empty, or the error.
std::optional<Error> ReadHeader(std::string_view segment, ContainerContents& contents) {
  const auto pairs = ReadPairs(segment, truststore_update_client::kMaxHeaderBytes);
  if (!pairs.Ok()) return pairs.Failure().WithContext("header");
  contents.algorithm = FieldText(pairs.Value(), "alg");
  contents.timestamp = FieldText(pairs.Value(), "ts");
  contents.id = FieldText(pairs.Value(), "ContainerId");
  auto chain = ReadCertificates(FieldText(pairs.Value(), "x5c"), true);
  if (!chain.Ok()) return Error("header: x5c" + chain.Failure().Text());
  contents.chain = std::move(chain).Take();
  return std::nullopt;
}

// Empty, or the error.
std::optional<Error> ReadPayload(std::string_view segment, ContainerContents& contents) {
  const auto pairs = ReadPairs(segment, json_parser::kMaxTextBytes);
  if (!pairs.Ok()) return pairs.Failure().WithContext("payload");
  for (const auto& pair : pairs.Value()) {
    auto certificates = ReadCertificates(pair.value, false);
    if (!certificates.Ok()) {
      return Error("payload: " + std::string(pair.key) + certificates.Failure().Text());
    }
    contents.bundles.push_back({std::string(pair.key), std::move(certificates).Take()});
  }
  return std::nullopt;
}

nlohmann::ordered_json ToJson(const Facts& all) {
  auto list = nlohmann::ordered_json::array();
  for (const auto& facts : all) list.push_back(ToJson(facts));
  return list;
}

}  // namespace

Result<ContainerContents> ReadContainer(const std::string& text) {
  const auto dots = std::count(text.begin(), text.end(), '.');
  if (dots != 2) return Error("no container: " + std::to_string(dots) + " dots in place of 2");
  const std::string_view all = text;
  const auto first = all.find('.');
  const auto last = all.rfind('.');
  ContainerContents contents;
  if (const auto error = ReadHeader(all.substr(0, first), contents)) return *error;
  if (const auto error = ReadPayload(all.substr(first + 1, last - first - 1), contents)) {
    return *error;
  }
  contents.signatureBytes = Base64Utils::Base64UrlDecode(all.substr(last + 1)).size();
  if (contents.signatureBytes == 0) return Error("signature: no base64url text");
  return contents;
}

nlohmann::ordered_json ToJson(const ContainerContents& contents) {
  nlohmann::ordered_json told;
  told["algorithm"] = contents.algorithm;
  told["timestamp"] = contents.timestamp;
  told["container_id"] = contents.id;
  told["signature_bytes"] = contents.signatureBytes;
  told["chain"] = ToJson(contents.chain);
  told["bundles"] = nlohmann::ordered_json::array();
  for (const auto& bundle : contents.bundles) {
    nlohmann::ordered_json entry;
    entry["name"] = bundle.name;
    entry["certificates"] = ToJson(bundle.certificates);
    told["bundles"].push_back(std::move(entry));
  }
  return told;
}

}  // namespace tsc
