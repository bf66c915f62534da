#include "TruststoreUpdateClient/HSM.h"

#include <botan/pk_keys.h>
#include <botan/version.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <thread>

#include "base64_utils/Base64Utils.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "support/FileContents.h"
#include "tests/doubles/FakeRecords.h"
#include "tests/doubles/FakeTrustStore.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestContainer.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

// The library in use is younger than the version that it is checked against.
const std::string kVersionLine = "warning: Warning: linked version (" +
                                 Botan::short_version_string() +
                                 ") does not match version built against (2.11.0)";

class HSMTest : public ::testing::Test {
 protected:
  HSM::Collaborators Collaborators() {
    HSM::Collaborators collaborators{trustStore, PersistentFileStorage(records)};
    collaborators.containerIdFile = directory.Path() + "/id";
    collaborators.timestampFile = directory.Path() + "/timestamp";
    return collaborators;
  }

  std::string Contents(const std::string& name) const {
    std::string text;
    EXPECT_EQ(0, support::ReadFile(directory.Path() + "/" + name, 1000, text)) << name;
    return text;
  }

  const ::tests::TemporaryDirectory directory;
  const std::shared_ptr<::tests::FakeTrustStore> trustStore =
      std::make_shared<::tests::FakeTrustStore>();
  const std::shared_ptr<::tests::FakeRecords> records = std::make_shared<::tests::FakeRecords>();
  platform_host::CapturedLog log;
};

TEST_F(HSMTest, CryptoLibraryOfAnotherVersion_IsAWarningAtConstruction) {
  const HSM hsm(Collaborators());
  EXPECT_THAT(log.Lines(), ElementsAre(kVersionLine));
}

TEST_F(HSMTest, FreshUnit_HasNoIdAndTimestampZero) {
  HSM hsm(Collaborators());
  log.Clear();
  std::string id = "old";
  EXPECT_TRUE(hsm.GetInstalledContainerId(id));
  EXPECT_EQ("", id);
  EXPECT_EQ(0U, hsm.GetInstalledContainerTimestamp());
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: Failed to load Container ID from persistent file storage.",
                          "error: Failed to load Timestamp from persistent file storage."));
}

TEST_F(HSMTest, Records_AreKeptInFileAndStorage) {
  HSM hsm(Collaborators());
  EXPECT_FALSE(hsm.SetInstalledContainerTimestamp(1767323045));
  EXPECT_FALSE(hsm.SetInstalledContainerId("container-1"));
  EXPECT_EQ("container-1", Contents("id"));
  EXPECT_EQ("1767323045", Contents("timestamp"));
  EXPECT_THAT(records->records, ElementsAre(Pair("truststore-container-id", "container-1"),
                                            Pair("truststore-timestamp", "1767323045")));
  std::string id;
  EXPECT_FALSE(hsm.GetInstalledContainerId(id));
  EXPECT_EQ("container-1", id);
  EXPECT_EQ(1767323045U, hsm.GetInstalledContainerTimestamp());
}

TEST_F(HSMTest, RecordStorage_CountsBeforeTheFile) {
  HSM hsm(Collaborators());
  ASSERT_FALSE(hsm.SetInstalledContainerId("stored"));
  ASSERT_EQ(0, support::ReplaceFile(directory.Path() + "/id", "forged", 0644));
  std::string id;
  EXPECT_FALSE(hsm.GetInstalledContainerId(id));
  EXPECT_EQ("stored", id);
}

TEST_F(HSMTest, TimestampsBeyond2038_AreReadBack) {
  HSM hsm(Collaborators());
  EXPECT_FALSE(hsm.SetInstalledContainerTimestamp(4294967295U));
  EXPECT_EQ(4294967295U, hsm.GetInstalledContainerTimestamp());
}

TEST_F(HSMTest, TimestampThatIsNoNumber_IsZero) {
  for (const char* text : {"", "x", "-1", "4294967296", "99999999999999999999"}) {
    records->records = {{"truststore-container-id", "c"}, {"truststore-timestamp", text}};
    HSM hsm(Collaborators());
    log.Clear();
    EXPECT_EQ(0U, hsm.GetInstalledContainerTimestamp()) << text;
    EXPECT_THAT(log.Lines(), ElementsAre("error: ERROR: Failed to interpret timestamp!")) << text;
  }
}

