// Real containers through the whole of verification and installation, over a trust store in memory:
// every status that a container can end with, and every line on the way to it.
#include <botan/pkix_types.h>
#include <gmock/gmock.h>

#include <fstream>

#include "TruststoreUpdateClient/ContainerHandler.h"
#include "TruststoreUpdateClient/HSM.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeRecords.h"
#include "tests/doubles/FakeTrustStore.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestContainer.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Key;
using ::tests::Chain;
using ::tests::PkiBytes;
using ::tests::PkiText;
using ::tests::TestContainer;
using Lines = std::vector<std::string>;

constexpr std::uint32_t kContainerTime = TestContainer::kContainerTime;

const Lines kParsed = {"info: X5C certificate chain parsed successfully."};
const Lines kNamed = {"info: Verifying the Common Name passed."};
const Lines kInTime = {"info: Checking the Timestamp passed."};
const Lines kOnAnEmptyUnit = {"error: Failed to load Timestamp from persistent file storage.",
                              "info: Timestamp in the installed container: 1970-01-01T00:00:00",
                              "info: Timestamp in the new container: 2026-01-02T03:04:05"};
const Lines kTrusted = {"info: X5C certificates path validation succeeded!"};
const Lines kSigned = {"info: Verifying the Signature passed."};
const Lines kRemoved = {"info: Truststores cleared succesfully."};
const Lines kBundles = {"info: Certification bundle A updated succesfully.",
                        "info: Certification bundle B updated succesfully."};

