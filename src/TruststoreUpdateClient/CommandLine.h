/// The command line of the daemon. Main thread; nothing throws.
#ifndef TRUSTSTOREUPDATECLIENT_COMMANDLINE_H
#define TRUSTSTOREUPDATECLIENT_COMMANDLINE_H

#include <string>

#include "TruststoreUpdateClient/DevelopmentTools.h"

namespace truststore_update_client {

/// What the command line asks the process to do.
struct CommandLine {
  bool runClient = false;  ///< false: everything has been done or told already
  bool factoryReset = false;
  std::string
      developmentContainer;  ///< container to install instead of running as a daemon; "": none
};

/// Reads the arguments. Options that write development switches do so at once, through `tools` into
/// `switchesFile`; help and complaints go to standard output.
[[nodiscard]] CommandLine ParseCommandLine(int argc, char** argv,
                                           const development_tools::DevelopmentTools& tools,
                                           const std::string& switchesFile);

/// Writes the usage to standard output.
void PrintHelp();

}  // namespace truststore_update_client

#endif
