// The daemon's entry point. Every path ends with 0: what went wrong is in the log.
#include <csignal>
#include <exception>

#include "TruststoreUpdateClient/CommandLine.h"
#include "TruststoreUpdateClient/Constants.h"
#include "TruststoreUpdateClient/DevelopmentTools.h"
#include "TruststoreUpdateClient/TruststoreUpdateClient.h"
#include "csc_logging/CSCLogging.h"

namespace {

using csc_logging::CSCLogging;
using development_tools::DevelopmentTools;
namespace tuc = truststore_update_client;

// Switches of one test run never outlive it, however it ends.
class SwitchesOfOneRun {
 public:
  explicit SwitchesOfOneRun(const DevelopmentTools& developmentTools) : tools(developmentTools) {}
  SwitchesOfOneRun(const SwitchesOfOneRun&) = delete;
  SwitchesOfOneRun& operator=(const SwitchesOfOneRun&) = delete;
  ~SwitchesOfOneRun() {
    tools.ModifyConfigFile("ConnectionRetryTestMode", "false", tuc::testing::TSUC_CONFIG_FILE_NAME);
    tools.ModifyConfigFile("OcspDisable", "false", tuc::testing::TSUC_CONFIG_FILE_NAME);
  }

 private:
  const DevelopmentTools& tools;
};

void RunClient(const tuc::CommandLine& commandLine, const DevelopmentTools& tools) {
  tuc::TruststoreUpdateClient client;
  const SwitchesOfOneRun switches(tools);
  if (commandLine.developmentContainer.empty()) {
    CSCLogging::LogError(
        "This version cannot reach a backend yet: give it a container with -f filename");
  } else {
    client.HandleDevContainer(commandLine.developmentContainer, commandLine.factoryReset);
  }
}

}  // namespace

int main(int argc, char** argv) {
  // A reader of the output that goes away must not end an installation half way.
  std::signal(SIGPIPE, SIG_IGN);
  CSCLogging::InitLogging("TU");
  try {
    const DevelopmentTools tools;
    const tuc::CommandLine commandLine =
        tuc::ParseCommandLine(argc, argv, tools, tuc::testing::TSUC_CONFIG_FILE_NAME);
    if (commandLine.runClient) RunClient(commandLine, tools);
  } catch (const std::exception& exception) {
    CSCLogging::LogError(csc_logging::CSCLogEntry()
                         << "Trust Store Update Client failed: " << exception.what());
  }
  return 0;
}