Lines Join(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

class ContainerInstallation : public ::testing::Test {
 protected:
  ContainerInstallation() {
    setenv("TZ", "UTC", 1);
    tzset();
    trustStore->Provision(ZORA_ROOT_CERTIFICATE_ID, PkiText("root.pem"));
    (void)trustStore->InstallCertificateBundle("OLD", "pem");
  }

  ResponseStatus Install(const std::string& container) {
    std::ofstream(directory.Path() + "/config.cfg") << switches;
    HSM::Collaborators collaborators{trustStore, PersistentFileStorage(records)};
    collaborators.containerIdFile = directory.Path() + "/id";
    collaborators.timestampFile = directory.Path() + "/timestamp";
    ContainerHandler handler(std::make_shared<HSM>(std::move(collaborators)),
                             development_tools::DevelopmentTools(directory.Path() + "/config.cfg"),
                             [this] { return std::chrono::system_clock::from_time_t(now); });
    if (stop) handler.StopProcessing(true);
    log.Clear();
    return handler.VerifyAndInstallContainer(container);
  }

  void ExpectStoreUntouched() {
    EXPECT_THAT(trustStore->Installed(), ElementsAre(Key("OLD")));
    EXPECT_THAT(records->stored, IsEmpty());
  }

  const ::tests::TemporaryDirectory directory;
  const std::shared_ptr<::tests::FakeTrustStore> trustStore =
      std::make_shared<::tests::FakeTrustStore>();
  const std::shared_ptr<::tests::FakeRecords> records = std::make_shared<::tests::FakeRecords>();
  std::string switches = "OcspDisable=true\n";
  std::time_t now = kContainerTime;
  bool stop = false;
  platform_host::CapturedLog log;
};

TEST_F(ContainerInstallation, Status0_BundlesReplaceTheStoreAndTheRecordsFollow) {
  EXPECT_EQ(0, Install(TestContainer().Build()));
  EXPECT_EQ(Join({kParsed, kNamed, kInTime, kOnAnEmptyUnit, kTrusted, kSigned, kRemoved, kBundles}),
            log.Lines());
  EXPECT_THAT(trustStore->Installed(), ElementsAre(Key("A"), Key("B")));
  EXPECT_THAT(records->stored, ElementsAre("truststore-container-id=", "truststore-timestamp=0",
                                           "truststore-timestamp=1767323045",
                                           "truststore-container-id=container-1"));
}

TEST_F(ContainerInstallation, Status1_SameTimestampAsInstalled) {
  ASSERT_EQ(0, Install(TestContainer().Build()));
  records->stored.clear();
  EXPECT_EQ(1, Install(TestContainer().Build()));
  EXPECT_EQ(Join({kParsed,
                  kNamed,
                  kInTime,
                  {"info: Timestamp in the installed container: 2026-01-02T03:04:05",
                   "info: Timestamp in the new container: 2026-01-02T03:04:05",
                   "info: Timestamps in the installed container and in the new container are the "
                   "same."}}),
            log.Lines());
  EXPECT_THAT(records->stored, IsEmpty());
}

TEST_F(ContainerInstallation, Status3_StructureThatIsNone) {
  EXPECT_EQ(3, Install("header.payload"));
  EXPECT_THAT(log.Lines(), ElementsAre("error: Error: Invalid MOSE structure!"));
  ExpectStoreUntouched();
}

TEST_F(ContainerInstallation, Status3_PayloadThatIsNoJsonAfterAllChecksPassed) {
  EXPECT_EQ(3, Install(TestContainer().PayloadJson("{\"A\":[").Build()));
  EXPECT_EQ(Join({kParsed,
                  kNamed,
                  kInTime,
                  kOnAnEmptyUnit,
                  kTrusted,
                  kSigned,
                  {"error: JsonParser: Error parsing json file, jsmn error code -3",
                   "error: ERROR: Unable to parse the certificates!"}}),
            log.Lines());
  ExpectStoreUntouched();
}

TEST_F(ContainerInstallation, Status3_SignerCertificateBeyondTheBounds) {
  EXPECT_EQ(3, Install(TestContainer()
                           .X5c(TestContainer::X5cArray({PkiBytes("hostile/size-4097.der")}))
                           .Build()));
  EXPECT_THAT(log.Lines(), ElementsAre("error: Error: X5C certificate chain is beyond its bounds: "
                                       "certificate too long"));
  ExpectStoreUntouched();
}

TEST_F(ContainerInstallation, Status4_MoreThanADayAhead) {
  now = std::time_t{kContainerTime} - 86401;
  EXPECT_EQ(4, Install(TestContainer().Build()));
  EXPECT_EQ(Join({kParsed,
                  kNamed,
                  {"error: ERROR: Container timestamp more than 24h in future: "
                   "2026-01-02T03:04:05"}}),
            log.Lines());
  ExpectStoreUntouched();
}

TEST_F(ContainerInstallation, Status5_RevocationThatCannotBeChecked) {
  switches.clear();
  EXPECT_EQ(5, Install(TestContainer().Build()));
  EXPECT_EQ(Join({kParsed,
                  kNamed,
                  kInTime,
                  kOnAnEmptyUnit,
                  kTrusted,
                  {"error: ERROR: There is no OCSP connection!", "error: OCSP check FAILED"}}),
            log.Lines());
  ExpectStoreUntouched();
}

TEST_F(ContainerInstallation, Status5_SignatureThatDoesNotVerify) {
  EXPECT_EQ(5, Install(TestContainer().SpoilSignature().Build()));
  EXPECT_EQ(Join({kParsed,
                  kNamed,
                  kInTime,
                  kOnAnEmptyUnit,
                  kTrusted,
                  {"error: ERROR: Container signature verification failed!"}}),
            log.Lines());
  ExpectStoreUntouched();
}

TEST_F(ContainerInstallation, Status5_PayloadChangedAfterSigning) {
  std::string container = TestContainer().Build();
  const auto other = TestContainer().PayloadJson(R"({"A":[]})").Build();
  const auto first = container.find('.');
  container.replace(first, container.rfind('.') - first,
                    other.substr(other.find('.'), other.rfind('.') - other.find('.')));
  EXPECT_EQ(5, Install(container));
  ExpectStoreUntouched();
}

TEST_F(ContainerInstallation, Status6_OlderThanInstalled) {
  records->records = {{"truststore-container-id", "newer"}, {"truststore-timestamp", "1767323046"}};
  EXPECT_EQ(6, Install(TestContainer().Build()));
  EXPECT_EQ(Join({kParsed,
                  kNamed,
                  kInTime,
                  {"info: Timestamp in the installed container: 2026-01-02T03:04:06",
                   "info: Timestamp in the new container: 2026-01-02T03:04:05",
                   "error: ERROR: Timestamp in the new container is older than the timestamp in "
                   "the installed container!"}}),
            log.Lines());
  ExpectStoreUntouched();
}

TEST_F(ContainerInstallation, Status7_SignerOfAStranger) {
  trustStore->Provision(ZORA_ROOT_CERTIFICATE_ID, PkiText("other-root/other-name.pem"));
  EXPECT_EQ(7, Install(TestContainer().Build()));
  const std::string name =
      ::tests::Certificate("other-root/other-name.pem").subject_dn().get_first_attribute("CN");
  EXPECT_EQ(Join({kParsed,
                  kNamed,
                  kInTime,
                  kOnAnEmptyUnit,
                  {"error: Error: Certificate path cannot be validated against: " + name,
                   "error: Error: Certificate Path validation failed"}}),
            log.Lines());
  ExpectStoreUntouched();
}

TEST_F(ContainerInstallation, Status7_ChainInTheWrongOrder) {
  auto chain = ::tests::ChainBytes("p256-3");
  std::swap(chain[1], chain[2]);
  EXPECT_EQ(7, Install(TestContainer().X5c(TestContainer::X5cArray(chain)).Build()));
  EXPECT_EQ(Join({kParsed,
                  kNamed,
                  kInTime,
                  kOnAnEmptyUnit,
                  {"error: Error: X5C certificates Path validation failed. Certificates in the "
                   "wrong order!"}}),
            log.Lines());
  ExpectStoreUntouched();
}

TEST_F(ContainerInstallation, Status9_CommonNameOfAnother) {
  EXPECT_EQ(9, Install(TestContainer("cn-wrong").Build()));
  EXPECT_EQ(Join({kParsed, {"error: ERROR: Certificate CommonName 'OTHER Signer' is not valid! "}}),
            log.Lines());
  ExpectStoreUntouched();
}

TEST_F(ContainerInstallation, Status10_SecondBundleFails) {
  trustStore->FailInstall(2);
  EXPECT_EQ(10, Install(TestContainer().Build()));
  EXPECT_EQ(Join({kParsed,
                  kNamed,
                  kInTime,
                  kOnAnEmptyUnit,
                  kTrusted,
                  kSigned,
                  kRemoved,
                  {"info: Certification bundle A updated succesfully.",
                   "error: ERROR: Certification bundle B could not be installed!",
                   "error: ERROR: Certificate group update failed!"},
                  kRemoved}),
            log.Lines());
  EXPECT_THAT(trustStore->Installed(), IsEmpty());
  EXPECT_EQ("", records->records["truststore-container-id"]);
  EXPECT_EQ("0", records->records["truststore-timestamp"]);
}

TEST_F(ContainerInstallation, Status13_PayloadCertificateThatIsNone) {
  const auto bad = TestContainer::BundleArray({PkiBytes("payload/refused/truncated.der")});
  EXPECT_EQ(13, Install(TestContainer().PayloadJson("{\"A\":[],\"B\":" + bad + "}").Build()));
  EXPECT_EQ(Join({kParsed,
                  kNamed,
                  kInTime,
                  kOnAnEmptyUnit,
                  kTrusted,
                  kSigned,
                  {"error: ERROR: Certificate group update failed! Invalid certificate format!"}}),
            log.Lines());
  ExpectStoreUntouched();
}

TEST_F(ContainerInstallation, Status14_StoreThatCannotBeCleared) {
  trustStore->FailRemoval(1);
  EXPECT_EQ(14, Install(TestContainer().Build()));
  EXPECT_EQ(Join({kParsed,
                  kNamed,
                  kInTime,
                  kOnAnEmptyUnit,
                  kTrusted,
                  kSigned,
                  {"error: ERROR: Clearing the truststores failed"}}),
            log.Lines());
}

TEST_F(ContainerInstallation, Status15_IdThatCannotBeStored) {
  EXPECT_EQ(15, Install(TestContainer().Id("\"" + std::string(101, 'x') + "\"").Build()));
  EXPECT_EQ(Join({kParsed,
                  kNamed,
                  kInTime,
                  kOnAnEmptyUnit,
                  kTrusted,
                  kSigned,
                  kRemoved,
                  kBundles,
                  {"error: ERROR: Failed to store Container ID to persistent file storage!"}}),
            log.Lines());
  EXPECT_EQ("", records->records["truststore-container-id"]);
}

TEST_F(ContainerInstallation, Status15_LeavesRecordsFromWhichTheNextStartInstallsAgain) {
  ASSERT_EQ(15, Install(TestContainer().Id("\"" + std::string(101, 'x') + "\"").Build()));
  EXPECT_EQ("1767323045", records->records["truststore-timestamp"]);
  EXPECT_EQ(0, Install(TestContainer().Build()));
}

TEST_F(ContainerInstallation, Status16_StoppedBeforeTheStoreIsTouched) {
  stop = true;
  EXPECT_EQ(16, Install(TestContainer().Build()));
  EXPECT_EQ(Join({kParsed,
                  kNamed,
                  kInTime,
                  kOnAnEmptyUnit,
                  kTrusted,
                  kSigned,
                  {"error: Processing stopped!"}}),
            log.Lines());
  ExpectStoreUntouched();
}

TEST_F(ContainerInstallation, TwoRootsInTheBundle_BothSignersAreTrusted) {
  trustStore->Provision(ZORA_ROOT_CERTIFICATE_ID,
                        PkiText("rsa3072-2/root.pem") + PkiText("root.pem"));
  EXPECT_EQ(0, Install(TestContainer("rsa3072-2").Build()));
  EXPECT_EQ(0, Install(TestContainer("p256-3").Timestamp("\"2026-01-02T03:04:06\"").Build()));
}

TEST_F(ContainerInstallation, BundleNamedLikeTheRoots_IsInstalledAndCounts) {
  const auto newRoot = ::tests::Certificate("rsa3072-2/root.pem").BER_encode();
  const std::string payload = "{\"ZORA\":" + TestContainer::BundleArray({newRoot}) + "}";
  ASSERT_EQ(0, Install(TestContainer().PayloadJson(payload).Build()));
  EXPECT_EQ(7, Install(TestContainer().Timestamp("\"2026-01-02T03:04:06\"").Build()));
  EXPECT_EQ(0, Install(TestContainer("rsa3072-2").Timestamp("\"2026-01-02T03:04:06\"").Build()));
}

class SignerChains : public ContainerInstallation,
                     public ::testing::WithParamInterface<std::pair<const char*, int>> {};

TEST_P(SignerChains, EndWithTheirStatus) {
  const std::string chain = GetParam().first;
  trustStore->Provision(ZORA_ROOT_CERTIFICATE_ID, PkiText(chain + "/root.pem"));
  EXPECT_EQ(GetParam().second, Install(TestContainer(chain).Build()));
}

std::string TestName(const ::testing::TestParamInfo<std::pair<const char*, int>>& parameter) {
  std::string name = parameter.param.first;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(
    EveryKind, SignerChains,
    ::testing::Values(std::pair{"p256-1", 0}, std::pair{"p256-2", 0}, std::pair{"p256-3", 0},
                      std::pair{"p256-5", 0}, std::pair{"p384-3", 0}, std::pair{"rsa3072-2", 0},
                      std::pair{"with-root-3", 0}, std::pair{"cross-3", 0},
                      std::pair{"same-subject-2", 0}, std::pair{"same-subject-3", 7},
                      std::pair{"root-name-8", 7}, std::pair{"root-name-spelt-8", 7},
                      std::pair{"rsa2048-2", 7}, std::pair{"expired-leaf-2", 7},
                      std::pair{"expired-ca-2", 7}, std::pair{"notyet-leaf-2", 7},
                      std::pair{"notyet-ca-2", 7}, std::pair{"ca-bit-missing-2", 7},
                      std::pair{"forged-leaf-2", 7}, std::pair{"cn-100000", 3}),
    TestName);

}  // namespace
}  // namespace truststore_update_client
