#include "tools/tsc/VerificationFacade.h"

#include <gmock/gmock.h>

#include <csignal>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/ScriptedServer.h"
#include "tests/support/TestPki.h"
#include "tools/tsc/OcspResponder.h"

namespace tsc {
namespace {

using platform_host::LogLevel;
using ::testing::ElementsAre;

UnitState StateWithRoot() {
  UnitState state;
  state.rootsPem = tests::PkiText("root.pem");
  return state;
}

TEST(VerificationFacade, Records_AreThoseOfTheState) {
  UnitState state = StateWithRoot();
  state.installedId = "id-1";
  state.installedTimestamp = 42;
  VerificationFacade facade(state);
  std::string id;
  EXPECT_FALSE(facade.GetInstalledContainerId(id));
  EXPECT_EQ(id, "id-1");
  EXPECT_EQ(facade.GetInstalledContainerTimestamp(), 42U);
}

TEST(VerificationFacade, Installation_LogsWhatAUnitLogsAndChangesNothing) {
  VerificationFacade facade(StateWithRoot());
  const platform_host::CapturedLog log;
  EXPECT_FALSE(facade.RemoveAllTrustStores());
  EXPECT_FALSE(facade.InstallCertificateBundle("WEB", "pem"));
  EXPECT_FALSE(facade.SetInstalledContainerTimestamp(7));
  EXPECT_FALSE(facade.SetInstalledContainerId("id"));
  EXPECT_THAT(log.Lines(), ElementsAre("info: Truststores cleared succesfully.",
                                       "info: Certification bundle WEB updated succesfully."));
  EXPECT_EQ(facade.GetInstalledContainerTimestamp(), 0U);
}

TEST(VerificationFacade, IdThatAUnitCannotRecord_FailsWithAUnitsLines) {
  VerificationFacade facade(StateWithRoot());
  const platform_host::CapturedLog log;
  EXPECT_FALSE(facade.SetInstalledContainerId(std::string(100, 'x')));
  EXPECT_TRUE(facade.SetInstalledContainerId(std::string(101, 'x')));
  EXPECT_THAT(log.Lines(), ElementsAre("error: PersistantFileStorage: File is too big!",
                                       "error: ERROR: Failed to store Container ID to persistent "
                                       "file storage!"));
}

TEST(VerificationFacade, BundleThatAUnitCannotKeep_FailsWithAUnitsLines) {
  VerificationFacade facade(StateWithRoot());
  const platform_host::CapturedLog log;
  const std::string name(245, 'x');
  EXPECT_FALSE(facade.InstallCertificateBundle(name.substr(1), "pem"));
  EXPECT_TRUE(facade.InstallCertificateBundle(name, "pem"));
  EXPECT_THAT(
      log.Lines(),
      ElementsAre("info: Certification bundle " + name.substr(1) + " updated succesfully.",
                  "error: libtruststore: cannot install bundle " + name +
                      ": /var/lib/truststore-update-client/trust-store/installed/" + name +
                      ".pem: File name too long",
                  "error: ERROR: Certification bundle " + name + " could not be installed!"));
}

TEST(VerificationFacade, Chains_CheckedAgainstTheGivenRoot) {
  VerificationFacade facade(StateWithRoot());
  const platform_host::CapturedLog log;
  EXPECT_FALSE(facade.X5CPathValidation(tests::Chain("p256-3")));
  EXPECT_TRUE(facade.X5CPathValidation(tests::Chain("p384-3")));
}

TEST(VerificationFacade, NoRoots_EveryChainFails) {
  VerificationFacade facade(UnitState{});
  const platform_host::CapturedLog log;
  EXPECT_TRUE(facade.X5CPathValidation(tests::Chain("p256-3")));
  EXPECT_THAT(log.Lines(), ElementsAre("error: Error: Unable to get Root Certificate!"));
}

TEST(VerificationFacade, Ocsp_AnswersAsTold) {
  UnitState state = StateWithRoot();
  VerificationFacade unknown(state);
  state.ocsp = OcspAnswer::kGood;
  VerificationFacade good(state);
  state.ocsp = OcspAnswer::kRevoked;
  VerificationFacade revoked(state);
  const platform_host::CapturedLog log;
  EXPECT_EQ(good.X5COcspValidation({}), 0);
  EXPECT_NE(unknown.X5COcspValidation({}), 0);
  EXPECT_NE(revoked.X5COcspValidation({}), 0);
  EXPECT_THAT(log.Lines(),
              ElementsAre("error: Error: OCSP: no answer is known (--ocsp tells one)",
                          "error: Error: OCSP: a certificate of the signer chain is revoked"));
}

// A unit that trusts the issuer of "ocsp/good.der" and asks a server for it.
class AskingFacade : public ::testing::Test {
 protected:
  AskingFacade() { ::signal(SIGPIPE, SIG_IGN); }

