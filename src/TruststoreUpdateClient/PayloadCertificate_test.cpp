#include "TruststoreUpdateClient/PayloadCertificate.h"

#include <botan/x509cert.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <random>

#include "tests/doubles/ChildProcess.h"
#include "tests/support/TestPki.h"

namespace truststore_update_client {
namespace {

using ::tests::Bytes;
using ::tests::PkiBytes;

// What the library's own constructor and encoder make of the bytes: "" stands for refused.
std::string ByLibrary(const Bytes& encoding) {
  try {
    return Botan::X509_Certificate(encoding).PEM_encode();
  } catch (const std::exception&) {
    return "";
  }
}

std::string ByUs(const Bytes& encoding) {
  try {
    return PemOfCertificate(encoding);
  } catch (const std::exception&) {
    return "";
  }
}

std::string Ordinary(int number) {
  return "payload/" + std::string(number < 10 ? "0" : "") + std::to_string(number) + ".der";
}

TEST(PayloadCertificate, OrdinaryCertificates_HaveTheLibrarysPem) {
  for (int number = 0; number < 20; ++number) {
    const Bytes encoding = PkiBytes(Ordinary(number));
    EXPECT_NE("", ByUs(encoding)) << number;
    EXPECT_EQ(ByLibrary(encoding), ByUs(encoding)) << number;
  }
}

TEST(PayloadCertificate, OddButAcceptedCertificates_HaveTheLibrarysPem) {
  for (const char* name : {"self-issued-no-ids", "self-issued-wrong-signature", "issuer-unknown",
                           "issuer-name-own-key-other", "v1", "empty-names", "long-form-length",
                           "trailing-bytes", "pem-text"}) {
    const Bytes encoding = PkiBytes(std::string("payload/odd/") + name + ".der");
    EXPECT_NE("", ByUs(encoding)) << name;
    EXPECT_EQ(ByLibrary(encoding), ByUs(encoding)) << name;
  }
}

TEST(PayloadCertificate, EndOfContentsInPlaceOfExtensions_HasTheLibrarysPem) {
  Bytes encoding = PkiBytes("payload/odd/self-issued-wrong-signature.der");
  const Bytes extensions{0xA3, 0x23, 0x30, 0x21};
  const auto tag =
      std::search(encoding.begin(), encoding.end(), extensions.begin(), extensions.end());
  ASSERT_NE(encoding.end(), tag);
  *tag = 0;
  EXPECT_NE("", ByUs(encoding));
  EXPECT_EQ(ByLibrary(encoding), ByUs(encoding));
}

TEST(PayloadCertificate, BytesThatAreNoCertificate_Throw) {
  for (const char* name : {"truncated", "truncated-header", "indefinite-length",
                           "not-a-certificate", "empty-sequence", "nested"}) {
    const Bytes encoding = PkiBytes(std::string("payload/refused/") + name + ".der");
    EXPECT_EQ("", ByLibrary(encoding)) << name;
    EXPECT_EQ("", ByUs(encoding)) << name;
  }
}

// Subject and issuer differ in no way, though they have bytes. Verifying their signature with the
// key that they bring along takes the library many times the processor time that is given here.
TEST(PayloadCertificate, SubjectThatDecodesToNoName_IsNotVerifiedEither) {
  for (const char* name : {"empty-set-name", "empty-text-name"}) {
    ::tests::ChildProcess child([name] {
      const rlimit fewSeconds{3, 3};
      if (::setrlimit(RLIMIT_CPU, &fewSeconds) != 0) return 2;
      return ByUs(PkiBytes(std::string("costly/payload/") + name + ".der")).empty() ? 1 : 0;
    });
    EXPECT_EQ(child.Wait(), 0) << name;
  }
}

// The proof that leaving out the self-signature changes no verdict: every byte of certificates of
// each kind is spoilt in turn, and the library is asked about each.
class PayloadCertificateMutation : public ::testing::TestWithParam<const char*> {};

TEST_P(PayloadCertificateMutation, AnyByteSpoilt_IsJudgedAsByTheLibrary) {
  const Bytes original = PkiBytes(GetParam());
  std::mt19937 random(1);
  for (std::size_t at = 0; at < original.size(); ++at) {
    Bytes spoilt = original;
    spoilt[at] = static_cast<std::uint8_t>(spoilt[at] ^ (1 + random() % 255));
    ASSERT_EQ(ByLibrary(spoilt), ByUs(spoilt)) << "byte " << at;
  }
}

TEST_P(PayloadCertificateMutation, CutAnywhere_IsJudgedAsByTheLibrary) {
  const Bytes original = PkiBytes(GetParam());
  for (std::size_t size = 0; size < original.size(); ++size) {
    const Bytes cut(original.begin(), original.begin() + static_cast<std::ptrdiff_t>(size));
    ASSERT_EQ(ByLibrary(cut), ByUs(cut)) << "length " << size;
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, PayloadCertificateMutation,
                         ::testing::Values("payload/00.der", "payload/01.der", "payload/10.der",
                                           "payload/odd/self-issued-no-ids.der",
                                           "payload/odd/v1.der", "payload/odd/empty-names.der"));

TEST(PayloadCertificate, LengthAboveTheBound_IsRefusedUnread) {
  Bytes encoding = PkiBytes("payload/00.der");  // bytes after the certificate are dropped
  encoding.resize(kMaxPayloadCertificateBytes);
  EXPECT_NE("", ByUs(encoding));
  encoding.resize(kMaxPayloadCertificateBytes + 1);
  EXPECT_EQ("", ByUs(encoding));
}

TEST(PayloadCertificate, ExtensionsAboveTheirBound_AreRefused) {
  EXPECT_EQ(12288U, kMaxPayloadFieldBytes);
  const Bytes atBound = PkiBytes("hostile/extensions-12288.der");
  EXPECT_NE("", ByUs(atBound));
  EXPECT_EQ(ByLibrary(atBound), ByUs(atBound));
  EXPECT_EQ("", ByUs(PkiBytes("hostile/extensions-12289.der")));
}

}  // namespace
}  // namespace truststore_update_client
