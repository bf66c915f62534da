#include "TruststoreUpdateClient/OcspResponseCheck.h"

#include <botan/ber_dec.h>
#include <botan/der_enc.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <exception>
#include <sstream>

#include "tests/support/TestPki.h"

namespace truststore_update_client {
namespace {

using Bytes = ::tests::Bytes;
using Status = Botan::Certificate_Status_Code;
using TimePoint = std::chrono::system_clock::time_point;

Botan::X509_Certificate Certificate(const std::string& stem) {
  return ::tests::Certificate("ocsp/" + stem + ".der");
}

Bytes Answer(const std::string& stem) {
  return ::tests::PkiBytes("ocsp/" + stem + ".response");
}

OcspVerdict Verdict(const Bytes& answer, const std::string& about = "good",
                    TimePoint now = std::chrono::system_clock::now()) {
  return EvaluateOcspResponse(Certificate(about), Certificate("issuer"), answer, now);
}

// The time of an answer's thisUpdate (0) or nextUpdate (1).
TimePoint TimeOf(const std::string& stem, int which) {
  std::istringstream text(::tests::PkiText("ocsp/" + stem + ".times"));
  std::int64_t seconds = 0;
  for (int i = 0; i <= which; ++i) text >> seconds;
  EXPECT_FALSE(text.fail()) << stem;
  return TimePoint(std::chrono::seconds(seconds));
}

TEST(OcspResponseCheckTest, AnswersOfTheIssuerAndItsResponders_AreGood) {
  for (const char* stem : {"good", "good-without-next-update", "good-by-key-id",
                           "good-without-certificates", "good-sha512", "delegate", "delegate-rsa",
                           "delegate-p384", "delegate-by-key-id", "delegate-with-chain"}) {
    EXPECT_EQ("", BeyondOcspBounds(Answer(stem))) << stem;
    EXPECT_TRUE(Verdict(Answer(stem)).IsGood()) << stem;
  }
}

struct RefusedAnswer {
  const char* stem;
  const char* about;
  Status status;
};

TEST(OcspResponseCheckTest, SignedAnswersThatAreNotGood_AreRefusedByTheirStatus) {
  const RefusedAnswer answers[] = {
      {"revoked", "revoked", Status::CERT_IS_REVOKED},
      {"revoked-by-delegate", "revoked", Status::CERT_IS_REVOKED},
      {"unknown", "unknown", Status::OCSP_BAD_STATUS},
      {"other", "good", Status::OCSP_CERT_NOT_LISTED},
      {"good", "other", Status::OCSP_CERT_NOT_LISTED},
      {"good", "revoked", Status::OCSP_CERT_NOT_LISTED},
  };
  for (const RefusedAnswer& answer : answers) {
    const OcspVerdict verdict = Verdict(Answer(answer.stem), answer.about);
    EXPECT_FALSE(verdict.IsGood()) << answer.stem;
    EXPECT_EQ(answer.status, verdict.status) << answer.stem << " about " << answer.about;
    EXPECT_EQ(Status::OCSP_SIGNATURE_OK, verdict.signature) << answer.stem;
  }
}

TEST(OcspResponseCheckTest, AnswersSignedByAnybodyElse_AreRefused) {
  for (const char* stem :
       {"good-wrong-signature", "delegate-expired", "delegate-not-yet", "delegate-no-usage",
        "delegate-other-usage", "delegate-any-usage", "delegate-ca-key-usage", "delegate-critical",
        "delegate-of-root", "delegate-of-stranger", "delegate-of-delegate", "stranger",
        "delegate-without-certificates"}) {
    const OcspVerdict verdict = Verdict(Answer(stem));
    EXPECT_FALSE(verdict.IsGood()) << stem;
    EXPECT_EQ(Status::OCSP_RESPONSE_GOOD, verdict.status) << stem;
    EXPECT_EQ(Status::OCSP_SIGNATURE_ERROR, verdict.signature) << stem;
  }
}

TEST(OcspResponseCheckTest, AnswerOfACertificateAboutItself_IsRefused) {
  const OcspVerdict verdict = Verdict(Answer("own"), "own");
  EXPECT_EQ(Status::OCSP_RESPONSE_GOOD, verdict.status);
  EXPECT_EQ(Status::OCSP_SIGNATURE_ERROR, verdict.signature);
  EXPECT_TRUE(Verdict(Answer("own-about-other")).IsGood());
}

TEST(OcspResponseCheckTest, AnswerChangedAfterItWasSigned_IsRefused) {
  const Bytes revokedInfo = {0xA1, 0x11, 0x18, 0x0F};  // [1], a time of fifteen characters
  for (const char* stem : {"revoked", "revoked-by-delegate"}) {
    Bytes answer = Answer(stem);
    const auto at =
        std::search(answer.begin(), answer.end(), revokedInfo.begin(), revokedInfo.end());
    ASSERT_NE(answer.end(), at) << stem;
    *at = 0xA0;  // tagged as good would be
    const OcspVerdict verdict = Verdict(answer, "revoked");
    EXPECT_EQ(Status::OCSP_RESPONSE_GOOD, verdict.status) << stem;
    EXPECT_EQ(Status::OCSP_SIGNATURE_ERROR, verdict.signature) << stem;
  }
}

TEST(OcspResponseCheckTest, AnswerOfAnIssuerWithTheSameName_IsRefused) {
  const OcspVerdict verdict =
      EvaluateOcspResponse(Certificate("good"), Certificate("stranger"), Answer("good"),
                           std::chrono::system_clock::now());
  EXPECT_EQ(Status::OCSP_CERT_NOT_LISTED, verdict.status);
  EXPECT_EQ(Status::OCSP_SIGNATURE_ERROR, verdict.signature);
}

struct TimedAnswer {
  const char* what;
  const char* stem;
  TimePoint now;
  Status status;
};

TEST(OcspResponseCheckTest, Answers_CountFromThisUpdateUntilNextUpdateOrSevenDays) {
  using std::chrono::hours;
  using std::chrono::seconds;
  const TimePoint begin = TimeOf("good", 0);
  const TimePoint end = TimeOf("good", 1);
  const TimePoint open = TimeOf("good-without-next-update", 0);
  const char* without = "good-without-next-update";
  const TimedAnswer answers[] = {
      {"at thisUpdate", "good", begin, Status::OCSP_RESPONSE_GOOD},
      {"before thisUpdate", "good", begin - seconds(1), Status::OCSP_NOT_YET_VALID},
      {"at nextUpdate", "good", end, Status::OCSP_RESPONSE_GOOD},
      {"after nextUpdate", "good", end + seconds(1), Status::OCSP_HAS_EXPIRED},
      {"seven days old", without, open + hours(168), Status::OCSP_RESPONSE_GOOD},
      {"older than seven days", without, open + hours(168) + seconds(1), Status::OCSP_IS_TOO_OLD},
      {"ten years old", without, open + hours(87600), Status::OCSP_IS_TOO_OLD},
      {"before thisUpdate, open", without, open - seconds(1), Status::OCSP_NOT_YET_VALID},
  };
  for (const TimedAnswer& answer : answers) {
    EXPECT_EQ(answer.status, Verdict(Answer(answer.stem), "good", answer.now).status)
        << answer.what;
  }
}

TEST(OcspResponseCheckTest, Responder_CountsWithinItsOwnTimeOnly) {
  const Botan::X509_Certificate responder = Certificate("delegate-rsa");
  const TimePoint end = responder.not_after().to_std_timepoint();
  const Bytes answer = Answer("delegate-rsa");
  EXPECT_EQ(Status::OCSP_SIGNATURE_OK, Verdict(answer, "good", end).signature);
  EXPECT_EQ(Status::OCSP_SIGNATURE_ERROR,
            Verdict(answer, "good", end + std::chrono::seconds(1)).signature);
  const TimePoint begin = responder.not_before().to_std_timepoint();
  EXPECT_EQ(Status::OCSP_SIGNATURE_OK, Verdict(answer, "good", begin).signature);
  EXPECT_EQ(Status::OCSP_SIGNATURE_ERROR,
            Verdict(answer, "good", begin - std::chrono::seconds(1)).signature);
}

// An answer without a verdict: RFC 6960 section 4.2.1, responseStatus.
Bytes ErrorAnswer(std::uint8_t status) {
  return {0x30, 0x03, 0x0A, 0x01, status};
}

TEST(OcspResponseCheckTest, AnswersWithoutAVerdict_AreNotUsable) {
  // Successful without a body, malformedRequest, internalError, tryLater, one that the RFC does not
  // use, sigRequired, unauthorized, and more that it does not know.
  for (const std::uint8_t status : Bytes{0, 1, 2, 3, 4, 5, 6, 7, 127}) {
    EXPECT_EQ("", BeyondOcspBounds(ErrorAnswer(status)));
    const OcspVerdict verdict = Verdict(ErrorAnswer(status));
    EXPECT_EQ(Status::OCSP_RESPONSE_INVALID, verdict.status) << int{status};
    EXPECT_NE(Status::OCSP_SIGNATURE_OK, verdict.signature) << int{status};
  }
}

TEST(OcspResponseCheckTest, BytesThatAreNoAnswer_Throw) {
  const Bytes good = Answer("good");
  const std::string page = "<html><body>502 Bad Gateway</body></html>";
  const Bytes answers[] = {
      {},
      {0x30},
      {0x30, 0x00},
      Bytes(page.begin(), page.end()),
      Bytes(good.begin(), good.end() - 1),
      Bytes(good.begin(), good.begin() + 100),
      Bytes(good.begin() + 3, good.end()),
      Bytes(16000, 0x30),
      ::tests::PkiBytes("ocsp/good.der"),
  };
  for (const Bytes& answer : answers) {
    EXPECT_EQ("", BeyondOcspBounds(answer)) << answer.size();
    EXPECT_THROW((void)Verdict(answer), std::exception) << answer.size();
  }
}

// A BasicOCSPResponse that nobody signed, with these elements in its list of certificates.
Bytes AnswerWithElements(const std::vector<Bytes>& elements) {
  Bytes basic;
  Botan::DER_Encoder encoder(basic);
  encoder.start_cons(Botan::SEQUENCE);
  encoder.start_cons(Botan::SEQUENCE).end_cons();  // signed data
  encoder.start_cons(Botan::SEQUENCE).end_cons();  // algorithm
  encoder.encode(Bytes(64), Botan::BIT_STRING);
  encoder.start_cons(Botan::ASN1_Tag(0), Botan::CONTEXT_SPECIFIC);
  for (const Bytes& element : elements) encoder.raw_bytes(element);
  encoder.end_cons().end_cons();
  Bytes answer;
  Botan::DER_Encoder(answer)
      .start_cons(Botan::SEQUENCE)
      .encode(std::size_t{0}, Botan::ENUMERATED, Botan::UNIVERSAL)
      .start_cons(Botan::ASN1_Tag(0), Botan::CONTEXT_SPECIFIC)
      .start_cons(Botan::SEQUENCE)
      .encode(Botan::OID("1.3.6.1.5.5.7.48.1.1"))
      .encode(basic, Botan::OCTET_STRING)
      .end_cons()
      .end_cons()
      .end_cons();
  return answer;
}

Bytes Sequence(const std::vector<Bytes>& parts) {
  Bytes content;
  for (const Bytes& part : parts) content.insert(content.end(), part.begin(), part.end());
  Bytes encoding;
  Botan::DER_Encoder(encoding).add_object(Botan::SEQUENCE, Botan::CONSTRUCTED, content.data(),
                                          content.size());
  return encoding;
}

Bytes Hostile(const std::string& stem) {
  return ::tests::PkiBytes("hostile/" + stem + ".der");
}

TEST(OcspResponseCheckTest, CertificatesWithinTheBoundsOfSigners_MayBeRead) {
  for (const char* stem :
       {"rsa-modulus-8192", "rsa-exponent-64", "size-4096", "ec-parameters-32"}) {
    EXPECT_EQ("", BeyondOcspBounds(AnswerWithElements({Sequence({Hostile(stem)})}))) << stem;
  }
  const Bytes good = ::tests::PkiBytes("ocsp/good.der");
  EXPECT_EQ("", BeyondOcspBounds(AnswerWithElements({Sequence(std::vector<Bytes>(12, good))})));
}

struct BoundedAnswer {
  const char* stem;
  const char* reason;
};

TEST(OcspResponseCheckTest, CertificateBeyondTheBoundsOfSigners_IsTheReasonNotToRead) {
  const BoundedAnswer answers[] = {
      {"rsa-modulus-8193", "RSA modulus too long"},
      {"rsa-modulus-20800", "RSA modulus too long"},
      {"rsa-exponent-65", "RSA exponent too long"},
      {"size-4097", "certificate too long"},
      {"ec-parameters-33", "key parameters too long"},
      {"dsa-19937", "key algorithm not for signers"},
      {"mceliece", "key algorithm not for signers"},
  };
  const Bytes good = ::tests::PkiBytes("ocsp/good.der");
  for (const BoundedAnswer& answer : answers) {
    const Bytes hostile = Hostile(answer.stem);
    // Alone, behind another of its list, and in a second list: wherever the library might look.
    EXPECT_EQ(answer.reason, BeyondOcspBounds(AnswerWithElements({Sequence({hostile})})));
    EXPECT_EQ(answer.reason, BeyondOcspBounds(AnswerWithElements({Sequence({good, hostile})})));
    EXPECT_EQ(answer.reason,
              BeyondOcspBounds(AnswerWithElements({Sequence({good}), Sequence({hostile})})));
  }
}

// The library reads PEM text in place of DER, with whatever key it holds.
TEST(OcspResponseCheckTest, TextInPlaceOfACertificate_IsTheReasonNotToRead) {
  const std::string text = ::tests::PkiText("payload/odd/pem-text.der");
  const Bytes pem(text.begin(), text.end());
  Bytes hidden = {0x30, 0x00};
  hidden.insert(hidden.end(), pem.begin(), pem.end());
  for (const Bytes& content : {pem, hidden, Bytes{}, Bytes{0x04, 0x00}}) {
    EXPECT_EQ("certificate not DER", BeyondOcspBounds(AnswerWithElements({Sequence({content})})));
  }
}

TEST(OcspResponseCheckTest, AnswerAtTheBoundOnItsSize_MayBeReadAndOneByteMoreNot) {
  EXPECT_EQ("", BeyondOcspBounds(Bytes(kMaxOcspResponseBytes)));
  EXPECT_EQ("answer too long", BeyondOcspBounds(Bytes(kMaxOcspResponseBytes + 1)));
}

TEST(OcspResponseCheckTest, StatusTexts_TellEveryOutcomeApart) {
  const std::pair<Status, const char*> texts[] = {
      {Status::OCSP_RESPONSE_GOOD, "good"},
      {Status::OCSP_SIGNATURE_OK, "OK"},
      {Status::CERT_IS_REVOKED, "revoked"},
      {Status::OCSP_BAD_STATUS, "unknown to the responder"},
      {Status::OCSP_CERT_NOT_LISTED, "not in the answer"},
      {Status::OCSP_NOT_YET_VALID, "answer not valid yet"},
      {Status::OCSP_HAS_EXPIRED, "answer expired"},
      {Status::OCSP_IS_TOO_OLD, "answer too old"},
      {Status::OCSP_RESPONSE_INVALID, "no usable answer"},
      {Status::OCSP_SIGNATURE_ERROR, "not signed by the issuer or its responder"},
      {Status::OCSP_NO_HTTP, "status 4"},
  };
  for (const auto& [status, text] : texts) EXPECT_EQ(text, OcspStatusText(status));
}

}  // namespace
}  // namespace truststore_update_client
