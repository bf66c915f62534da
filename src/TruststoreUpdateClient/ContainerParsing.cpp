#include "TruststoreUpdateClient/ContainerParsing.h"

#include <algorithm>
#include <ctime>
#include <exception>
#include <iomanip>
#include <sstream>
#include <utility>

#include "TruststoreUpdateClient/QuotedTexts.h"
#include "TruststoreUpdateClient/SignerKeyBounds.h"
#include "base64_utils/Base64Utils.h"
#include "csc_logging/CSCLogging.h"

namespace truststore_update_client {

using base64_utils::Base64Utils;
using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;
using json_parser::KeyValuePairs;

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr int kStructureFailure = 3;
constexpr int kX5cFailure = 5;
constexpr const char* kTimestampFormat = "%Y-%m-%dT%H:%M:%S";

int Fail(int result, std::string_view line) {
  CSCLogging::LogError(line);
  return result;
}

// Undoes the escaping of slashes; standard base64 holds no other character that JSON escapes.
std::vector<std::uint8_t> DecodeX5cText(std::string_view quoted, bool& decoded) {
  std::string text(quoted);
  text.erase(std::remove(text.begin(), text.end(), '\\'), text.end());
  std::string bytes;
  // A left-over character at the end is no reason to refuse a chain: only "nothing decoded" is.
  decoded = Base64Utils::Base64Decode(text, bytes, 0) != 0;
  return {bytes.begin(), bytes.end()};
}

std::string BeyondChainBounds(std::string_view x5cValueText) {
  QuotedTexts texts(x5cValueText);
  std::string_view quoted;
  for (std::size_t count = 1; texts.Next(quoted); ++count) {
    if (count > kMaxSignerCertificates) return "too many certificates";
    bool decoded = false;
    std::string reason = BeyondSignerBounds(DecodeX5cText(quoted, decoded));
    if (!reason.empty()) return reason;
  }
  return {};
}

int AppendX5cCertificates(std::string_view x5cValueText,
                          std::vector<Botan::X509_Certificate>& certificates) {
  QuotedTexts texts(x5cValueText);
  std::string_view quoted;
  while (texts.Next(quoted)) {
    bool decoded = false;
    const std::vector<std::uint8_t> encoding = DecodeX5cText(quoted, decoded);
    if (!decoded) {
      return Fail(kX5cFailure, "Error: Base64 decoding error when parsing X5C certificate chain!");
    }
    certificates.emplace_back(encoding);
  }
  if (texts.IsUnterminated()) {
    return Fail(kX5cFailure, "Error: Unable to parse the X5C certificate chain!");
  }
  if (certificates.empty()) return Fail(kX5cFailure, "Error: X5C certificate chain is empty!");
  CSCLogging::LogInfo("X5C certificate chain parsed successfully.");
  return kSuccess;
}

}  // namespace

int ContainerParsing::ContainerSplitter(std::string_view container, std::string_view& signingInput,
                                        std::string& signature, KeyValuePairs& headerPairs) const {
  if (std::count(container.begin(), container.end(), '.') != 2) {
    return Fail(kStructureFailure, "Error: Invalid MOSE structure!");
  }
  const std::size_t first = container.find('.');
  const std::size_t last = container.rfind('.');
  if (first == 0) return Fail(kStructureFailure, "Error: Header not found!");
  if (first + 1 == last) return Fail(kStructureFailure, "Error: Payload not found!");
  if (last + 1 == container.size()) {
    return Fail(kStructureFailure, "Error: Signature not found!");
  }
  std::string header = Base64Utils::Base64UrlDecode(container.substr(0, first));
  if (header.size() > kMaxHeaderBytes || PopulateJsonData(std::move(header), headerPairs) != 0 ||
      headerPairs.empty()) {
    return Fail(kStructureFailure, "Error: Unable to parse the Header!");
  }
  signingInput = container.substr(0, last);
  if (signingInput.empty()) return Fail(kStructureFailure, "Error: Unable to parse the Body!");
  signature = Base64Utils::Base64UrlDecode(container.substr(last + 1));
  if (signature.empty()) return Fail(kStructureFailure, "Error: Unable to parse the Signature!");
  return kSuccess;
}

