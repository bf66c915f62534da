#include "TruststoreUpdateClient/OcspConnection.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "TruststoreUpdateClient/OcspResponseCheck.h"
#include "csa_common/HttpConnection.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeLumoConnector.h"
#include "tests/support/TestPki.h"

namespace truststore_update_client {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::tests::Answer;
using ::tests::HttpResponse;
using Texts = std::vector<std::string>;
using namespace std::string_literals;

const std::string kOperation = "RUNA-TruststoreOCSP.COOCSPRequest";
const std::string kUrl = "http://responder.invalid:8080/ocsp";
const std::string kResponder = "info: OCSP Responder URL: http://ocsp.invalid/ask";

::tests::Bytes Der(const std::string& stem) {
  return ::tests::PkiBytes("ocsp/" + stem + ".der");
}

std::string AnswerOf(const std::string& stem) {
  return ::tests::PkiText("ocsp/" + stem + ".response");
}

class OcspConnectionTest : public ::testing::Test {
 protected:
  int Check(const std::string& certificate = "good", const std::string& issuer = "issuer") {
    log.Clear();
    return connection.CheckCertificate(Der(certificate), Der(issuer), kOperation, kUrl);
  }

  // A check to which the responder sends these bytes.
  int CheckAnsweredBy(const std::string& response, const std::string& certificate = "good") {
    fake.Connect(Answer(response));
    return Check(certificate);
  }

  // What this class has logged: without the lines of the HTTP connection below it.
  Texts OwnLines() const {
    Texts lines = log.Lines();
    const auto isForeign = [](const std::string& line) {
      return line.find(": HttpConnection: ") != std::string::npos;
    };
    lines.erase(std::remove_if(lines.begin(), lines.end(), isForeign), lines.end());
    return lines;
  }

