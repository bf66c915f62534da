#include "TruststoreUpdateClient/ContainerParsing.h"

#include <gmock/gmock.h>

#include "TruststoreUpdateClient/SignerKeyBounds.h"
#include "base64_utils/Base64Utils.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/TestContainer.h"

namespace truststore_update_client {
namespace {

using base64_utils::Base64Utils;
using json_parser::KeyValuePairs;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::tests::ChainBytes;
using ::tests::PkiBytes;
using ::tests::TestContainer;

class ContainerParsingTest : public ::testing::Test {
 protected:
  ContainerParsingTest() {
    // Timestamps are local time: the expected numbers are those of a unit, which runs in UTC.
    setenv("TZ", "UTC", 1);
    tzset();
  }

  int Split(const std::string& container) {
    text = container;
    return parsing.ContainerSplitter(text, signingInput, signature, header);
  }

  KeyValuePairs Pairs(const std::string& json) {
    KeyValuePairs pairs;
    EXPECT_EQ(0, parsing.PopulateJsonData(json, pairs));
    return pairs;
  }

  const ContainerParsing parsing{};
  std::string text;
  std::string_view signingInput;
  std::string signature;
  KeyValuePairs header;
  platform_host::CapturedLog log;
};

std::string Encode(const std::string& text) {
  return Base64Utils::Base64UrlEncode(text);
}

TEST_F(ContainerParsingTest, GoodContainer_IsSplitAtItsDots) {
  const std::string container = Encode(R"({"alg":"ES256"})") + ".cGF5bG9hZA.c2ln";
  ASSERT_EQ(0, Split(container));
  EXPECT_EQ(Encode(R"({"alg":"ES256"})") + ".cGF5bG9hZA", signingInput);
  EXPECT_EQ("sig", signature);
  ASSERT_EQ(1U, header.size());
  EXPECT_EQ("alg", header[0].key);
  EXPECT_EQ("ES256", header[0].value);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

struct BadStructure {
  std::string container;
  std::string line;
};

TEST_F(ContainerParsingTest, BadStructure_Returns3WithTheLineForIt) {
  const std::string good = Encode(R"({"a":"b"})");
  for (const BadStructure& bad :
       {BadStructure{"", "Invalid MOSE structure!"}, BadStructure{"abc", "Invalid MOSE structure!"},
        BadStructure{"a.b", "Invalid MOSE structure!"},
        BadStructure{"a.b.c.d", "Invalid MOSE structure!"},
        BadStructure{".b.c", "Header not found!"}, BadStructure{"..", "Header not found!"},
        BadStructure{"a..c", "Payload not found!"}, BadStructure{"a..", "Payload not found!"},
        BadStructure{"a.b.", "Signature not found!"},
        BadStructure{Encode("{}") + ".b.c2ln", "Unable to parse the Header!"},
        BadStructure{good + ".b.!", "Unable to parse the Signature!"},
        BadStructure{good + ".b.c", "Unable to parse the Signature!"}}) {
    log.Clear();
    EXPECT_EQ(3, Split(bad.container)) << bad.container;
    EXPECT_THAT(log.Lines(), ElementsAre("error: Error: " + bad.line)) << bad.container;
  }
}

TEST_F(ContainerParsingTest, HeaderThatIsNoJson_IsUnparsable) {
  EXPECT_EQ(3, Split(Encode(R"({"a":"b")") + ".b.c2ln"));
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: JsonParser: Error parsing json file, jsmn error code -3",
                          "error: Error: Unable to parse the Header!"));
  log.Clear();
  EXPECT_EQ(3, Split("!.b.c2ln"));
  EXPECT_THAT(log.Lines(), ElementsAre("error: Error: Unable to parse the Header!"));
}

TEST_F(ContainerParsingTest, HeaderAtItsBound_IsReadAndOneByteMoreIsNot) {
  EXPECT_EQ(262144U, kMaxHeaderBytes);
  const std::string fields = R"({"alg":"ES256"})";
  EXPECT_EQ(0,
            Split(Encode(fields + std::string(kMaxHeaderBytes - fields.size(), ' ')) + ".b.c2ln"));
  EXPECT_EQ(
      3, Split(Encode(fields + std::string(kMaxHeaderBytes - fields.size() + 1, ' ')) + ".b.c2ln"));
  EXPECT_THAT(log.Lines(), ElementsAre("error: Error: Unable to parse the Header!"));
}

TEST_F(ContainerParsingTest, GetValueForKey_TakesTheFirstOfExactlyThatKey) {
  std::string value;
  EXPECT_EQ(0, parsing.GetValueForKey(Pairs(R"({"al":"1","alg":"2","alg":"3"})"), "alg", value));
  EXPECT_EQ("2", value);
  EXPECT_EQ(1, parsing.GetValueForKey(Pairs(R"({"ALG":"1"})"), "alg", value));
  EXPECT_THAT(log.Lines(), ElementsAre("error: Error: Unable to find data with key 'alg'!"));
}

TEST_F(ContainerParsingTest, Algorithm_IsEs256AndNothingElse) {
  EXPECT_EQ(0, parsing.ParseAlgorithm(Pairs(R"({"alg":"ES256"})")));
  EXPECT_THAT(log.Lines(), IsEmpty());
  for (const char* name : {"es256", "ES384", "none", "ES256 ", "HS256"}) {
    log.Clear();
    EXPECT_EQ(1, parsing.ParseAlgorithm(Pairs(std::string(R"({"alg":")") + name + "\"}")));
    EXPECT_THAT(log.Lines(), ElementsAre(std::string("error: Error: Unknown Algorithm: ") + name));
  }
}

TEST_F(ContainerParsingTest, AlgorithmEmptyOrAbsent_Fails) {
  EXPECT_EQ(1, parsing.ParseAlgorithm(Pairs(R"({"alg":""})")));
  EXPECT_EQ(1, parsing.ParseAlgorithm(Pairs(R"({"a":""})")));
  EXPECT_THAT(log.Lines(), ElementsAre("error: Error: Empty Algorithm",
                                       "error: Error: Unable to find data with key 'alg'!"));
}

TEST_F(ContainerParsingTest, ContainerId_MustBeThereAndNotEmpty) {
  std::string id;
  EXPECT_EQ(0, parsing.ParseContainerId(Pairs(R"({"ContainerId":"x-1"})"), id));
  EXPECT_EQ("x-1", id);
  EXPECT_EQ(1, parsing.ParseContainerId(Pairs(R"({"ContainerId":""})"), id));
  EXPECT_EQ(1, parsing.ParseContainerId(Pairs(R"({"containerid":"x"})"), id));
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: Error: Empty ContainerId",
                          "error: Error: Unable to find data with key 'ContainerId'!"));
}

