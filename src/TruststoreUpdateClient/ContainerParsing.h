/// Takes a trust store container apart: header, payload, signature, and what stands in them.
/// docs/container-format.md describes the bytes.
///
/// The base of ContainerHandler. Has no state: any thread. Everything here runs before the
/// container's signature has been verified, on bytes that anybody may have sent. Operations return
/// 0 for success; every failure has been logged at error level, and none throws but for exhausted
/// memory.
#ifndef TRUSTSTOREUPDATECLIENT_CONTAINERPARSING_H
#define TRUSTSTOREUPDATECLIENT_CONTAINERPARSING_H

#include <botan/x509cert.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "json_parser/JsonParser.h"

namespace truststore_update_client {

/// The largest decoded header that is read. A header with sixteen certificates has under 100 KiB.
inline constexpr std::size_t kMaxHeaderBytes = std::size_t{256} * 1024;

/// The parsing operations of a container handler.
class ContainerParsing {
 public:
  /// Splits `container` at its two dots and decodes header and signature. `signingInput` becomes a
  /// view of `container`. Returns 0 or 3.
  [[nodiscard]] int ContainerSplitter(std::string_view container, std::string_view& signingInput,
                                      std::string& signature,
                                      json_parser::KeyValuePairs& headerPairs) const;

  /// Replaces `pairs` by the pairs of `jsonText`. Returns 0, or 1 when the text is no JSON
  /// document.
  [[nodiscard]] int PopulateJsonData(std::string jsonText, json_parser::KeyValuePairs& pairs) const;

  /// The value of the first pair with exactly this key. Returns 0 or 1.
  [[nodiscard]] int GetValueForKey(const json_parser::KeyValuePairs& pairs, std::string_view key,
                                   std::string& value) const;

  /// Checks that the header names ES256 (RFC 7518 section 3.4). Returns 0 or 1.
  [[nodiscard]] int ParseAlgorithm(const json_parser::KeyValuePairs& headerPairs) const;

  /// Returns 0, or 1 when the header has no id or an empty one.
  [[nodiscard]] int ParseContainerId(const json_parser::KeyValuePairs& headerPairs,
                                     std::string& id) const;

  /// The header's timestamp in seconds since the epoch. Returns 0, or 1 with a timestamp of 0.
  [[nodiscard]] int ParseContainerEpochTimestamp(const json_parser::KeyValuePairs& headerPairs,
                                                 std::uint32_t& timestamp) const;

  /// Reads year-month-dayThours:minutes:seconds as local time without daylight saving; what follows
  /// the seconds is ignored. Returns 0, or 1 with a timestamp of 0.
  [[nodiscard]] int ConvertDateTimeToEpochTimestamp(const std::string& text,
                                                    std::uint32_t& timestamp) const;

  /// Formats seconds since the epoch as local time, for log lines. `text` stays as it is when that
  /// fails.
  void FormatTimestamp(std::uint32_t timestamp, std::string& text) const;

  /// Decodes the header's array of certificates, leaf first. Returns 0 or 5; after a failure the
  /// list may hold some.
  [[nodiscard]] int ParseX5CCertificates(std::string_view x5cValueText,
                                         std::vector<Botan::X509_Certificate>& certificates) const;

  /// Decodes the payload into the JSON text of the bundles. Returns 0 or 1.
  [[nodiscard]] int GetPayload(std::string_view container, std::string& payload) const;
};

}  // namespace truststore_update_client

#endif