int ContainerParsing::PopulateJsonData(std::string jsonText, KeyValuePairs& pairs) const {
  const json_parser::JsonParser parser(std::move(jsonText));
  if (parser.GetParserStatus() <= 0) return kFailure;
  pairs = parser.GetValuesForAllKeys();
  return kSuccess;
}

int ContainerParsing::GetValueForKey(const KeyValuePairs& pairs, std::string_view key,
                                     std::string& value) const {
  for (const auto& pair : pairs) {
    if (pair.key != key) continue;
    value = pair.value;
    return kSuccess;
  }
  CSCLogging::LogError(CSCLogEntry() << "Error: Unable to find data with key '" << key << "'!");
  return kFailure;
}

int ContainerParsing::ParseAlgorithm(const KeyValuePairs& headerPairs) const {
  std::string algorithm;
  if (GetValueForKey(headerPairs, "alg", algorithm) != 0) return kFailure;
  if (algorithm.empty()) return Fail(kFailure, "Error: Empty Algorithm");
  if (algorithm != "ES256") return Fail(kFailure, "Error: Unknown Algorithm: " + algorithm);
  return kSuccess;
}

int ContainerParsing::ParseContainerId(const KeyValuePairs& headerPairs, std::string& id) const {
  if (GetValueForKey(headerPairs, "ContainerId", id) != 0) return kFailure;
  if (id.empty()) return Fail(kFailure, "Error: Empty ContainerId");
  return kSuccess;
}

int ContainerParsing::ParseContainerEpochTimestamp(const KeyValuePairs& headerPairs,
                                                   std::uint32_t& timestamp) const {
  timestamp = 0;
  std::string text;
  if (GetValueForKey(headerPairs, "ts", text) != 0) return kFailure;
  if (ConvertDateTimeToEpochTimestamp(text, timestamp) != 0) {
    return Fail(kFailure, "Error: Cannot convert Timestamp!");
  }
  return kSuccess;
}

int ContainerParsing::ConvertDateTimeToEpochTimestamp(const std::string& text,
                                                      std::uint32_t& timestamp) const {
  timestamp = 0;
  std::tm fields{};
  std::istringstream stream(text);
  stream >> std::get_time(&fields, kTimestampFormat);
  if (stream.fail()) return Fail(kFailure, "Error! Unable to parse the timestamp");
  timestamp = static_cast<std::uint32_t>(std::mktime(&fields));
  return kSuccess;
}

void ContainerParsing::FormatTimestamp(std::uint32_t timestamp, std::string& text) const {
  const std::time_t seconds = timestamp;
  std::tm fields{};
  if (localtime_r(&seconds, &fields) == nullptr) {
    CSCLogging::LogError("Error: NULL pointer when converting the timestamp!");
    return;
  }
  char buffer[80];
  text.assign(buffer, std::strftime(buffer, sizeof buffer, kTimestampFormat, &fields));
}

int ContainerParsing::ParseX5CCertificates(
    std::string_view x5cValueText, std::vector<Botan::X509_Certificate>& certificates) const {
  const std::string reason = BeyondChainBounds(x5cValueText);
  if (!reason.empty()) {
    return Fail(kX5cFailure, "Error: X5C certificate chain is beyond its bounds: " + reason);
  }
  try {
    return AppendX5cCertificates(x5cValueText, certificates);
  } catch (const std::exception& exception) {
    CSCLogging::LogError(CSCLogEntry() << "Error: Exception when parsing X5C certificate chain: "
                                       << exception.what());
  } catch (...) {
    CSCLogging::LogError("Error: Unknown exception when parsing X5C certificate chain!");
  }
  return kX5cFailure;
}

int ContainerParsing::GetPayload(std::string_view container, std::string& payload) const {
  payload.clear();
  const std::size_t first = container.find('.');
  const std::size_t last = container.rfind('.');
  if (first != std::string_view::npos && first < last) {
    payload = Base64Utils::Base64UrlDecode(container.substr(first + 1, last - first - 1));
  }
  if (payload.empty()) return Fail(kFailure, "Error! Unable to parse the payload");
  return kSuccess;
}

}  // namespace truststore_update_client