TEST_F(ContainerParsingTest, Timestamp_IsReadFromTheHeader) {
  std::uint32_t timestamp = 1;
  EXPECT_EQ(
      0, parsing.ParseContainerEpochTimestamp(Pairs(R"({"ts":"2026-01-02T03:04:05"})"), timestamp));
  EXPECT_EQ(TestContainer::kContainerTime, timestamp);
}

TEST_F(ContainerParsingTest, TimestampAbsentOrUnreadable_IsZeroAndFails) {
  std::uint32_t timestamp = 1;
  EXPECT_EQ(1, parsing.ParseContainerEpochTimestamp(Pairs(R"({"t":"x"})"), timestamp));
  EXPECT_EQ(0U, timestamp);
  timestamp = 1;
  EXPECT_EQ(1, parsing.ParseContainerEpochTimestamp(Pairs(R"({"ts":"x"})"), timestamp));
  EXPECT_EQ(0U, timestamp);
  EXPECT_THAT(log.Lines(), ElementsAre("error: Error: Unable to find data with key 'ts'!",
                                       "error: Error! Unable to parse the timestamp",
                                       "error: Error: Cannot convert Timestamp!"));
}

TEST_F(ContainerParsingTest, DateTimeTextsThatAreRead) {
  for (const char* accepted :
       {"2026-01-02T03:04:05", "2026-01-02T03:04:05Z", "2026-01-02T03:04:05+02:00",
        "2026-01-02T03:04:05.999 x", "2026-1-2T3:4:5"}) {
    std::uint32_t timestamp = 0;
    EXPECT_EQ(0, parsing.ConvertDateTimeToEpochTimestamp(accepted, timestamp)) << accepted;
    EXPECT_EQ(TestContainer::kContainerTime, timestamp) << accepted;
  }
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ContainerParsingTest, DateTimeTextsThatAreRefused) {
  for (const char* refused : {"", "x", "2026-01-02 03:04:05", "2026-13-02T03:04:05",
                              "2026-01-02T24:04:05", "2026-01-02T03:61:05", "T03:04:05"}) {
    log.Clear();
    std::uint32_t timestamp = 1;
    EXPECT_EQ(1, parsing.ConvertDateTimeToEpochTimestamp(refused, timestamp)) << refused;
    EXPECT_EQ(0U, timestamp) << refused;
    EXPECT_THAT(log.Lines(), ElementsAre("error: Error! Unable to parse the timestamp"));
  }
}

