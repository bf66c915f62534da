// The update handler with nothing replaced, on the host platform.
#include <gmock/gmock.h>

#include <filesystem>

#include "TruststoreUpdateClient/UpdateHandler.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Files.h"
#include "tests/support/HostConfiguration.h"

namespace truststore_update_client {
namespace {

// What is no container is refused by the whole chain of objects.
TEST(UpdateHandlerOfUnit, NoContainer_RefusedAndNothingInstalled) {
  const tests::HostConfiguration configuration;
  tests::WriteText(configuration.Directory() + "/container", "no container");
  const platform_host::CapturedLog log;
  const tests::CapturedOutput output;
  UpdateHandler handler{std::shared_ptr<lumo_connector::LumoConnector>()};
  handler.UpdateDevContainer(configuration.Directory() + "/container");
  EXPECT_EQ(log.Lines().back(),
            "info: Send Update Status to the Device Platform: STATUS_CODE_SIGN_VALIDATION_ERROR");
  EXPECT_FALSE(std::filesystem::exists(configuration.TrustStore()));
}

}  // namespace
}  // namespace truststore_update_client
