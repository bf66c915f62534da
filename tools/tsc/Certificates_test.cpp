#include "tools/tsc/Certificates.h"

#include "tests/support/CommandTest.h"
#include "tests/support/TestPki.h"

namespace tsc {
namespace {

using Certificates = tests::CommandTest;

TEST_F(Certificates, PemFileWithSeveral_AllInOrder) {
  const auto loaded = LoadCertificates(Pki("p256-3/chain.pem"));
  ASSERT_TRUE(loaded.Ok());
  EXPECT_EQ(loaded.Value(), tests::Chain("p256-3"));
}

TEST_F(Certificates, PemFileWithTextBetween_TextIgnored) {
  const std::string pem = tests::PkiText("root.pem");
  const auto loaded = LoadCertificates(Write("file", "first\n" + pem + "# second\n" + pem + "end"));
  ASSERT_TRUE(loaded.Ok());
  EXPECT_EQ(loaded.Value().size(), 2U);
}

TEST_F(Certificates, DerFile_OneCertificate) {
  const auto loaded = LoadCertificates(Pki("payload/00.der"));
  ASSERT_TRUE(loaded.Ok());
  EXPECT_EQ(loaded.Value().size(), 1U);
}

TEST_F(Certificates, BadFiles_ErrorsNameFileAndCertificate) {
  const std::string pem = tests::PkiText("root.pem");
  const struct {
    std::string content;
    std::string error;
  } cases[] = {
      {"", ": no certificate: "},
      {"text", ": no certificate: "},
      {pem + "-----BEGIN CERTIFICATE-----\nAAAA\n", ": certificate 2: no end line"},
      {pem + "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n", ": certificate 2: "},
  };
  for (const auto& entry : cases) {
    const auto loaded = LoadCertificates(Write("file", entry.content));
    ASSERT_FALSE(loaded.Ok()) << entry.content;
    EXPECT_EQ(loaded.Failure().Text().find(Path("file") + entry.error), 0U)
        << loaded.Failure().Text();
  }
}

TEST_F(Certificates, MissingFile_ErrorNamesIt) {
  EXPECT_EQ(LoadCertificates(Path("no")).Failure().Text(),
            Path("no") + ": No such file or directory");
}

TEST_F(Certificates, Facts_NamesTimesAndHash) {
  const auto facts = FactsOf(tests::PkiBytes("payload/10.der"));
  EXPECT_EQ(facts.problem, "");
  EXPECT_NE(facts.subject.find("Payload CA 10"), std::string::npos) << facts.subject;
  EXPECT_NE(facts.issuer.find("Payload CA 0"), std::string::npos) << facts.issuer;
  EXPECT_EQ(facts.notBefore.size(), std::string("2026-01-02T03:04:05Z").size());
  EXPECT_LT(facts.notBefore, facts.notAfter);
  EXPECT_EQ(facts.sha256.size(), 64U);
}

TEST_F(Certificates, FactsOfFixedDates_WrittenInIso) {
  const auto facts = FactsOf(tests::PkiBytes("payload/odd/v1.der"));
  EXPECT_EQ(facts.notBefore, "2020-01-01T00:00:00Z");
  EXPECT_EQ(facts.notAfter, "2049-12-31T23:59:59Z");
}

TEST_F(Certificates, FactsOfWhatIsNoCertificate_ProblemAndHash) {
  const auto facts = FactsOf({'a', 'b', 'c'});
  EXPECT_NE(facts.problem, "");
  EXPECT_EQ(facts.sha256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST_F(Certificates, FactsOfCostlyOnes_NotConstructed) {
  for (const char* const name : {"rsa-modulus-8193", "rsa-exponent-65", "rsa-modulus-20800",
                                 "size-4097", "dsa-19937", "ec-explicit-19937"}) {
    const auto facts = FactsOf(tests::PkiBytes(std::string("hostile/") + name + ".der"));
    EXPECT_NE(facts.problem, "") << name;
    EXPECT_EQ(facts.subject, "") << name;
  }
}

TEST_F(Certificates, FactsInJson_ProblemInPlaceOfNames) {
  CertificateFacts facts{"s", "i", "b", "a", "h", ""};
  EXPECT_EQ(ToJson(facts).dump(),
            R"({"subject":"s","issuer":"i","not_before":"b","not_after":"a","sha256":"h"})");
  facts.problem = "p";
  EXPECT_EQ(ToJson(facts).dump(), R"({"problem":"p","sha256":"h"})");
}

TEST_F(Certificates, CommonNames_Concatenated) {
  EXPECT_EQ(CommonNameOf(tests::Chain("cn-two-split-prefix").front()), "KALVIRON 7");
  EXPECT_EQ(CommonNameOf(tests::Chain("cn-missing").front()), "");
}

TEST_F(Certificates, OddOnesOfAPayload_FactsOrProblem) {
  const struct {
    const char* name;
    const char* subject;
  } cases[] = {
      {"self-issued-no-ids", "Payload self-issued"},
      {"self-issued-wrong-signature", "Payload wrong signature"},
      {"issuer-unknown", "Payload orphan"},
      {"issuer-name-own-key-other", "Payload twin"},
      {"v1", "Payload v1"},
      {"long-form-length", "Payload odd"},
      {"trailing-bytes", "Payload odd"},
      {"pem-text", "Payload odd"},
  };
  for (const auto& entry : cases) {
    const auto facts = FactsOf(tests::PkiBytes(std::string("payload/odd/") + entry.name + ".der"));
    EXPECT_EQ(facts.problem, "") << entry.name;
    EXPECT_NE(facts.subject.find(entry.subject), std::string::npos) << facts.subject;
  }
}

TEST_F(Certificates, EmptyNames_AreEmptyTexts) {
  const auto facts = FactsOf(tests::PkiBytes("payload/odd/empty-names.der"));
  EXPECT_EQ(facts.problem, "");
  EXPECT_EQ(facts.subject + facts.issuer, "");
}

TEST_F(Certificates, RefusedOnes_HaveAProblem) {
  for (const char* const name : {"truncated", "truncated-header", "indefinite-length",
                                 "not-a-certificate", "empty-sequence", "nested"}) {
    const auto facts = FactsOf(tests::PkiBytes(std::string("payload/refused/") + name + ".der"));
    EXPECT_NE(facts.problem, "") << name;
    EXPECT_EQ(facts.sha256.size(), 64U) << name;
  }
}

TEST_F(Certificates, CertificatesAtTheBounds_Read) {
  for (const char* const name : {"rsa-modulus-8192", "rsa-exponent-64", "size-4096"}) {
    EXPECT_EQ(FactsOf(tests::PkiBytes(std::string("hostile/") + name + ".der")).problem, "")
        << name;
  }
}

}  // namespace
}  // namespace tsc