TEST_F(HSMTest, TimestampWhoseFileCannotBeWritten_IsThatOfTheRecord) {
  records->records = {{"truststore-container-id", "c"}, {"truststore-timestamp", "5"}};
  HSM::Collaborators collaborators = Collaborators();
  collaborators.timestampFile = directory.Path() + "/missing/timestamp";
  HSM hsm(std::move(collaborators));
  log.Clear();
  EXPECT_EQ(5U, hsm.GetInstalledContainerTimestamp());
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: Failed to load Timestamp from persistent file storage."));
}

TEST_F(HSMTest, TimestampInAStorageThatFails_IsTheGreatest) {
  HSM hsm(Collaborators());
  records->unreadable = true;
  log.Clear();
  EXPECT_EQ(4294967295U, hsm.GetInstalledContainerTimestamp());
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: Failed to load Timestamp from persistent file storage.",
                          "error: ERROR: The installed Timestamp is unknown: no container is "
                          "newer!"));
}

TEST_F(HSMTest, StorageThatFails_FailsTheRecord) {
  HSM hsm(Collaborators());
  log.Clear();
  records->failStoreOf = "truststore-timestamp";
  EXPECT_TRUE(hsm.SetInstalledContainerTimestamp(5));
  records->failStoreOf = "truststore-container-id";
  EXPECT_TRUE(hsm.SetInstalledContainerId("c"));
  EXPECT_THAT(
      log.Lines(),
      ElementsAre("error: ERROR: Failed to store Timestamp to persistent file storage!",
                  "error: ERROR: Failed to store Container ID to persistent file storage!"));
}

TEST_F(HSMTest, DirectoryThatIsMissing_FailsTheRecordWithoutTouchingTheStorage) {
  HSM::Collaborators collaborators = Collaborators();
  collaborators.containerIdFile = directory.Path() + "/missing/id";
  HSM hsm(std::move(collaborators));
  log.Clear();
  EXPECT_TRUE(hsm.SetInstalledContainerId("c"));
  EXPECT_THAT(records->records, IsEmpty());
  EXPECT_THAT(
      log.Lines(),
      ElementsAre(
          "error: Cannot write '" + directory.Path() + "/missing/id': No such file or directory",
          "error: ERROR: Failed to store Container ID to persistent file storage!"));
}

// A device in place of the file can be read, so that storing what it holds would succeed.
TEST_F(HSMTest, FileThatCannotBeWritten_IsNotStored) {
  records->records = {{"truststore-container-id", "old"}};
  HSM::Collaborators collaborators = Collaborators();
  collaborators.containerIdFile = "/dev/null";
  HSM hsm(std::move(collaborators));
  EXPECT_TRUE(hsm.SetInstalledContainerId("new"));
  EXPECT_THAT(records->records, ElementsAre(Pair("truststore-container-id", "old")));
}

// As a reader does that loads the record between the writing of its file and its storing.
class RecordsWithAReader : public ::tests::FakeRecords {
 public:
  [[nodiscard]] int StoreFile(const std::string& key, const std::string& path) const override {
    (void)LoadFile(key, path);
    return FakeRecords::StoreFile(key, path);
  }
};

TEST_F(HSMTest, RecordThatAReaderPutBack_IsNoSuccess) {
  const auto contended = std::make_shared<RecordsWithAReader>();
  contended->records = {{"truststore-container-id", "old"}, {"truststore-timestamp", "5"}};
  HSM::Collaborators collaborators = Collaborators();
  collaborators.storage = PersistentFileStorage(contended);
  HSM hsm(std::move(collaborators));
  log.Clear();
  EXPECT_TRUE(hsm.SetInstalledContainerId("new"));
  EXPECT_THAT(
      log.Lines(),
      ElementsAre("error: ERROR: Failed to store Container ID to persistent file storage!"));
}

TEST_F(HSMTest, RemoveAllTrustStores_ClearsRecordsBeforeTheStore) {
  HSM hsm(Collaborators());
  ASSERT_EQ(0, trustStore->InstallCertificateBundle("A", "pem"));
  log.Clear();
  EXPECT_FALSE(hsm.RemoveAllTrustStores());
  EXPECT_THAT(records->stored, ElementsAre("truststore-container-id=", "truststore-timestamp=0"));
  EXPECT_THAT(trustStore->Installed(), IsEmpty());
  EXPECT_THAT(log.Lines(), ElementsAre("info: Truststores cleared succesfully."));
}

