#include "TruststoreUpdateClient/CertificateBundles.h"

#include <botan/x509cert.h>
#include <gmock/gmock.h>

#include "base64_utils/Base64Utils.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/TestContainer.h"

namespace truststore_update_client {
namespace {

using base64_utils::Base64Utils;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::tests::PkiBytes;
using ::tests::TestContainer;

class CertificateBundlesTest : public ::testing::Test {
 protected:
  ResponseStatus Decode(const std::string& payload) {
    const json_parser::JsonParser parser(payload);
    return DecodeCertificateBundles(parser.GetValuesForAllKeys(), bundles);
  }

  static std::string Pem(const std::string& file) {
    return Botan::X509_Certificate(PkiBytes(file)).PEM_encode();
  }

  static std::string Array(const std::vector<std::string>& files) {
    std::vector<::tests::Bytes> encodings;
    for (const std::string& file : files) encodings.push_back(PkiBytes(file));
    return TestContainer::BundleArray(encodings);
  }

  const std::string first = "payload/00.der";
  const std::string second = "payload/11.der";
  CertificateBundles bundles;
  platform_host::CapturedLog log;
};

TEST_F(CertificateBundlesTest, SeveralBundles_AreOrderedByNameAndKeepTheOrderOfTheirCertificates) {
  EXPECT_EQ(kInstalled,
            Decode("{\"b\":" + Array({second, first}) + ",\"B\":" + Array({first}) + "}"));
  EXPECT_THAT(bundles, ElementsAre(Pair("B", Pem(first)), Pair("b", Pem(second) + Pem(first))));
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CertificateBundlesTest, EmptyArray_IsABundleWithoutText) {
  EXPECT_EQ(kInstalled, Decode(R"({"A":[],"N":null})"));
  EXPECT_THAT(bundles, ElementsAre(Pair("A", ""), Pair("N", "")));
}

TEST_F(CertificateBundlesTest, NameGivenTwice_KeepsTheFirst) {
  EXPECT_EQ(kInstalled, Decode("{\"A\":" + Array({first}) + ",\"A\":" + Array({second}) + "}"));
  EXPECT_THAT(bundles, ElementsAre(Pair("A", Pem(first))));
}

TEST_F(CertificateBundlesTest, EscapesInNames_StayAsTheyStand) {
  EXPECT_EQ(kInstalled, Decode(R"({"..\/x":[],"\u0000":[]})"));
  EXPECT_THAT(bundles, ElementsAre(Pair("..\\/x", ""), Pair("\\u0000", "")));
}

TEST_F(CertificateBundlesTest, QuoteThatNothingCloses_IsNotParsed) {
  const auto document = std::make_shared<const std::string>(R"(A["abc)");
  using Places = std::vector<json_parser::KeyValuePairs::Place>;
  const auto places = std::make_shared<const Places>(Places{{0, 1, 1, 5}});
  EXPECT_EQ(kNotParsed,
            DecodeCertificateBundles(json_parser::KeyValuePairs(document, places), bundles));
  EXPECT_THAT(log.Lines(), ElementsAre("error: ERROR: Unable to parse the certificate!"));
}

TEST_F(CertificateBundlesTest, TextThatIsNoBase64_IsNotParsed) {
  for (const char* text : {R"({"A":["!"]})", R"({"A":[""]})", R"({"A":["Q"]})"}) {
    log.Clear();
    EXPECT_EQ(kNotParsed, Decode(text)) << text;
    EXPECT_THAT(log.Lines(), ElementsAre("error: ERROR: Base64 decoding error when parsing "
                                         "certificate!"))
        << text;
  }
}

TEST_F(CertificateBundlesTest, BackslashInACertificate_IsNotRemoved) {
  EXPECT_EQ(kPayloadCertificateInvalid, Decode(R"({"A":["QUJD\/QUJD"]})"));
}

TEST_F(CertificateBundlesTest, BytesThatAreNoCertificate_AreInvalidWhereverTheyStand) {
  EXPECT_EQ(kPayloadCertificateInvalid,
            Decode("{\"A\":" + Array({first}) + ",\"B\":" + Array({first}) +
                   ",\"C\":" + Array({second, "payload/refused/truncated.der"}) + "}"));
  EXPECT_THAT(log.Lines(), ElementsAre("error: ERROR: Certificate group update failed! Invalid "
                                       "certificate format!"));
}

std::string EmptyBundles(std::size_t count) {
  std::string text = "{";
  for (std::size_t number = 0; number < count; ++number) {
    if (number > 0) text += ",";
    text += "\"" + std::to_string(number) + "\":[]";
  }
  return text + "}";
}

TEST_F(CertificateBundlesTest, AsManyBundlesAsTheBoundAllows_AreTaken) {
  EXPECT_EQ(kInstalled, Decode(EmptyBundles(kMaxBundles)));
  EXPECT_EQ(kMaxBundles, bundles.size());
}

TEST_F(CertificateBundlesTest, OneBundleMore_IsNotParsed) {
  EXPECT_EQ(kNotParsed, Decode(EmptyBundles(kMaxBundles + 1)));
  EXPECT_THAT(bundles, IsEmpty());
  EXPECT_THAT(log.Lines(), ElementsAre("error: ERROR: Unable to parse the certificates: too many "
                                       "bundles"));
}

TEST_F(CertificateBundlesTest, BundleInsideAnotherOne_IsNotParsed) {
  // The inner name is a certificate, as it would have to be to pass for one of the outer bundle.
  const std::string name = Base64Utils::Base64UrlEncodeFromBinaryVector(PkiBytes(first));
  EXPECT_EQ(kNotParsed, Decode("{\"A\":{\"" + name + "\":" + Array({second}) + "}}"));
  EXPECT_THAT(bundles, IsEmpty());
  EXPECT_THAT(log.Lines(), ElementsAre("error: ERROR: Unable to parse the certificates: a bundle "
                                       "inside another one"));
}

}  // namespace
}  // namespace truststore_update_client
