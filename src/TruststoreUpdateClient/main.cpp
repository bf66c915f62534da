// The daemon's entry point. Every path ends with 0: what went wrong is in the log.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

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

// Switches of one test run never outlive the client, unless its process is killed. Arguments that
// end in the usage run no client: what they have switched on stays until the next run ends.
void ResetSwitches(const DevelopmentTools& tools) {
  tools.ModifyConfigFile("ConnectionRetryTestMode", "false", tuc::testing::TSUC_CONFIG_FILE_NAME);
  tools.ModifyConfigFile("OcspDisable", "false", tuc::testing::TSUC_CONFIG_FILE_NAME);
}

void RunClient(const tuc::CommandLine& commandLine, const DevelopmentTools& tools) {
  try {
    tuc::TruststoreUpdateClient client;
    if (commandLine.developmentContainer.empty()) {
      client.Initialize(commandLine.factoryReset);
      client.Main();
    } else {
      client.HandleDevContainer(commandLine.developmentContainer, commandLine.factoryReset);
    }
    ResetSwitches(tools);
  } catch (...) {
    ResetSwitches(tools);
    throw;
  }
}

// Whoever started this process may have blocked the signal that ends it in order.
void AllowTermination() {
  sigset_t termination;
  ::sigemptyset(&termination);
  ::sigaddset(&termination, SIGTERM);
  ::pthread_sigmask(SIG_UNBLOCK, &termination, nullptr);
}

// A reader of the output that goes away, or a limit on file sizes, must not end an installation
// half way: the write fails instead.
void IgnoreSignalsOfFailedWrites() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

// Started without standard streams, the next file that is opened would be written to as the log.
void OpenMissingStandardStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (::fcntl(stream, F_GETFD) == -1) (void)::open("/dev/null", O_RDWR);
  }
}

}  // namespace

int main(int argc, char** argv) {
  OpenMissingStandardStreams();
  AllowTermination();
  IgnoreSignalsOfFailedWrites();
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
