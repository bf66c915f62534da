/// The fixture of the tests of HSM's revocation checks.
#ifndef TESTS_SUPPORT_HSMOCSPTEST_H
#define TESTS_SUPPORT_HSMOCSPTEST_H

#include <gmock/gmock.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/HSM.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/FakeOcspConnection.h"
#include "tests/doubles/FakeRecords.h"
#include "tests/doubles/FakeTrustStore.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestPki.h"

namespace tests {

/// A unit with the root of most chains, whose responder answers by script.
class HSMOcspTest : public ::testing::Test {
 protected:
  using HSM = truststore_update_client::HSM;

  /// The operation that is asked for about the top of a chain, and that about the rest.
  static constexpr const char* kTop = "RUNA-TruststoreOCSP.COOCSPRequest";
  static constexpr const char* kBelow = "RUNA-TruststoreOCSP.COModOCSPRequest";

  HSMOcspTest() { trustStore->Provision("ZORA", PkiText("p256-3/root.pem")); }

  /// As on a unit in the field.
  HSM::Collaborators FieldCollaborators() {
    HSM::Collaborators collaborators{trustStore, truststore_update_client::PersistentFileStorage(
                                                     std::make_shared<FakeRecords>())};
    collaborators.containerIdFile = directory.Path() + "/id";
    collaborators.timestampFile = directory.Path() + "/timestamp";
    collaborators.ocspConnection = responder;
    collaborators.invocationUrl = [this](const std::string& operationTypeId) {
      if (onUrl) onUrl();
      return lumo_connector::SCUrlResult{urlStatus, operationTypeId, "http://" + operationTypeId};
    };
    return collaborators;
  }

  /// With waits that no test outlives.
  HSM::Collaborators Collaborators() {
    HSM::Collaborators collaborators = FieldCollaborators();
    collaborators.ocspRetryInterval = std::chrono::hours(1);
    collaborators.testabilityPause = std::chrono::hours(1);
    return collaborators;
  }

  /// The lines of one validation of `chain`, which ends with `expected`.
  std::vector<std::string> Validate(HSM& hsm, const std::string& chain, int expected) {
    log.Clear();
    EXPECT_EQ(expected, hsm.X5COcspValidation(Chain(chain)));
    return log.Lines();
  }

  /// The same by a facade that tries again at once.
  std::vector<std::string> Validate(const std::string& chain, int expected) {
    HSM::Collaborators collaborators = Collaborators();
    collaborators.ocspRetryInterval = std::chrono::seconds(0);
    HSM hsm(std::move(collaborators));
    return Validate(hsm, chain, expected);
  }

  /// Switches as a tester sets them.
  development_tools::DevelopmentTools RetryTestMode() const {
    const std::string file = directory.Path() + "/config.cfg";
    std::ofstream(file) << "ConnectionRetryTestMode = true\n";
    return development_tools::DevelopmentTools(file);
  }

  const TemporaryDirectory directory;
  const std::shared_ptr<FakeTrustStore> trustStore = std::make_shared<FakeTrustStore>();
  const std::shared_ptr<FakeOcspConnection> responder = std::make_shared<FakeOcspConnection>();
  std::int32_t urlStatus = 1;   ///< of the connector's answers
  std::function<void()> onUrl;  ///< runs inside every question for an address
  platform_host::CapturedLog log;
};

}  // namespace tests

#endif