TEST_F(HSMTest, RecordsThatCannotBeClearedWithTheStore_AreDropped) {
  records->records = {{"truststore-container-id", "c"}, {"truststore-timestamp", "5"}};
  HSM::Collaborators collaborators = Collaborators();
  collaborators.containerIdFile = directory.Path() + "/missing/id";
  collaborators.timestampFile = directory.Path() + "/missing/timestamp";
  HSM hsm(std::move(collaborators));
  EXPECT_TRUE(hsm.RemoveAllTrustStores());
  EXPECT_THAT(trustStore->Installed(), IsEmpty());
  EXPECT_THAT(records->records, IsEmpty());
}

TEST_F(HSMTest, RemoveAllTrustStores_RunsEveryStepWhateverFails) {
  HSM hsm(Collaborators());
  log.Clear();
  records->failStoreOf = "truststore-container-id";
  trustStore->FailRemoval(1);
  EXPECT_TRUE(hsm.RemoveAllTrustStores());
  EXPECT_THAT(records->stored, ElementsAre("truststore-timestamp=0"));
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: ERROR: Failed to store Container ID to persistent file storage!",
                          "error: ERROR: Clearing the Container Id failed",
                          "error: ERROR: Clearing the truststores failed"));
}

TEST_F(HSMTest, RemoveAllTrustStores_FailsWhenOnlyTheTimestampStays) {
  HSM hsm(Collaborators());
  log.Clear();
  records->failStoreOf = "truststore-timestamp";
  EXPECT_TRUE(hsm.RemoveAllTrustStores());
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: ERROR: Failed to store Timestamp to persistent file storage!",
                          "error: ERROR: Clearing the Timestamp failed",
                          "info: Truststores cleared succesfully."));
}

TEST_F(HSMTest, RemovalTheStoreRefuses_StillClearsTheRecords) {
  records->records = {{"truststore-container-id", "c"}, {"truststore-timestamp", "5"}};
  HSM hsm(Collaborators());
  trustStore->FailRemoval(1);
  EXPECT_TRUE(hsm.RemoveAllTrustStores());
  std::string id;
  EXPECT_FALSE(hsm.GetInstalledContainerId(id));
  EXPECT_EQ("", id);
  EXPECT_EQ(0U, hsm.GetInstalledContainerTimestamp());
}

TEST_F(HSMTest, Bundle_IsHandedToTheStore) {
  HSM hsm(Collaborators());
  log.Clear();
  EXPECT_FALSE(hsm.InstallCertificateBundle("A", "pem"));
  trustStore->FailInstall(1);
  EXPECT_TRUE(hsm.InstallCertificateBundle("B", "pem"));
  EXPECT_THAT(trustStore->Installed(), UnorderedElementsAre(Pair("A", "pem")));
  EXPECT_THAT(log.Lines(), ElementsAre("info: Certification bundle A updated succesfully.",
                                       "error: ERROR: Certification bundle B could not be "
                                       "installed!"));
}

TEST_F(HSMTest, TimestampWithoutId_IsClearedAtTheNextStart) {
  for (const bool missing : {true, false}) {
    records->records = {{"truststore-timestamp", "1767323045"}};
    if (!missing) records->records["truststore-container-id"] = "";
    log.Clear();
    HSM hsm(Collaborators());
    EXPECT_EQ(0U, hsm.GetInstalledContainerTimestamp());
    EXPECT_THAT(log.Lines(),
                ElementsAre(kVersionLine,
                            "warning: The recorded Timestamp has no Container ID: an installation "
                            "was interrupted. Clearing the Timestamp."));
  }
}

TEST_F(HSMTest, RecordsThatAgree_AreLeftAlone) {
  using Records = std::map<std::string, std::string>;
  for (const Records& agreeing :
       {Records{}, Records{{"truststore-container-id", ""}, {"truststore-timestamp", "0"}},
        Records{{"truststore-timestamp", "0"}},
        Records{{"truststore-container-id", "c"}, {"truststore-timestamp", "5"}},
        Records{{"truststore-container-id", "c"}}}) {
    records->records = agreeing;
    log.Clear();
    const HSM hsm(Collaborators());
    EXPECT_EQ(agreeing, records->records);
    EXPECT_THAT(log.Lines(), ElementsAre(kVersionLine));
  }
  EXPECT_THAT(records->stored, IsEmpty());
}