  platform_host::CapturedLog log;
  ::tests::FakeLumoConnector fake;
  OcspConnection connection{std::make_shared<lumo_connector::LumoConnector>(nullptr)};
};

// What openssl asks (without a nonce), but with the version written out: the library does that, and
// responders read both.
std::string ExpectedRequest() {
  const std::string questions = ::tests::PkiText("ocsp/good.request").substr(4);
  const std::string version = "\xA0\x03\x02\x01\0"s;
  const auto sequence = [](const std::string& content) {
    return "0"s + static_cast<char>(content.size()) + content;
  };
  return sequence(sequence(version + questions));
}

TEST_F(OcspConnectionTest, Request_IsThePostThatRespondersKnow) {
  EXPECT_EQ(kOcspGood, CheckAnsweredBy(HttpResponse("200 OK", AnswerOf("good"))));
  const std::string body = ExpectedRequest();
  EXPECT_THAT(fake.Requests(), ElementsAre("POST /ocsp HTTP/1.1\r\n"
                                           "Host: responder.invalid\r\n"
                                           "Content-Type: application/ocsp-request\r\n"
                                           "Connection: close\r\n"
                                           "Content-Length: " +
                                           std::to_string(body.size()) + "\r\n\r\n" + body));
  EXPECT_THAT(fake.Calls(),
              ::testing::Contains("SocketConnect " + kOperation + " responder.invalid 8080"));
}

TEST_F(OcspConnectionTest, GoodAnswer_PassesTheCertificate) {
  for (const char* stem : {"good", "delegate", "good-without-next-update"}) {
    EXPECT_EQ(kOcspGood, CheckAnsweredBy(HttpResponse("200 OK", AnswerOf(stem)))) << stem;
    EXPECT_THAT(OwnLines(),
                ElementsAre(kResponder, "info: OCSP response status: good for KALVIRON good",
                            "info: OCSP signature status: OK"))
        << stem;
  }
}

struct RefusedAnswer {
  const char* stem;
  const char* certificate;
  Texts lines;
};

TEST_F(OcspConnectionTest, AnswerThatIsNotGood_FailsForGood) {
  const std::string signatureOk = "info: OCSP signature status: OK";
  const std::string notSigned =
      "error: OCSP signature status: not signed by the issuer or its responder";
  const RefusedAnswer answers[] = {
      {"revoked",
       "revoked",
       {"error: OCSP response status: revoked for KALVIRON revoked", signatureOk}},
      {"unknown",
       "unknown",
       {"error: OCSP response status: unknown to the responder for KALVIRON unknown", signatureOk}},
      {"other",
       "good",
       {"error: OCSP response status: not in the answer for KALVIRON good", signatureOk}},
      {"delegate-of-stranger",
       "good",
       {"info: OCSP response status: good for KALVIRON good", notSigned}},
      {"delegate-expired",
       "good",
       {"info: OCSP response status: good for KALVIRON good", notSigned}},
      {"good-wrong-signature",
       "good",
       {"info: OCSP response status: good for KALVIRON good", notSigned}},
  };
  for (const RefusedAnswer& answer : answers) {
    EXPECT_EQ(kOcspFailed,
              CheckAnsweredBy(HttpResponse("200 OK", AnswerOf(answer.stem)), answer.certificate));
    Texts lines = {kResponder};
    lines.insert(lines.end(), answer.lines.begin(), answer.lines.end());
    EXPECT_THAT(OwnLines(), ElementsAreArray(lines)) << answer.stem;
  }
}

TEST_F(OcspConnectionTest, AnswerWithoutAVerdict_FailsForGood) {
  for (const char status : {'\0', '\1', '\2', '\3', '\5', '\6'}) {
    const std::string body = {'\x30', '\x03', '\x0A', '\x01', status};
    EXPECT_EQ(kOcspFailed, CheckAnsweredBy(HttpResponse("200 OK", body)));
    EXPECT_THAT(
        OwnLines(),
        ElementsAre(kResponder, "error: OCSP response status: no usable answer for KALVIRON good",
                    "error: OCSP signature status: not signed by the issuer or its "
                    "responder"))
        << int{status};
  }
}

TEST_F(OcspConnectionTest, BodyThatIsNoAnswer_FailsForGood) {
  const std::string good = AnswerOf("good");
  for (const std::string& body :
       {""s, "<html></html>"s, good.substr(0, good.size() - 1), good.substr(1), "\x30"s,
        std::string(kMaxOcspResponseBytes, '\x30')}) {
    EXPECT_EQ(kOcspFailed, CheckAnsweredBy(HttpResponse("200 OK", body))) << body.size();
    EXPECT_THAT(OwnLines(), ElementsAre(kResponder, "error: OCSP: Unexpected Error!"))
        << body.size();
  }
}

TEST_F(OcspConnectionTest, BodyBeyondItsBounds_IsRefusedUnread) {
  const std::string body(kMaxOcspResponseBytes + 1, '\x30');
  EXPECT_EQ(kOcspFailed, CheckAnsweredBy(HttpResponse("200 OK", body)));
  EXPECT_THAT(OwnLines(),
              ElementsAre(kResponder, "error: OCSP: Answer refused unread: answer too long"));
}

TEST_F(OcspConnectionTest, AnswerWithACostlyCertificate_IsRefusedUnread) {
  EXPECT_EQ(kOcspFailed, CheckAnsweredBy(HttpResponse("200 OK", AnswerOf("costly"))));
  EXPECT_THAT(OwnLines(),
              ElementsAre(kResponder, "error: OCSP: Answer refused unread: RSA modulus too long"));
}

struct UnexpectedResponse {
  const char* what;
  std::string response;
  const char* status;
  int result;
};

TEST_F(OcspConnectionTest, OtherResponses_FailOrAreNotCompleted) {
  const UnexpectedResponse responses[] = {
      {"nothing at all", "", "0", kOcspNotCompleted},
      {"no HTTP", "220 mail.invalid ESMTP\r\n\r\n", "0", kOcspNotCompleted},
      {"no content", HttpResponse("204 No Content", ""), "204", kOcspFailed},
      {"not found", HttpResponse("404 Not Found", ""), "404", kOcspFailed},
      {"busy", HttpResponse("503 Service Unavailable", ""), "503", kOcspFailed},
      {"unlisted", HttpResponse("418 Strange", AnswerOf("good")), "255", kOcspFailed},
  };
  for (const UnexpectedResponse& row : responses) {
    EXPECT_EQ(row.result, CheckAnsweredBy(row.response)) << row.what;
    EXPECT_THAT(OwnLines(),
                ElementsAre(kResponder, "error: Unexpected HTTP response: "s + row.status + "!"))
        << row.what;
  }
}

TEST_F(OcspConnectionTest, ResponderThatCannotBeReached_IsNotCompleted) {
  fake.RefuseConnect(111, "refused");
  EXPECT_EQ(kOcspNotCompleted, Check());
  EXPECT_THAT(OwnLines(), ElementsAre(kResponder));
}

TEST_F(OcspConnectionTest, UrlThatCannotBeUsed_IsNotCompleted) {
  const auto good = Der("good");
  const auto issuer = Der("issuer");
  for (const char* url : {"", "responder", "ftp://responder", "http://responder:x/"}) {
    log.Clear();
    EXPECT_EQ(kOcspNotCompleted, connection.CheckCertificate(good, issuer, kOperation, url)) << url;
    EXPECT_THAT(log.Lines(),
                ::testing::Not(::testing::Contains("error: Unexpected HTTP response: 0!")))
        << url;
  }
  EXPECT_THAT(fake.Requests(), IsEmpty());
}

TEST_F(OcspConnectionTest, StatusThatIsNoNumber_FailsForGood) {
  EXPECT_EQ(kOcspFailed, CheckAnsweredBy("HTTP/1.1 abc\r\n\r\n"));
  EXPECT_THAT(OwnLines(), ElementsAre(kResponder,
                                      "error: OCSP: Unexpected error with certificate: "
                                      "KALVIRON good"));
}

TEST_F(OcspConnectionTest, CertificateWithoutAResponder_FailsWithoutAnyTraffic) {
  EXPECT_EQ(kOcspFailed, Check("no-responder"));
  EXPECT_THAT(log.Lines(), ElementsAre("error: Certificate: KALVIRON no responder is missing OCSP "
                                       "responder."));
  EXPECT_THAT(fake.Calls(), ::testing::Not(::testing::Contains(::testing::StartsWith("Socket"))));
}

TEST_F(OcspConnectionTest, CertificateWithoutACommonName_IsAskedFor) {
  EXPECT_EQ(kOcspFailed, CheckAnsweredBy(HttpResponse("200 OK", AnswerOf("good")), "no-name"));
  EXPECT_THAT(OwnLines(),
              ElementsAre(kResponder, "error: OCSP response status: not in the answer for ",
                          "info: OCSP signature status: OK"));
}

TEST_F(OcspConnectionTest, IssuerOfAnotherName_MakesNoRequest) {
  EXPECT_EQ(kOcspFailed, Check("good", "root"));
  EXPECT_THAT(log.Lines(), ElementsAre("error: ERROR: Unable to create OCSP Request!"));
}

TEST_F(OcspConnectionTest, BytesThatAreNoCertificate_Fail) {
  const ::tests::Bytes good = Der("good");
  const ::tests::Bytes rubbish = {0x30, 0x00};
  log.Clear();
  EXPECT_EQ(kOcspFailed, connection.CheckCertificate(rubbish, good, kOperation, kUrl));
  EXPECT_EQ(kOcspFailed, connection.CheckCertificate(good, rubbish, kOperation, kUrl));
  EXPECT_EQ(kOcspFailed, connection.CheckCertificate({}, {}, kOperation, kUrl));
  const std::string line = "error: OCSP - Not able to populate X509 certificates!";
  EXPECT_THAT(log.Lines(), ElementsAre(line, line, line));
}

TEST_F(OcspConnectionTest, AnswerOfLastWeek_CountsByTheClock) {
  using std::chrono::hours;
  const auto lumo = std::make_shared<lumo_connector::LumoConnector>(nullptr);
  OcspConnection later(std::make_shared<csa_common::HttpConnection>(lumo),
                       [] { return std::chrono::system_clock::now() + hours(24 * 8); });
  fake.Connect(Answer(HttpResponse("200 OK", AnswerOf("good"))));
  EXPECT_EQ(kOcspFailed, later.CheckCertificate(Der("good"), Der("issuer"), kOperation, kUrl));
  EXPECT_THAT(log.Lines(), ::testing::Contains("error: OCSP response status: answer expired for "
                                               "KALVIRON good"));
}

}  // namespace
}  // namespace truststore_update_client
