// A container as a stranger sends it, and its parts one by one so that the layers of base64 hide
// nothing from the fuzzer: nothing throws, and every result is one of those that the caller knows.
// The first byte chooses the part.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "TruststoreUpdateClient/CertificateBundles.h"
#include "TruststoreUpdateClient/CommonNamePattern.h"
#include "TruststoreUpdateClient/ContainerParsing.h"
#include "TruststoreUpdateClient/SignerKeyBounds.h"
#include "fuzz/Require.h"
#include "platform/host/csc_logging/CapturedLog.h"

namespace {

using fuzz::Require;
using json_parser::KeyValuePairs;
using namespace truststore_update_client;

const ContainerParsing kParsing{};

void ReadHeader(const KeyValuePairs& header) {
  std::uint32_t timestamp = 1;
  if (kParsing.ParseContainerEpochTimestamp(header, timestamp) != 0) {
    Require(timestamp == 0, "a failed timestamp is zero");
  }
  std::string text;
  kParsing.FormatTimestamp(timestamp, text);
  (void)kParsing.ParseAlgorithm(header);
  if (kParsing.ParseContainerId(header, text) == 0) Require(!text.empty(), "an id is not empty");
  std::vector<Botan::X509_Certificate> chain;
  if (kParsing.GetValueForKey(header, "x5c", text) != 0) return;
  const int result = kParsing.ParseX5CCertificates(text, chain);
  Require(result == 0 || result == 5, "a chain is read or refused");
  if (result == 0) {
    Require(!chain.empty() && chain.size() <= kMaxSignerCertificates, "a chain is within bounds");
  }
}

void ReadContainer(std::string_view container) {
  std::string_view signingInput;
  std::string signature;
  KeyValuePairs header;
  const int result = kParsing.ContainerSplitter(container, signingInput, signature, header);
  Require(result == 0 || result == 3, "a container is split or refused");
  if (result != 0) return;
  Require(!signature.empty() && signingInput.size() < container.size(), "all parts are there");
  ReadHeader(header);
}

void ReadPayload(const std::string& json) {
  KeyValuePairs pairs;
  if (kParsing.PopulateJsonData(json, pairs) != 0) return;
  CertificateBundles bundles;
  const ResponseStatus status = DecodeCertificateBundles(pairs, bundles);
  Require(status == kInstalled || status == kNotParsed || status == kPayloadCertificateInvalid,
          "a payload is decoded or refused");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const platform_host::CapturedLog log;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  KeyValuePairs header;
  switch (data[0]) {
    case 'h':
      if (kParsing.PopulateJsonData(text, header) == 0) ReadHeader(header);
      break;
    case 'p':
      ReadPayload(text);
      break;
    case 'n':
      (void)MatchesPrefixPattern(text, TARGET_COMMON_NAME);
      break;
    default:
      ReadContainer(text);
  }
  return 0;
}
