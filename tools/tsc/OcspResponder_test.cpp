#include "tools/tsc/OcspResponder.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sstream>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeRecords.h"
#include "tests/doubles/FakeTrustStore.h"
#include "tests/doubles/ScriptedServer.h"
#include "tests/support/CommandTest.h"
#include "tests/support/TestPki.h"
#include "tests/support/TlsPeers.h"

namespace tsc {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using tests::PkiPath;
using truststore_update_client::HSM;

class OcspResponder : public tests::CommandTest {};

TEST_F(OcspResponder, UrlsOfAUnitsConfiguration_Taken) {
  const struct {
    const char* url;
    const char* ca;
    const char* taken;
  } cases[] = {
      {"http://127.0.0.1:2560/ocsp", "", "http://127.0.0.1:2560/ocsp"},
      {"HTTP://responder.example", "", "http://responder.example"},
      {"https://responder.example/", "/ca.pem", "https://responder.example/"},
  };
  for (const auto& entry : cases) {
    const auto responder = ResponderAt(entry.url, entry.ca);
    ASSERT_TRUE(responder.Ok()) << entry.url;
    EXPECT_EQ(responder.Value().url, entry.taken);
    EXPECT_EQ(responder.Value().caFile, entry.ca);
  }
}

TEST_F(OcspResponder, WrongOptions_NamedWithTheReason) {
  const struct {
    const char* url;
    const char* ca;
    const char* error;
  } cases[] = {
      {"", "", "--ocsp-url : must begin with http:// or https://"},
      {"responder.example", "",
       "--ocsp-url responder.example: must begin with http:// or https://"},
      {"ldap://r", "", "--ocsp-url ldap://r: must begin with http:// or https://"},
      {"http://", "", "--ocsp-url http://: must name a host"},
      {"http://r:0/", "", "--ocsp-url http://r:0/: must have a port from 1 to 65535"},
      {"http://[::1]/", "", "--ocsp-url http://[::1]/: must not name an IPv6 address"},
      {"http://r/a b", "", "--ocsp-url http://r/a b: must be visible ASCII characters"},
      {"https://r", "", "--ocsp-url https://r: https needs --ocsp-ca FILE"},
      {"HTTPS://r", "", "--ocsp-url HTTPS://r: https needs --ocsp-ca FILE"},
      {"http://r", "ca.pem", "--ocsp-ca ca.pem: only for an https --ocsp-url"},
  };
  for (const auto& entry : cases) {
    const auto responder = ResponderAt(entry.url, entry.ca);
    ASSERT_FALSE(responder.Ok()) << entry.url;
    EXPECT_EQ(responder.Failure().Text(), entry.error);
  }
}

TEST_F(OcspResponder, RelativeCaFile_IsThatOfTheWorkingDirectory) {
  const auto responder = ResponderAt("https://r", "ca.pem");
  ASSERT_TRUE(responder.Ok());
  EXPECT_EQ(responder.Value().caFile, std::filesystem::current_path() / "ca.pem");
}

TEST_F(OcspResponder, FileWithACertificate_CanBeVerifiedAgainst) {
  EXPECT_FALSE(TrustFailure(ResponderAt("https://r", PkiPath("tls/ca.pem")).Value()).has_value());
  EXPECT_FALSE(TrustFailure(ResponderAt("http://r", "").Value()).has_value());
}

TEST_F(OcspResponder, FileWithoutACertificate_Named) {
  const std::string path = Write("ca.pem", "no certificate\n");
  const auto failure = TrustFailure(ResponderAt("https://r", path).Value());
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->status, EINVAL);
  EXPECT_EQ(failure->reason, "no certificate in " + path);
}

TEST_F(OcspResponder, MissingFile_Named) {
  const auto failure = TrustFailure(ResponderAt("https://r", Path("none.pem")).Value());
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->status, ENOENT);
  EXPECT_EQ(failure->reason, "cannot read " + Path("none.pem") + ": No such file or directory");
}

// What stands on a responder, and a certificate that it is asked about.
class OcspResponderAsked : public OcspResponder {
 protected:
  OcspResponderAsked() {
    ::signal(SIGPIPE, SIG_IGN);
    std::istringstream(tests::PkiText("ocsp/good.times")) >> answered;
    const auto at = std::chrono::system_clock::from_time_t(answered);
    collaborators.now = [at] { return at; };
  }

