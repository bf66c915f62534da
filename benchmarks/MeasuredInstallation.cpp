#include "benchmarks/MeasuredInstallation.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "TruststoreUpdateClient/ContainerHandler.h"
#include "TruststoreUpdateClient/HSM.h"
#include "csc_logging/CSCLogging.h"
#include "support/FileContents.h"
#include "support/UniqueFd.h"
#include "tests/support/TestPki.h"

namespace benchmarks {

namespace {

namespace fs = std::filesystem;

const std::string kSwitchesFile = "/run/csc/config/truststore-update-client/config.cfg";
constexpr std::size_t kMaxContainerBytes = std::size_t{1} << 30U;

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

}  // namespace

Cost RunAndCount(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  for (const std::string& argument : command)
    arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  const support::UniqueFd quiet(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  const pid_t child = vfork();
  if (child == 0) {
    ::dup2(quiet.Get(), STDOUT_FILENO);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  Cost cost;
  struct rusage usage {};
  if (child < 0 || wait4(child, &cost.waitStatus, 0, &usage) != child) {
    throw std::runtime_error("cannot run " + command[0]);
  }
  cost.cpuSeconds = Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
  cost.peakMib = static_cast<double>(usage.ru_maxrss) / 1024;
  return cost;
}

void MakeUnit(const std::string& directory, const std::string& switches) {
  fs::create_directories(directory + "/store/factory");
  fs::create_directories(fs::path(directory + kSwitchesFile).parent_path());
  std::ofstream(directory + "/store/factory/ZORA.pem") << tests::PkiText("p256-3/root.pem");
  std::ofstream(directory + kSwitchesFile) << switches;
  std::ofstream(directory + "/host-platform.toml")
      << "[logging]\nlevel = \"warning\"\nsinks = [\"file:" << directory << "/log\"]\n"
      << "[trust_store]\ndirectory = \"" << directory << "/store\"\n"
      << "[persistency]\ndirectory = \"" << directory << "/persistency\"\n";
}

int InstallByClient(const std::string& container, const std::string& directory) {
  namespace client = truststore_update_client;
  setenv("TSUC_HOST_CONFIG", (directory + "/host-platform.toml").c_str(), 1);
  csc_logging::CSCLogging::InitLogging("TU");
  client::HSM::Collaborators collaborators{ostra::tee::TrustStoreUpdateAPI::get_instance(),
                                           client::PersistentFileStorage()};
  collaborators.containerIdFile = directory + "/id";
  collaborators.timestampFile = directory + "/timestamp";
  client::ContainerHandler handler(std::make_shared<client::HSM>(std::move(collaborators)),
                                   development_tools::DevelopmentTools(directory + kSwitchesFile));
  std::string text;
  if (support::ReadFile(container, kMaxContainerBytes, text) != 0) {
    throw std::runtime_error("cannot read " + container);
  }
  return handler.VerifyAndInstallContainer(text);
}

}  // namespace benchmarks