  static UnitState StateWith(const tests::ScriptedServer& server) {
    UnitState state;
    state.rootsPem = tests::PkiText("ocsp/responder/issuer.pem");
    const std::time_t answered = std::stol(tests::PkiText("ocsp/good.times"));
    state.now = [answered] { return std::chrono::system_clock::from_time_t(answered); };
    state.ocsp = OcspAnswer::kRevoked;  // not what counts
    state.responder = ResponderAt("http://" + server.Address() + "/", "").Value();
    return state;
  }

  // The client's lines about one certificate, after which the check ended with `expected`.
  static std::vector<std::string> Validate(VerificationFacade& facade, int expected,
                                           const std::string& certificate = "good") {
    const platform_host::CapturedLog log;
    EXPECT_EQ(facade.X5COcspValidation({tests::Certificate("ocsp/" + certificate + ".der")}),
              expected);
    return log.Lines(LogLevel::kInfo);
  }

  static tests::PeerScript AnswerOf(const std::string& name) {
    return tests::Answer(
        tests::HttpResponse("200 OK", tests::PkiText("ocsp/" + name + ".response")));
  }
};

TEST_F(AskingFacade, GoodAnswer_Passes) {
  const tests::ScriptedServer server(AnswerOf("good"));
  VerificationFacade facade(StateWith(server));
  const auto lines = Validate(facade, 0);
  EXPECT_THAT(lines, ::testing::Contains("info: OCSP response status: good for KALVIRON good"));
  EXPECT_EQ(lines.back(), "info: All OCSP checks Passed");
}

TEST_F(AskingFacade, RevokedAnswer_Fails) {
  const tests::ScriptedServer server(AnswerOf("revoked"));
  VerificationFacade facade(StateWith(server));
  const auto lines = Validate(facade, 1, "revoked");
  EXPECT_THAT(lines,
              ::testing::Contains("error: OCSP response status: revoked for KALVIRON revoked"));
  EXPECT_EQ(lines.back(), "error: OCSP check FAILED");
}

TEST_F(AskingFacade, ResponderThatIsNotThere_FailsAfterOneAttempt) {
  const tests::ScriptedServer nobody(nullptr);
  VerificationFacade facade(StateWith(nobody));
  const std::string address = nobody.Address();
  EXPECT_THAT(Validate(facade, 1),
              ElementsAre("info: Got URL for 'RUNA-TruststoreOCSP.COOCSPRequest'",
                          "info: OCSP Responder URL: http://ocsp.invalid/ask",
                          "info: HttpConnection: Connecting to " + address,
                          "error: libLumoConnectorShared: cannot connect to " + address +
                              " for RUNA-TruststoreOCSP.COOCSPRequest: Connection refused",
                          "error: HttpConnection: Connection not established. Status: 111",
                          "error: HttpConnection: Connection failed!", "info: OCSP Check 1 Failed.",
                          "error: OCSP check FAILED"));
}

TEST_F(AskingFacade, RetriesEnabledByTheClient_AreNotMade) {
  const tests::ScriptedServer nobody(nullptr);
  VerificationFacade facade(StateWith(nobody));
  facade.DisableUpdateRetries(false);
  EXPECT_EQ(Validate(facade, 1).back(), "error: OCSP check FAILED");
}

}  // namespace
}  // namespace tsc
