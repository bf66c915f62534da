#include "tools/tsc/SignerChecks.h"

#include <botan/data_src.h>
#include <botan/pkcs8.h>
#include <gmock/gmock.h>

#include <memory>

#include "tests/support/TestPki.h"
#include "tools/tsc/Timestamps.h"

namespace tsc {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

ContainerDraft DraftOf(const std::string& chain) {
  ContainerDraft draft;
  draft.timestamp = "2026-01-02T03:04:05";
  draft.id = "id-1";
  draft.chain = tests::Chain(chain);
  draft.bundles["WEB"] = {};
  return draft;
}

std::vector<std::string> Check(const ContainerDraft& draft, const std::string& keyOf) {
  Botan::DataSource_Memory source(tests::PkiText(keyOf + "/leaf.key.pem"));
  return Objections(draft, *Botan::PKCS8::load_key(source));
}

TEST(SignerChecks, GoodChains_NoObjection) {
  for (const char* const chain :
       {"p256-1", "p256-2", "p256-3", "p256-5", "p384-3", "rsa3072-2", "with-root-3", "cross-3",
        "same-subject-2", "cn-exact", "cn-two-split-prefix"}) {
    EXPECT_THAT(Check(DraftOf(chain), chain), IsEmpty()) << chain;
  }
}

TEST(SignerChecks, BadChains_OneObjectionThatTellsWhy) {
  const struct {
    const char* chain;
    const char* objection;
  } cases[] = {
      {"rsa2048-2", "x5c[1]: key too weak"},
      {"expired-leaf-2", "x5c[0]: expired"},
      {"expired-ca-2", "x5c[1]: expired"},
      {"notyet-leaf-2", "x5c[0]: not valid yet"},
      {"notyet-ca-2", "x5c[1]: not valid yet"},
      {"ca-bit-missing-2", "x5c[1]: not a CA"},
      {"forged-leaf-2", "x5c[0]: not issued by the next certificate"},
      {"same-subject-3", "x5c: too many certificates of one subject"},
      {"cn-wrong", "x5c[0]: Common Name 'OTHER Signer' does not match KALVIRON.*"},
      {"cn-missing", "x5c[0]: Common Name '' does not match KALVIRON.*"},
  };
  for (const auto& entry : cases) {
    EXPECT_THAT(Check(DraftOf(entry.chain), entry.chain), ElementsAre(entry.objection))
        << entry.chain;
  }
}

TEST(SignerChecks, ChainOutOfOrder_Told) {
  ContainerDraft draft = DraftOf("p256-3");
  std::swap(draft.chain[1], draft.chain[2]);
  EXPECT_THAT(Check(draft, "p256-3"), ElementsAre("x5c[0]: not issued by the next certificate",
                                                  "x5c[1]: not issued by the next certificate"));
}

TEST(SignerChecks, SixteenCertificates_NoObjectionToTheirNumber) {
  ContainerDraft draft = DraftOf("p256-1");
  draft.chain.resize(16, draft.chain.front());
  EXPECT_THAT(Check(draft, "p256-1"), ::testing::Not(Contains(HasSubstr("more than 16"))));
}

TEST(SignerChecks, SeventeenCertificates_TooMany) {
  ContainerDraft draft = DraftOf("p256-1");
  draft.chain.resize(17, draft.chain.front());
  EXPECT_THAT(Check(draft, "p256-1"), Contains("x5c: more than 16 certificates"));
}

TEST(SignerChecks, CertificateAboveTheSizeBound_Told) {
  EXPECT_THAT(Check(DraftOf("cn-100000"), "cn-100000"), Contains(HasSubstr("x5c[0]: ")));
}

TEST(SignerChecks, KeyOfAnotherLeaf_Told) {
  EXPECT_THAT(Check(DraftOf("p256-2"), "p256-3"),
              ElementsAre("key: does not belong to the first certificate of the chain"));
}

TEST(SignerChecks, EmptyChain_Told) {
  ContainerDraft draft = DraftOf("p256-2");
  draft.chain.clear();
  EXPECT_THAT(Check(draft, "p256-2"), ElementsAre("x5c: empty"));
}

TEST(SignerChecks, HeaderFields_EachTold) {
  ContainerDraft draft = DraftOf("p256-2");
  draft.algorithm = "es256";
  draft.id = "";
  draft.timestamp = "yesterday";
  draft.bundles.clear();
  EXPECT_THAT(Check(draft, "p256-2"),
              ElementsAre("alg: a unit takes ES256 only", "ContainerId: empty",
                          "ts: no date and time", "bundle: at least one is needed"));
}

TEST(SignerChecks, NamesThatJsonMustEscape_Told) {
  for (const char* const name : {"a\"b", "a\\b", "a\nb"}) {
    ContainerDraft draft = DraftOf("p256-2");
    draft.id = name;
    draft.bundles[name] = {};
    EXPECT_THAT(
        Check(draft, "p256-2"),
        ElementsAre("ContainerId: has a character that JSON must escape",
                    "bundle '" + std::string(name) + "': has a character that JSON must escape"));
  }
}

TEST(SignerChecks, IdThatAUnitCannotRecord_Told) {
  ContainerDraft draft = DraftOf("p256-2");
  draft.id = std::string(100, 'x');
  EXPECT_THAT(Check(draft, "p256-2"), IsEmpty());
  draft.id += "x";
  EXPECT_THAT(Check(draft, "p256-2"), ElementsAre("ContainerId: more than 100 bytes"));
}

TEST(SignerChecks, TimestampFarAhead_Told) {
  ContainerDraft draft = DraftOf("p256-2");
  draft.timestamp = FormatTimestamp(SecondsNow() + 2 * 86400);
  EXPECT_THAT(Check(draft, "p256-2"), ElementsAre("ts: more than 24 hours ahead"));
  draft.timestamp = FormatTimestamp(SecondsNow() + 3600);
  EXPECT_THAT(Check(draft, "p256-2"), IsEmpty());
}

TEST(SignerChecks, BundleNameAtTheBoundOfAUnitsStore_Taken) {
  auto draft = DraftOf("p256-3");
  draft.bundles[std::string(244, 'x')] = {};
  EXPECT_THAT(Check(draft, "p256-3"), IsEmpty());
}

TEST(SignerChecks, BundleNameAboveTheBound_Named) {
  auto draft = DraftOf("p256-3");
  const std::string name(245, 'x');
  draft.bundles[name] = {};
  EXPECT_THAT(Check(draft, "p256-3"),
              ElementsAre("bundle '" + name + "': name too long for a unit's store"));
}

}  // namespace
}  // namespace tsc
