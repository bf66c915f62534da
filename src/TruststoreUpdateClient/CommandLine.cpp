#include "TruststoreUpdateClient/CommandLine.h"

#include <unistd.h>

#include <array>
#include <cstddef>
#include <iostream>
#include <string_view>

#include "TruststoreUpdateClient/Constants.h"

namespace truststore_update_client {

using development_tools::DevelopmentTools;

namespace {

constexpr std::array<const char*, 7> kCheckSwitches = {"no-check-replayprotection",
                                                       "no-check-timestampfuture",
                                                       "no-check-signcertpath",
                                                       "no-check-signcertcn",
                                                       "no-check-tscsignature",
                                                       "no-check-ocsp",
                                                       "no-check-all"};

void ModifyCheckSwitches(std::string_view bits, const DevelopmentTools& tools,
                         const std::string& switchesFile) {
  const auto bad = bits.find_first_not_of("01\n");
  if (bad != std::string_view::npos) {
    std::cout << "\033[1;31mThe non-acceptible character " << bits[bad] << " at position " << bad
              << ". Config.cfg not modified\033[0m\n";
    return;
  }
  for (std::size_t i = 0; i < bits.size(); ++i) {
    if (i < kCheckSwitches.size()) {
      tools.ModifyConfigFile(kCheckSwitches[i], bits[i] == '1' ? "true" : "false", switchesFile);
    } else {
      std::cout << "No 'no-check-xxx' development flag on index: " << i << '\n';
    }
  }
}

std::string ContainerPath(const std::string& argument) {
  return argument == "valid" ? testing::TRUSTSTORE_CONTAINER : argument;
}

}  // namespace

CommandLine ParseCommandLine(int argc, char** argv, const DevelopmentTools& tools,
                             const std::string& switchesFile) {
  CommandLine commandLine;
  if (argc > 1 && std::string_view(argv[argc - 1]) == "-reset") {
    --argc;
    commandLine.factoryReset = true;
  }
  // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs yet
  for (int option; (option = getopt(argc, argv, "f:m:rh")) != -1;) {
    switch (option) {
      case 'f':
        commandLine.developmentContainer = ContainerPath(optarg);
        tools.ModifyConfigFile("OcspDisable", "true", switchesFile);
        break;
      case 'r':
        tools.ModifyConfigFile("ConnectionRetryTestMode", "true", switchesFile);
        break;
      case 'm':
        ModifyCheckSwitches(optarg, tools, switchesFile);
        return commandLine;
      default:
        PrintHelp();
        return commandLine;
    }
  }
  commandLine.runClient = true;
  return commandLine;
}

void PrintHelp() {
  static const std::string command = "truststore-update-client";
  std::cout << "Usage: " << command << " [-f filename|-m 10000001|-r|-h] -reset\n"
            << command << " -f       Give a container example eg. '-f valid_tsc_2021.txt'\n"
            << command
            << " -m       Modify config.cfg by given binary string (1=true, 0=false) eg. '-m "
               "10000001'\n"
            << command << " -r       Run Client in Retry Test Mode\n"
            << command << " -h       Print help\n"
            << command << " -reset   Activate Factory Reset\n";
}

}  // namespace truststore_update_client
