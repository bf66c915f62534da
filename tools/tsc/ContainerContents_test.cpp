#include "tools/tsc/ContainerContents.h"

#include <gmock/gmock.h>

#include "base64_utils/Base64Utils.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/TestContainer.h"
#include "tests/support/TestPki.h"

namespace tsc {
namespace {

using base64_utils::Base64Utils;
using tests::TestContainer;

std::string Text(const std::string& header, const std::string& payload,
                 const std::string& signature = "AAAA") {
  return Base64Utils::Base64UrlEncode(header) + "." + Base64Utils::Base64UrlEncode(payload) + "." +
         signature;
}

std::string HeaderOf(std::size_t bytes) {
  const std::string frame = R"({"a":""})";
  return R"({"a":")" + std::string(bytes - frame.size(), 'x') + R"("})";
}

std::string ErrorOf(const std::string& text) {
  const platform_host::CapturedLog log;
  const auto contents = ReadContainer(text);
  return contents.Ok() ? "" : contents.Failure().Text();
}

TEST(ContainerContents, GoodContainer_AllOfItRead) {
  const auto read = ReadContainer(TestContainer("p256-3").Id("\"id-7\"").Build());
  ASSERT_TRUE(read.Ok());
  const auto& contents = read.Value();
  EXPECT_EQ(contents.algorithm, "ES256");
  EXPECT_EQ(contents.timestamp, "2026-01-02T03:04:05");
  EXPECT_EQ(contents.id, "id-7");
  EXPECT_EQ(contents.signatureBytes, 64U);
  ASSERT_EQ(contents.chain.size(), 3U);
  EXPECT_NE(contents.chain[0].subject.find("KALVIRON TSC Signer 1"), std::string::npos);
  ASSERT_EQ(contents.bundles.size(), 2U);
  EXPECT_EQ(contents.bundles[0].name, "A");
  EXPECT_EQ(contents.bundles[1].certificates.size(), 2U);
}

TEST(ContainerContents, EscapedSlashesInTheChain_Read) {
  std::string chain = TestContainer::X5cArray(tests::ChainBytes("p256-2"));
  for (auto at = chain.find('/'); at != std::string::npos; at = chain.find('/', at + 2)) {
    chain.insert(at, "\\");
  }
  const auto read = ReadContainer(TestContainer("p256-2").X5c(chain).Build());
  ASSERT_TRUE(read.Ok());
  EXPECT_EQ(read.Value().chain[0].problem, "");
}

TEST(ContainerContents, CertificateThatCannotBeRead_IsAFact) {
  const auto read = ReadContainer(Text(R"({"x5c":["AAAA"]})", R"({"A":["AAAA"]})"));
  ASSERT_TRUE(read.Ok());
  EXPECT_NE(read.Value().chain[0].problem, "");
  EXPECT_NE(read.Value().bundles[0].certificates[0].problem, "");
}

TEST(ContainerContents, MissingFields_AreEmpty) {
  const auto read = ReadContainer(Text(R"({"a":1})", R"({"A":[]})"));
  ASSERT_TRUE(read.Ok());
  EXPECT_EQ(read.Value().id, "");
  EXPECT_TRUE(read.Value().chain.empty());
}

TEST(ContainerContents, BadTexts_ErrorsNamePartAndField) {
  const std::string deep = std::string(17, '[') + std::string(17, ']');
  const std::pair<std::string, std::string> cases[] = {
      {"", "no container: 0 dots in place of 2"},
      {"plain text", "no container: 0 dots in place of 2"},
      {"a.b", "no container: 1 dots in place of 2"},
      {"a.b.c.d", "no container: 3 dots in place of 2"},
      {".b.c", "header: no base64url text"},
      {"!.b.c", "header: no base64url text"},
      {Text("text", "{}"), "header: no JSON object with any key"},
      {Text("{}", "{}"), "header: no JSON object with any key"},
      {Text(R"({"a":)" + deep + "}", "{}"), "header: no JSON object with any key"},
      {Text(HeaderOf(256 * 1024 + 1), "{}"), "header: more than 262144 bytes"},
      {Text(R"({"x5c":["AAAA","!"]})", "{}"), "header: x5c[1]: no base64 text"},
      {Text(R"({"a":1})", ""), "payload: no base64url text"},
      {Text(R"({"a":1})", "[1]"), "payload: no JSON object with any key"},
      {Text(R"({"a":1})", R"({"WEB":["!"]})"), "payload: WEB[0]: no base64 text"},
      {Text(R"({"a":1})", R"({"WEB":["AAAA"]})", ""), "signature: no base64url text"},
      {Text(R"({"a":1})", R"({"WEB":["AAAA"]})", "!"), "signature: no base64url text"},
  };
  for (const auto& [text, error] : cases) EXPECT_EQ(ErrorOf(text), error) << text.substr(0, 80);
}

TEST(ContainerContents, HeaderAtTheBound_Read) {
  EXPECT_EQ(ErrorOf(Text(HeaderOf(256 * 1024), R"({"A":[]})")), "");
}

TEST(ContainerContents, Json_HasEveryPart) {
  const auto contents = ReadContainer(TestContainer("p256-2").Id("\"i\"").Build());
  const auto json = ToJson(contents.Value());
  EXPECT_EQ(json["container_id"], "i");
  EXPECT_EQ(json["signature_bytes"], 64);
  EXPECT_EQ(json["chain"].size(), 2U);
  EXPECT_EQ(json["bundles"][1]["name"], "B");
  EXPECT_EQ(json["bundles"][1]["certificates"][0]["sha256"].get<std::string>().size(), 64U);
}

TEST(ContainerContents, BundleNames_RawAndInTheOrderOfThePayload) {
  const auto read = ReadContainer(Text(R"({"a":1})", R"({"b\"c":[],"A":[],"A":["AAAA"]})"));
  ASSERT_TRUE(read.Ok());
  ASSERT_EQ(read.Value().bundles.size(), 3U);
  EXPECT_EQ(read.Value().bundles[0].name, R"(b\"c)");
  EXPECT_EQ(read.Value().bundles[2].certificates.size(), 1U);
}

TEST(ContainerContents, CostlyCertificates_ShownByTheirHash) {
  const std::string array = TestContainer::X5cArray(
      {tests::PkiBytes("hostile/rsa-modulus-20800.der"), tests::PkiBytes("hostile/dsa-19937.der")});
  const auto read = ReadContainer(TestContainer("p256-2").X5c(array).Build());
  ASSERT_TRUE(read.Ok());
  ASSERT_EQ(read.Value().chain.size(), 2U);
  for (const auto& facts : read.Value().chain) {
    EXPECT_NE(facts.problem, "");
    EXPECT_EQ(facts.sha256.size(), 64U);
  }
}

}  // namespace
}  // namespace tsc