TEST_F(ContainerParsingTest, DateWithoutTime_IsMidnight) {
  std::uint32_t timestamp = 0;
  EXPECT_EQ(0, parsing.ConvertDateTimeToEpochTimestamp("2026-01-02", timestamp));
  EXPECT_EQ(1767312000U, timestamp);
}

TEST_F(ContainerParsingTest, TimestampsAfter2038_AreRead) {
  std::uint32_t timestamp = 0;
  EXPECT_EQ(0, parsing.ConvertDateTimeToEpochTimestamp("2041-11-21T00:00:00", timestamp));
  EXPECT_EQ(2268604800U, timestamp);
  std::string formatted;
  parsing.FormatTimestamp(timestamp, formatted);
  EXPECT_EQ("2041-11-21T00:00:00", formatted);
}

TEST_F(ContainerParsingTest, SummerTimeZone_ReadsTextWithDaylightSavingOff) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  tzset();
  std::uint32_t timestamp = 0;
  EXPECT_EQ(0, parsing.ConvertDateTimeToEpochTimestamp("2026-07-01T12:00:00", timestamp));
  EXPECT_EQ(1782903600U, timestamp);  // 11:00 UTC: noon in winter time
}

TEST_F(ContainerParsingTest, SignerChain_IsDecodedLeafFirst) {
  std::vector<Botan::X509_Certificate> certificates;
  EXPECT_EQ(
      0, parsing.ParseX5CCertificates(TestContainer::X5cArray(ChainBytes("p256-3")), certificates));
  EXPECT_EQ(::tests::Chain("p256-3"), certificates);
  EXPECT_THAT(log.Lines(), ElementsAre("info: X5C certificate chain parsed successfully."));
}

TEST_F(ContainerParsingTest, EscapedSlashesInAChain_AreUndone) {
  std::string array = TestContainer::X5cArray(ChainBytes("p256-3"));
  for (auto at = array.find('/'); at != std::string::npos; at = array.find('/', at + 2)) {
    array.insert(at, "\\");
  }
  std::vector<Botan::X509_Certificate> certificates;
  EXPECT_EQ(0, parsing.ParseX5CCertificates(array, certificates));
  EXPECT_EQ(::tests::Chain("p256-3"), certificates);
}

// Bytes after a certificate are dropped, so three more complete the last group whatever the
// certificate's length.
TEST_F(ContainerParsingTest, LeftOverCharacterInAChain_IsTolerated) {
  ::tests::Bytes encoding = ChainBytes("p256-1")[0];
  encoding.resize((encoding.size() / 3 + 1) * 3);
  std::string array = TestContainer::X5cArray({encoding});
  array.insert(array.size() - 2, "A");
  std::vector<Botan::X509_Certificate> certificates;
  EXPECT_EQ(0, parsing.ParseX5CCertificates(array, certificates));
  EXPECT_EQ(::tests::Chain("p256-1"), certificates);
}

