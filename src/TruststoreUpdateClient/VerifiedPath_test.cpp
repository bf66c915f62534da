#include "TruststoreUpdateClient/VerifiedPath.h"

#include <gmock/gmock.h>

#include "tests/support/TestPki.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::tests::Certificate;
using ::tests::Chain;
using Certificates = std::vector<Botan::X509_Certificate>;

TEST(VerifiedPath, MostCertificatesOfOneSubject_CountsDifferentOnes) {
  EXPECT_EQ(0U, MostCertificatesOfOneSubject({}));
  EXPECT_EQ(1U, MostCertificatesOfOneSubject(Chain("p256-3")));
  EXPECT_EQ(2U, MostCertificatesOfOneSubject(Chain("same-subject-2")));
  EXPECT_EQ(3U, MostCertificatesOfOneSubject(Chain("same-subject-3")));
  EXPECT_EQ(8U, MostCertificatesOfOneSubject(Chain("root-name-8")));
  EXPECT_EQ(8U, MostCertificatesOfOneSubject(Chain("root-name-spelt-8")));
}

TEST(VerifiedPath, OneCertificateTwice_CountsOnce) {
  Certificates chain = Chain("p256-2");
  chain.push_back(chain.back());
  EXPECT_EQ(1U, MostCertificatesOfOneSubject(chain));
}

TEST(VerifiedPath, SharedSubjects_CountsThoseOfDifferentCertificates) {
  Certificates twice = Chain("p256-2");
  twice.push_back(twice.back());
  EXPECT_EQ(0U, SharedSubjects({}));
  EXPECT_EQ(0U, SharedSubjects(twice));
  EXPECT_EQ(1U, SharedSubjects(Chain("same-subject-3")));
  EXPECT_EQ(4U, SharedSubjects(Chain("shared-subjects-4")));
}

TEST(VerifiedPath, DifferentSubjects_AreKeptUnseen) {
  const Certificates forged = Chain("forged-leaf-2");
  EXPECT_EQ(forged, VerifiedPaths(forged).LeadingTo(Certificate("root.pem")));
}

TEST(VerifiedPath, PathThroughTwoOfOneSubject_IsKeptWhole) {
  const Certificates chain = Chain("same-subject-2");
  EXPECT_EQ(chain, VerifiedPaths(chain).LeadingTo(Certificate("same-subject-2/root.pem")));
}

TEST(VerifiedPath, SharedSubjectThatLeadsNowhere_IsDropped) {
  Certificates chain = Chain("same-subject-2");
  const Botan::X509_Certificate leaf = chain[0];
  EXPECT_THAT(VerifiedPaths(chain).LeadingTo(Certificate("other-root/other-name.pem")),
              ElementsAre(leaf));
}

TEST(VerifiedPath, IsIssuedBy_NeedsNameAndSignature) {
  const Certificates chain = Chain("p256-3");
  EXPECT_TRUE(IsIssuedBy(chain[0], chain[1]));
  EXPECT_TRUE(IsIssuedBy(chain[2], Certificate("root.pem")));
  EXPECT_FALSE(IsIssuedBy(chain[0], chain[2]));
  EXPECT_FALSE(IsIssuedBy(chain[2], Certificate("other-root/same-name.pem")));
}

}  // namespace
}  // namespace truststore_update_client
