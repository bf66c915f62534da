#include "tools/tsc/ContainerWriter.h"

#include <botan/data_src.h>
#include <botan/pkcs8.h>
#include <botan/pubkey.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "base64_utils/Base64Utils.h"
#include "tests/support/TestPki.h"

namespace tsc {
namespace {

using base64_utils::Base64Utils;

ContainerDraft Draft() {
  ContainerDraft draft;
  draft.timestamp = "2026-01-02T03:04:05";
  draft.id = "id-1";
  draft.chain = tests::Chain("p256-2");
  draft.bundles["WEB"] = {tests::Certificate("payload/00.der")};
  draft.bundles["EMPTY"] = {};
  return draft;
}

std::unique_ptr<Botan::Private_Key> KeyOf(const std::string& chain) {
  Botan::DataSource_Memory source(tests::PkiText(chain + "/leaf.key.pem"));
  return Botan::PKCS8::load_key(source);
}

TEST(ContainerWriter, Header_HasTheFourFields) {
  const auto header = nlohmann::ordered_json::parse(HeaderText(Draft()));
  EXPECT_EQ(header.size(), 4U);
  EXPECT_EQ(header["alg"], "ES256");
  EXPECT_EQ(header["ts"], "2026-01-02T03:04:05");
  EXPECT_EQ(header["ContainerId"], "id-1");
  ASSERT_EQ(header["x5c"].size(), 2U);
  EXPECT_EQ(Base64Utils::Base64DecodeToBinaryVector(header["x5c"][0].get<std::string>()),
            tests::ChainBytes("p256-2")[0]);
}

TEST(ContainerWriter, HeaderTextsWithQuotesAndForeignBytes_StayJson) {
  ContainerDraft draft = Draft();
  draft.id = "a\"b\\c\nd";
  draft.algorithm = "\xFF";
  const auto header = nlohmann::ordered_json::parse(HeaderText(draft));
  EXPECT_EQ(header["ContainerId"], "a\"b\\c\nd");
  EXPECT_EQ(header["alg"], "\xEF\xBF\xBD");
}

TEST(ContainerWriter, Payload_BundlesWithUnpaddedBase64Url) {
  const auto payload = nlohmann::ordered_json::parse(PayloadText(Draft()));
  EXPECT_EQ(payload.size(), 2U);
  EXPECT_EQ(payload["EMPTY"], nlohmann::ordered_json::array());
  ASSERT_EQ(payload["WEB"].size(), 1U);
  const auto element = payload["WEB"][0].get<std::string>();
  EXPECT_EQ(element.find_first_of("+/="), std::string::npos);
  EXPECT_EQ(Base64Utils::Base64UrlDecodeToBinaryVector(element), tests::PkiBytes("payload/00.der"));
}

TEST(ContainerWriter, PayloadWithoutBundles_IsAnObject) {
  EXPECT_EQ(PayloadText({}), "{}");
}

TEST(ContainerWriter, Container_SignedOverHeaderAndPayload) {
  const std::string container = WriteContainer(Draft(), *KeyOf("p256-2"));
  ASSERT_EQ(std::count(container.begin(), container.end(), '.'), 2);
  EXPECT_EQ(container.find_first_of("+/=\n"), std::string::npos);
  const auto last = container.rfind('.');
  const auto signature = Base64Utils::Base64UrlDecodeToBinaryVector(container.substr(last + 1));
  EXPECT_EQ(signature.size(), 64U);
  const auto key = tests::Chain("p256-2").front().load_subject_public_key();
  Botan::PK_Verifier verifier(*key, "EMSA1(SHA-256)", Botan::IEEE_1363);
  verifier.update(container.substr(0, last));
  EXPECT_TRUE(verifier.check_signature(signature));
}

TEST(ContainerWriter, CertificatesOfABundle_InTheOrderGiven) {
  ContainerDraft draft = Draft();
  draft.bundles = {
      {"WEB", {tests::Certificate("payload/01.der"), tests::Certificate("payload/00.der")}}};
  const auto payload = nlohmann::ordered_json::parse(PayloadText(draft));
  for (const std::size_t index : {0U, 1U}) {
    const auto element = payload["WEB"][index].get<std::string>();
    EXPECT_EQ(Base64Utils::Base64UrlDecodeToBinaryVector(element),
              tests::PkiBytes(index == 0 ? "payload/01.der" : "payload/00.der"));
  }
}

TEST(ContainerWriter, BundleNames_AscendingAndAsTheyAre) {
  ContainerDraft draft = Draft();
  draft.bundles = {{"b", {}}, {"a/../c", {}}, {"B", {}}, {"", {}}};
  EXPECT_EQ(PayloadText(draft), R"({"":[],"B":[],"a/../c":[],"b":[]})");
}

}  // namespace
}  // namespace tsc
