#include "tools/tsc/VerificationFacade.h"

#include <gmock/gmock.h>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/TestPki.h"

namespace tsc {
namespace {

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

}  // namespace
}  // namespace tsc
