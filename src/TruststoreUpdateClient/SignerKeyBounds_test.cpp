#include "TruststoreUpdateClient/SignerKeyBounds.h"

#include <gtest/gtest.h>

#include "tests/support/TestPki.h"

namespace truststore_update_client {
namespace {

using ::tests::ChainBytes;
using ::tests::PkiBytes;

TEST(SignerKeyBounds, CertificatesOfRealSigners_AreWithin) {
  for (const char* chain : {"p256-3", "p384-3", "rsa3072-2", "rsa2048-2"}) {
    for (const auto& encoding : ChainBytes(chain)) EXPECT_EQ("", BeyondSignerBounds(encoding));
  }
}

TEST(SignerKeyBounds, AtEachBound_IsWithin) {
  for (const char* name :
       {"rsa-modulus-8192", "rsa-exponent-64", "size-4096", "ec-parameters-32"}) {
    EXPECT_EQ("", BeyondSignerBounds(PkiBytes(std::string("hostile/") + name + ".der"))) << name;
  }
}

struct Refusal {
  const char* name;
  const char* reason;
};

TEST(SignerKeyBounds, AboveEachBound_TellsWhich) {
  for (const Refusal& refusal : {Refusal{"rsa-modulus-8193", "RSA modulus too long"},
                                 Refusal{"rsa-exponent-65", "RSA exponent too long"},
                                 Refusal{"size-4097", "certificate too long"},
                                 Refusal{"rsa-modulus-20800", "RSA modulus too long"},
                                 Refusal{"ec-explicit-19937", "key parameters too long"},
                                 Refusal{"ec-parameters-33", "key parameters too long"}}) {
    EXPECT_EQ(refusal.reason,
              BeyondSignerBounds(PkiBytes(std::string("hostile/") + refusal.name + ".der")))
        << refusal.name;
  }
}

TEST(SignerKeyBounds, KeyOfEd25519_IsWithin) {
  EXPECT_EQ("", BeyondSignerBounds(PkiBytes("hostile/ed25519.der")));
}

TEST(SignerKeyBounds, KeyThatSignsNoCertificatesToday_IsBeyond) {
  for (const char* name : {"dsa-19937", "mceliece"}) {
    EXPECT_EQ("key algorithm not for signers",
              BeyondSignerBounds(PkiBytes(std::string("hostile/") + name + ".der")))
        << name;
  }
}

TEST(SignerKeyBounds, CurveSpelledOutInAFewBytes_IsBeyond) {
  EXPECT_EQ("key parameters too long",
            BeyondSignerBounds(PkiBytes("costly/smooth-curve/chain/0.der")));
}

TEST(SignerKeyBounds, PemTextInPlaceOfDer_IsLookedInto) {
  const std::string pem = [] {
    const auto der = PkiBytes("hostile/rsa-modulus-8193.der");
    return Botan::X509_Certificate(der).PEM_encode();
  }();
  EXPECT_EQ("RSA modulus too long", BeyondSignerBounds({pem.begin(), pem.end()}));
}

TEST(SignerKeyBounds, UnreadableEncoding_IsLeftToTheLibrary) {
  EXPECT_EQ("", BeyondSignerBounds({}));
  EXPECT_EQ("", BeyondSignerBounds({0x30, 0x03, 0x02, 0x01, 0x00}));
  EXPECT_EQ("", BeyondSignerBounds(std::vector<std::uint8_t>(4096, 0x30)));
}

TEST(SignerKeyBounds, LongUnreadableEncoding_IsBeyond) {
  EXPECT_EQ("certificate too long", BeyondSignerBounds(std::vector<std::uint8_t>(4097, 0x30)));
}

}  // namespace
}  // namespace truststore_update_client