TEST_F(HSMTest, RecordsThatCannotBeRead_AreNotClearedForIt) {
  records->records = {{"truststore-timestamp", "5"}};
  records->unreadable = true;
  const HSM hsm(Collaborators());
  EXPECT_THAT(records->stored, IsEmpty());
}

TEST_F(HSMTest, TimestampThatCannotBeCleared_IsDropped) {
  records->records = {{"truststore-timestamp", "5"}};
  records->failStoreOf = "truststore-timestamp";
  const HSM hsm(Collaborators());
  EXPECT_THAT(log.Lines().back(), "error: ERROR: Clearing the Timestamp failed");
  EXPECT_THAT(records->records, IsEmpty());
}

TEST_F(HSMTest, Signature_VerifiesWithTheKeyThatMadeIt) {
  HSM hsm(Collaborators());
  const std::string container = ::tests::TestContainer().Build();
  const auto dot = container.rfind('.');
  const std::string signature =
      base64_utils::Base64Utils::Base64UrlDecode(container.substr(dot + 1));
  const std::string data = container.substr(0, dot);
  const auto leaf = ::tests::Chain("p256-3")[0];
  EXPECT_FALSE(hsm.Signature_Verify(leaf, data, signature));
  EXPECT_TRUE(hsm.Signature_Verify(leaf, data + "x", signature));
  EXPECT_TRUE(hsm.Signature_Verify(leaf, data, signature.substr(1)));
  EXPECT_TRUE(hsm.Signature_Verify(leaf, data, ""));
  EXPECT_TRUE(hsm.Signature_Verify(::tests::Chain("p256-2")[0], data, signature));
}

// The leaf with the last byte of its curve's name (prime256v1) changed to that of no curve.
Botan::X509_Certificate LeafOnUnknownCurve() {
  auto encoding = ::tests::ChainBytes("p256-1")[0];
  const ::tests::Bytes curve = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07};
  const auto at = std::search(encoding.begin(), encoding.end(), curve.begin(), curve.end());
  *(at + 7) = 0x63;
  return Botan::X509_Certificate(encoding);
}

// The library would take the signature for unpadded RSA, which anybody can make.
TEST_F(HSMTest, SignatureByAnRsaKey_IsNone) {
  HSM hsm(Collaborators());
  const Botan::X509_Certificate rsa = ::tests::Chain("rsa3072-2")[1];
  ASSERT_EQ("RSA", rsa.load_subject_public_key()->algo_name());
  const std::string zero(384, '\0');
  EXPECT_TRUE(hsm.Signature_Verify(rsa, "data", zero));
  EXPECT_TRUE(hsm.Signature_Verify(rsa, "data", "sig"));
}

TEST_F(HSMTest, KeyThatTheLibraryCannotLoad_FailsTheSignatureWithALine) {
  HSM hsm(Collaborators());
  log.Clear();
  EXPECT_TRUE(hsm.Signature_Verify(LeafOnUnknownCurve(), "data", "sig"));
  ASSERT_EQ(1U, log.Lines().size());
  EXPECT_EQ(0U, log.Lines()[0].rfind("error: Error: Signature verification failed! ", 0));
}

TEST_F(HSMTest, StopWhileNobodyWaits_EndsTheNextWaitAndOnlyThat) {
  HSM hsm(Collaborators());
  hsm.StopRetryTimer();
  hsm.WaitForRetry(3600);  // returns at once: the test's own time limit is far shorter
  hsm.WaitForRetry(0);
}

TEST_F(HSMTest, DisablingRetries_EndsAWait) {
  HSM hsm(Collaborators());
  log.Clear();
  std::thread waiter([&hsm] { hsm.WaitForRetry(3600); });
  hsm.DisableUpdateRetries(true);
  waiter.join();
  hsm.DisableUpdateRetries(false);
  EXPECT_THAT(log.Lines(),
              ElementsAre("debug: HSM: OCSP retries Disabled", "debug: HSM: OCSP retries Enabled"));
}

}  // namespace
}  // namespace truststore_update_client
