#include <botan/pkix_types.h>
#include <gmock/gmock.h>

#include "TruststoreUpdateClient/HSM.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeRecords.h"
#include "tests/doubles/FakeTrustStore.h"
#include "tests/support/TestPki.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::tests::Certificate;
using ::tests::Chain;
using ::tests::PkiText;

const std::string kSucceeded = "info: X5C certificates path validation succeeded!";
const std::string kFailed = "error: Error: Certificate Path validation failed";
const std::string kWrongOrder =
    "error: Error: X5C certificates Path validation failed. Certificates in the wrong order!";

std::string NotAgainst(const std::string& rootFile) {
  return "error: Error: Certificate path cannot be validated against: " +
         Certificate(rootFile).subject_dn().get_first_attribute("CN");
}

class HSMPathValidation : public ::testing::Test {
 protected:
  HSMPathValidation()
      : hsm(HSM::Collaborators{trustStore,
                               PersistentFileStorage(std::make_shared<::tests::FakeRecords>())}) {
    log.Clear();
  }

  void ProvisionRoots(const std::vector<std::string>& files) {
    std::string pem;
    for (const std::string& file : files) pem += PkiText(file);
    trustStore->Provision(ZORA_ROOT_CERTIFICATE_ID, pem);
  }

  bool IsValid(const std::string& chain) {
    ProvisionRoots({chain + "/root.pem"});
    return !hsm.X5CPathValidation(Chain(chain));
  }

  const std::shared_ptr<::tests::FakeTrustStore> trustStore =
      std::make_shared<::tests::FakeTrustStore>();
  platform_host::CapturedLog log;
  HSM hsm;
};

TEST_F(HSMPathValidation, ChainsOfEveryLengthAndKey_AreValid) {
  for (const char* chain : {"p256-1", "p256-2", "p256-3", "p256-5", "p384-3", "rsa3072-2"}) {
    log.Clear();
    EXPECT_TRUE(IsValid(chain)) << chain;
    EXPECT_THAT(log.Lines(), ElementsAre(kSucceeded)) << chain;
  }
}

TEST_F(HSMPathValidation, ChainsWithSharedSubjects_AreValid) {
  for (const char* chain : {"with-root-3", "cross-3", "same-subject-2", "shared-subjects-3"}) {
    log.Clear();
    EXPECT_TRUE(IsValid(chain)) << chain;
    EXPECT_THAT(log.Lines(), ElementsAre(kSucceeded)) << chain;
  }
}

TEST_F(HSMPathValidation, ChainsThatTheLibraryRefuses_AreNotValid) {
  for (const std::string chain : {"rsa2048-2", "expired-leaf-2", "expired-ca-2", "notyet-leaf-2",
                                  "notyet-ca-2", "ca-bit-missing-2", "forged-leaf-2"}) {
    log.Clear();
    EXPECT_FALSE(IsValid(chain)) << chain;
    EXPECT_THAT(log.Lines(), ElementsAre(NotAgainst(chain + "/root.pem"), kFailed)) << chain;
  }
}

TEST_F(HSMPathValidation, ExpiredSigner_WasValidInItsTime) {
  const auto leaf = Chain("expired-leaf-2")[0];
  HSM::Collaborators collaborators{trustStore,
                                   PersistentFileStorage(std::make_shared<::tests::FakeRecords>())};
  collaborators.now = [&leaf] { return leaf.not_after().to_std_timepoint(); };
  const HSM earlier(std::move(collaborators));
  ProvisionRoots({"expired-leaf-2/root.pem"});
  EXPECT_FALSE(earlier.X5CPathValidation(Chain("expired-leaf-2")));
}

TEST_F(HSMPathValidation, SecondOfTwoRoots_IsFoundAfterALineForTheFirst) {
  ProvisionRoots({"other-root/other-name.pem", "root.pem"});
  EXPECT_FALSE(hsm.X5CPathValidation(Chain("p256-3")));
  EXPECT_THAT(log.Lines(), ElementsAre(NotAgainst("other-root/other-name.pem"), kSucceeded));
}

TEST_F(HSMPathValidation, RootsOfOneName_AreTriedInTurn) {
  ProvisionRoots({"other-root/same-name.pem", "root.pem"});
  EXPECT_FALSE(hsm.X5CPathValidation(Chain("p256-3")));
  EXPECT_THAT(log.Lines(), ElementsAre(NotAgainst("other-root/same-name.pem"), kSucceeded));
}

TEST_F(HSMPathValidation, NoRootThatFits_LogsALineForEachAndFails) {
  ProvisionRoots({"other-root/other-name.pem", "other-root/same-name.pem"});
  EXPECT_TRUE(hsm.X5CPathValidation(Chain("p256-3")));
  EXPECT_THAT(log.Lines(), ElementsAre(NotAgainst("other-root/other-name.pem"),
                                       NotAgainst("other-root/same-name.pem"), kFailed));
}