  // The check's result by a responder with `url` and `caFile`.
  int Ask(const std::string& url, const std::string& caFile = "") {
    AskResponder(ResponderAt(url, caFile).Value(), collaborators);
    return collaborators.ocspConnection->CheckCertificate(tests::PkiBytes("ocsp/good.der"),
                                                          tests::PkiBytes("ocsp/issuer.der"), kTop,
                                                          collaborators.invocationUrl(kTop).url);
  }

  // Serves the answer NAME.response to one client after the other.
  static tests::PeerScript AnswerOf(const std::string& name) {
    return tests::Answer(
        tests::HttpResponse("200 OK", tests::PkiText("ocsp/" + name + ".response")));
  }

  static constexpr const char* kTop = "RUNA-TruststoreOCSP.COOCSPRequest";

  std::time_t answered = 0;  ///< thisUpdate of the answer "good"
  HSM::Collaborators collaborators{
      std::make_shared<tests::FakeTrustStore>(),
      truststore_update_client::PersistentFileStorage(std::make_shared<tests::FakeRecords>())};
  platform_host::CapturedLog log;
};

TEST_F(OcspResponderAsked, BothOperationsOfTheCheck_AreAtTheUrl) {
  AskResponder(ResponderAt("http://r:1/p", "").Value(), collaborators);
  for (const char* id : {kTop, "RUNA-TruststoreOCSP.COModOCSPRequest"}) {
    EXPECT_EQ(collaborators.invocationUrl(id).status, 1) << id;
    EXPECT_EQ(collaborators.invocationUrl(id).url, "http://r:1/p") << id;
  }
  EXPECT_EQ(collaborators.invocationUrl("RUNA-TruststoreUpdate.CORequestTSC").status, 2);
}

TEST_F(OcspResponderAsked, Answer_JudgedByTheClient) {
  const tests::ScriptedServer good(AnswerOf("good"));
  EXPECT_EQ(Ask("http://" + good.Address() + "/"), 0);
  const tests::ScriptedServer stranger(AnswerOf("stranger"));
  EXPECT_EQ(Ask("http://" + stranger.Address() + "/"), 1);
}

TEST_F(OcspResponderAsked, Answer_JudgedByTheClockOfTheUnit) {
  const auto before = std::chrono::system_clock::from_time_t(answered) - std::chrono::hours(24);
  collaborators.now = [before] { return before; };
  const tests::ScriptedServer good(AnswerOf("good"));
  EXPECT_EQ(Ask("http://" + good.Address() + "/"), 1);
}

TEST_F(OcspResponderAsked, Request_GoesToThePathOfTheUrl) {
  std::string request;
  {
    const tests::ScriptedServer server([&request](tests::PeerStream& peer) {
      request = peer.ReadRequest();
      peer.Send("HTTP/1.1 404 Not Found\r\n\r\n");
    });
    EXPECT_EQ(Ask("http://" + server.Address() + "/a/b"), 1);
  }
  EXPECT_THAT(request, StartsWith("POST /a/b HTTP/1.1\r\nHost: 127.0.0.1\r\n"));
  EXPECT_THAT(request, HasSubstr("\r\nContent-Type: application/ocsp-request\r\n"));
}

TEST_F(OcspResponderAsked, NobodyListens_IsNotCompleted) {
  const tests::ScriptedServer nobody(nullptr);
  EXPECT_EQ(Ask("http://" + nobody.Address() + "/"), 3);
  EXPECT_THAT(log.Lines(), Contains("error: libLumoConnectorShared: cannot connect to " +
                                    nobody.Address() + " for " + kTop + ": Connection refused"));
}

TEST_F(OcspResponderAsked, HttpsResponder_VerifiedAgainstTheFile) {
  const tests::NginxServer server("good", directory.Path());
  const std::string address = "localhost:" + std::to_string(server.TlsPort());
  EXPECT_EQ(Ask("https://" + address + "/", PkiPath("tls/ca.pem")), 1);  // it knows no certificate
  EXPECT_THAT(log.Lines(), Contains("info: HttpConnection: Connection established to " + address));
  EXPECT_EQ(Ask("https://" + address + "/", PkiPath("root.pem")), 3);
  EXPECT_THAT(log.Lines(),
              Contains(StartsWith("error: libLumoConnectorShared: cannot connect to " + address)));
}

}  // namespace
}  // namespace tsc
