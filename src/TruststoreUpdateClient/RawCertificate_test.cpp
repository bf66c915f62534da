#include "TruststoreUpdateClient/RawCertificate.h"

#include <botan/x509cert.h>
#include <gtest/gtest.h>

#include "tests/support/TestPki.h"

namespace truststore_update_client {
namespace {

using ::tests::PkiBytes;

TEST(RawCertificate, EveryAcceptedEncoding_EncodesAsTheLibraryDoes) {
  for (const char* file : {"payload/00.der", "payload/odd/long-form-length.der",
                           "payload/odd/trailing-bytes.der", "payload/odd/pem-text.der"}) {
    const auto encoding = PkiBytes(file);
    const Botan::X509_Certificate expected(encoding);
    const RawCertificate certificate(encoding);
    EXPECT_EQ(expected.PEM_encode(), certificate.PEM_encode()) << file;
    EXPECT_EQ(expected.BER_encode(), certificate.BER_encode()) << file;
  }
}

TEST(RawCertificate, AlternativePemLabel_IsTaken) {
  std::string pem = Botan::X509_Certificate(PkiBytes("payload/00.der")).PEM_encode();
  for (auto at = pem.find("CERTIFICATE"); at != std::string::npos;
       at = pem.find("CERTIFICATE", at + 20)) {
    pem.insert(at, "X509 ");
  }
  EXPECT_EQ(Botan::X509_Certificate(PkiBytes("payload/00.der")).PEM_encode(),
            RawCertificate({pem.begin(), pem.end()}).PEM_encode());
}

TEST(RawCertificate, BytesThatAreNoSignedObject_Throw) {
  for (const char* text : {"", "x", "0", "-----BEGIN KEY-----"}) {
    const std::string bytes = text;
    EXPECT_THROW(RawCertificate({bytes.begin(), bytes.end()}), std::exception) << text;
  }
  EXPECT_THROW(RawCertificate(PkiBytes("payload/refused/truncated.der")), std::exception);
}

}  // namespace
}  // namespace truststore_update_client
