/// Builds containers, good and bad, for tests of what takes them apart.
#ifndef TESTS_SUPPORT_TESTCONTAINER_H
#define TESTS_SUPPORT_TESTCONTAINER_H

#include <string>
#include <utility>
#include <vector>

#include "tests/support/TestPki.h"

namespace tests {

/// A container as a list of parts that a test may replace. Defaults make one that a unit accepts at
/// kContainerTime and later, signed by the chain "p256-3", with one certificate in the bundle "A"
/// and two in "B".
class TestContainer {
 public:
  /// 2026-01-02T03:04:05 UTC.
  static constexpr unsigned kContainerTime = 1767323045;

  /// Takes chain and key from folder `chainName` of the test certificates.
  explicit TestContainer(const std::string& chainName = "p256-3");

  /// Header fields as raw JSON values, in this order; a field that is set to "" is left out.
  TestContainer& Algorithm(const std::string& rawValue);
  TestContainer& Timestamp(const std::string& rawValue);
  TestContainer& Id(const std::string& rawValue);
  TestContainer& X5c(const std::string& rawValue);

  /// The whole header or payload as JSON text, in place of the fields above.
  TestContainer& HeaderJson(const std::string& text);
  TestContainer& PayloadJson(const std::string& text);

  /// Flips one bit of the signature.
  TestContainer& SpoilSignature();

  [[nodiscard]] std::string Build() const;

  /// JSON array of the certificates, each in base64 or (for bundles) base64url.
  [[nodiscard]] static std::string X5cArray(const std::vector<Bytes>& encodings);
  [[nodiscard]] static std::string BundleArray(const std::vector<Bytes>& encodings);

 private:
  [[nodiscard]] std::string Header() const;
  [[nodiscard]] std::string Sign(const std::string& signingInput) const;

  std::string keyPem;
  std::vector<std::pair<std::string, std::string>> fields;
  std::string headerJson;
  std::string payloadJson;
  bool spoiled = false;
};

}  // namespace tests

#endif