struct BadChain {
  std::string array;
  std::string line;
};

TEST_F(ContainerParsingTest, BadChain_Returns5WithTheLineForIt) {
  for (const BadChain& bad :
       {BadChain{"[]", "X5C certificate chain is empty!"},
        BadChain{"", "X5C certificate chain is empty!"},
        BadChain{R"(["abc)", "Unable to parse the X5C certificate chain!"},
        BadChain{R"(["!"])", "Base64 decoding error when parsing X5C certificate chain!"},
        BadChain{R"([""])", "Base64 decoding error when parsing X5C certificate chain!"}}) {
    log.Clear();
    std::vector<Botan::X509_Certificate> certificates;
    EXPECT_EQ(5, parsing.ParseX5CCertificates(bad.array, certificates)) << bad.array;
    EXPECT_THAT(log.Lines(), ElementsAre("error: Error: " + bad.line)) << bad.array;
  }
}

TEST_F(ContainerParsingTest, ChainThatHoldsNoCertificate_IsLoggedWithTheLibrarysText) {
  std::vector<Botan::X509_Certificate> certificates;
  EXPECT_EQ(5, parsing.ParseX5CCertificates(R"(["QUJD"])", certificates));
  ASSERT_EQ(1U, log.Lines().size());
  EXPECT_EQ(
      0U, log.Lines()[0].rfind("error: Error: Exception when parsing X5C certificate chain: ", 0));
}

TEST_F(ContainerParsingTest, ChainAtItsBounds_IsReadAndOneCertificateMoreIsNot) {
  std::vector<::tests::Bytes> encodings(kMaxSignerCertificates, ChainBytes("p256-1")[0]);
  std::vector<Botan::X509_Certificate> certificates;
  EXPECT_EQ(0, parsing.ParseX5CCertificates(TestContainer::X5cArray(encodings), certificates));
  log.Clear();
  certificates.clear();
  encodings.push_back(encodings[0]);
  EXPECT_EQ(5, parsing.ParseX5CCertificates(TestContainer::X5cArray(encodings), certificates));
  EXPECT_THAT(certificates, IsEmpty());
  EXPECT_THAT(log.Lines(), ElementsAre("error: Error: X5C certificate chain is beyond its bounds: "
                                       "too many certificates"));
}

TEST_F(ContainerParsingTest, CostlyCertificateAnywhere_IsRefusedBeforeAnyIsConstructed) {
  std::vector<Botan::X509_Certificate> certificates;
  EXPECT_EQ(5, parsing.ParseX5CCertificates(
                   TestContainer::X5cArray(
                       {ChainBytes("p256-1")[0], PkiBytes("hostile/rsa-modulus-20800.der")}),
                   certificates));
  EXPECT_THAT(certificates, IsEmpty());
  EXPECT_THAT(log.Lines(), ElementsAre("error: Error: X5C certificate chain is beyond its bounds: "
                                       "RSA modulus too long"));
}

TEST_F(ContainerParsingTest, Payload_IsWhatStandsBetweenTheDots) {
  std::string payload;
  EXPECT_EQ(0, parsing.GetPayload("aGVhZA.cGF5bG9hZA.c2ln", payload));
  EXPECT_EQ("payload", payload);
  for (const char* bad : {"a.!.c", "a..c", ".", "", "ab"}) {
    log.Clear();
    payload = "old";
    EXPECT_EQ(1, parsing.GetPayload(bad, payload)) << bad;
    EXPECT_EQ("", payload);
    EXPECT_THAT(log.Lines(), ElementsAre("error: Error! Unable to parse the payload")) << bad;
  }
}

}  // namespace
}  // namespace truststore_update_client