TEST_F(HSMPathValidation, ValidPathInTheWrongOrder_FailsWithoutTryingOtherRoots) {
  ProvisionRoots({"root.pem", "other-root/other-name.pem"});
  auto chain = Chain("p256-3");
  std::swap(chain[1], chain[2]);
  EXPECT_TRUE(hsm.X5CPathValidation(chain));
  EXPECT_THAT(log.Lines(), ElementsAre(kWrongOrder));
}

TEST_F(HSMPathValidation, CertificateThatBelongsToNoPath_IsAWrongOrder) {
  ProvisionRoots({"root.pem"});
  auto chain = Chain("p256-3");
  chain.push_back(Certificate("other-root/other-name.pem"));
  EXPECT_TRUE(hsm.X5CPathValidation(chain));
  EXPECT_THAT(log.Lines(), ElementsAre(kWrongOrder));
}

TEST_F(HSMPathValidation, CrossCertifiedChainUnderItsFirstRoot_IsAWrongOrder) {
  ProvisionRoots({"cross-3/first-root.pem"});
  EXPECT_TRUE(hsm.X5CPathValidation(Chain("cross-3")));
  EXPECT_THAT(log.Lines(), ElementsAre(kWrongOrder));
}

TEST_F(HSMPathValidation, MoreThanTwoOfOneSubject_AreAWrongOrderBeforeAnyPathIsBuilt) {
  for (const char* chain : {"same-subject-3", "root-name-8", "root-name-spelt-8"}) {
    log.Clear();
    EXPECT_FALSE(IsValid(chain)) << chain;
    EXPECT_THAT(log.Lines(), ElementsAre(kWrongOrder)) << chain;
  }
}

TEST_F(HSMPathValidation, TooManySharedSubjects_AreAWrongOrderBeforeAnyPathIsBuilt) {
  EXPECT_FALSE(IsValid("shared-subjects-4"));
  EXPECT_THAT(log.Lines(), ElementsAre(kWrongOrder));
}

TEST_F(HSMPathValidation, EmptyRootBundle_FailsEveryChain) {
  ProvisionRoots({});
  EXPECT_TRUE(hsm.X5CPathValidation(Chain("p256-3")));
  EXPECT_THAT(log.Lines(), ElementsAre(kFailed));
}

TEST_F(HSMPathValidation, MissingRootBundle_Fails) {
  EXPECT_TRUE(hsm.X5CPathValidation(Chain("p256-3")));
  EXPECT_THAT(log.Lines(), ElementsAre("error: Error: Unable to get Root Certificate!"));
}

TEST_F(HSMPathValidation, RootBundleThatHoldsNoCertificate_Fails) {
  trustStore->Provision(ZORA_ROOT_CERTIFICATE_ID, "x-----END CERTIFICATE-----\n");
  EXPECT_TRUE(hsm.X5CPathValidation(Chain("p256-3")));
  EXPECT_THAT(log.Lines(), ElementsAre("error: Error: Unable to populate X509_Certificate with "
                                       "ZORA root certificate!"));
}

TEST_F(HSMPathValidation, EmptyChain_FailsByTheLibrarysException) {
  ProvisionRoots({"root.pem"});
  EXPECT_TRUE(hsm.X5CPathValidation({}));
  ASSERT_EQ(1U, log.Lines().size());
  EXPECT_EQ(0U, log.Lines()[0].rfind("error: Error: X5C certificates path validation failed! ", 0));
}

TEST_F(HSMPathValidation, CheckCertificateChainOrder_NeedsEachIssuedByTheNext) {
  const auto root = Certificate("root.pem");
  auto chain = Chain("p256-3");
  EXPECT_TRUE(HSM::CheckCertificateChainOrder(root, chain));
  EXPECT_FALSE(HSM::CheckCertificateChainOrder(Certificate("other-root/same-name.pem"), chain));
  chain.erase(chain.begin() + 1);
  EXPECT_FALSE(HSM::CheckCertificateChainOrder(root, chain));
  EXPECT_TRUE(HSM::CheckCertificateChainOrder(root, {root}));
}

std::vector<std::string> Split(const std::string& pem) {
  std::vector<std::string> pieces;
  HSM::SplitCertificate(pem, pieces);
  return pieces;
}

TEST(HSMSplitCertificate, Pieces_EndWithTheCharacterAfterTheirMarker) {
  EXPECT_THAT(Split("a-----END CERTIFICATE-----\nb-----END CERTIFICATE-----\nrest"),
              ElementsAre("a-----END CERTIFICATE-----\n", "b-----END CERTIFICATE-----\n"));
  EXPECT_THAT(Split("a-----END CERTIFICATE-----"), ElementsAre("a-----END CERTIFICATE-----"));
  EXPECT_THAT(Split("no marker"), IsEmpty());
  EXPECT_THAT(Split(""), IsEmpty());
}

}  // namespace
}  // namespace truststore_update_client
