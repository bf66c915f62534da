// A program that does nothing but live in its platform, as the client does: end-to-end tests watch
// what it logs and what the platform tells of it.
//   --ill-after N   its health is bad from the check N + 1 on
//   --no-confirm    it enters states and never says so
#include <atomic>
#include <cstring>
#include <deque>
#include <iostream>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "lumo_connector/LumoConnector.h"
#include "ostra/tee/TrustStoreUpdateAPI.h"
#include "process_lifecycle_adapter/ProcessLifecycleAdapter.h"
#include "support/Mutex.h"

namespace {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;
namespace lifecycle = process_lifecycle_adapter;

struct Options {
  int healthyChecks = std::numeric_limits<int>::max();
  bool confirms = true;
};

/// The owner of an adapter. Its callbacks only record; its main loop acts.
class Unit : public lifecycle::ProcessLifecycleAdapterCallbackIf,
             public lifecycle::ProcessLifecycleAdapterStateCallbackIf {
 public:
  explicit Unit(Options unitOptions) : options(unitOptions) {}

  void ProcessLifecycleAdapterTerminate() override EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    isEnding = true;
    changed.NotifyAll();
  }

  [[nodiscard]] int ProcessLifecycleAdapterGetHealthStatus() override {
    return ++checks > options.healthyChecks ? 1 : 0;
  }

  void ProcessLifecycleAdapterEnterState(lifecycle::ProcessState state,
                                         unsigned int sequence) override EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    requests.emplace_back(state, sequence);
    changed.NotifyAll();
  }

  /// Enters the states that are asked for, until the process is to end.
  void Main(lifecycle::ProcessLifecycleAdapterIf& adapter) EXCLUDES(mutex) {
    Request request;
    while (AwaitRequest(request)) {
      CSCLogging::LogInfo(CSCLogEntry() << "lifecycle_unit: entered state "
                                        << static_cast<unsigned int>(request.first));
      if (options.confirms) adapter.StateChanged(request.first, request.second);
    }
  }

 private:
  using Request = std::pair<lifecycle::ProcessState, unsigned int>;

  /// False when the process is to end.
  bool AwaitRequest(Request& request) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    while (!isEnding && requests.empty()) changed.Wait(mutex);
    if (isEnding) return false;
    request = requests.front();
    requests.pop_front();
    return true;
  }

  const Options options;
  std::atomic<int> checks{0};
  support::Mutex mutex;
  support::ConditionVariable changed;
  std::deque<Request> requests GUARDED_BY(mutex);
  bool isEnding GUARDED_BY(mutex) = false;
};

/// Logs what the connector tells.
class ConnectionListener : public lumo_connector::LumoSessionCallbackIf,
                           public lumo_connector::LumoServiceControllerCallbackIf {
 public:
  void LumoConnectorStatus(lumo_connector::SessionStatus status) override {
    CSCLogging::LogInfo(CSCLogEntry()
                        << "lifecycle_unit: session " << static_cast<unsigned int>(status));
  }
  void LumoSCSessionStatus(lumo_connector::SCSessionStatus /*status*/) override {}
  void LumoSCInvocationURL(lumo_connector::SCUrlResult /*result*/) override {}
  void LumoSCActivationState(lumo_connector::SCActivationStateUpdate /*update*/) override {}
  void LumoSCConnectionState(lumo_connector::SCConnectionStateUpdate update) override {
    CSCLogging::LogInfo(CSCLogEntry() << "lifecycle_unit: connection state " << update.state);
  }
};

bool ReadOptions(int argc, char** argv, Options& options) {
  for (int index = 1; index < argc; ++index) {
    if (std::strcmp(argv[index], "--no-confirm") == 0) {
      options.confirms = false;
    } else if (std::strcmp(argv[index], "--ill-after") == 0 && index + 1 < argc) {
      options.healthyChecks = std::stoi(argv[++index]);
    } else {
      return false;
    }
  }
  return true;
}

void Live(const Options& options) {
  Unit unit(options);
  ConnectionListener listener;
  lifecycle::ProcessLifecycleAdapter adapter;
  adapter.Initialize("truststore-update-client", &unit, &unit);
  lumo_connector::LumoConnector connector(&listener);
  connector.Start();
  if (connector.SubscribeTransactionTypeState("RUNA-TruststoreUpdate", &listener, 0) == 0) {
    CSCLogging::LogError("lifecycle_unit: no connection states");
  }
  const auto trustStore = ostra::tee::TrustStoreUpdateAPI::get_instance();
  unit.Main(adapter);
  connector.Stop();
}

}  // namespace

int main(int argc, char** argv) {
  CSCLogging::InitLogging("TU");
  Options options;
  if (!ReadOptions(argc, argv, options)) {
    std::cerr << "usage: lifecycle_unit [--ill-after N] [--no-confirm]\n";
    return 2;
  }
  Live(options);
  CSCLogging::LogInfo("lifecycle_unit: ended");
  return 0;
}
