#include "process_lifecycle_adapter/ProcessLifecycleAdapterApiImpl.h"

#include <exception>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "ini_file_reader/IniFileReader.h"

namespace process_lifecycle_adapter {
namespace {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

constexpr const char* kInstanceId = "instance-id";
constexpr const char* kSupervisionEntityId = "supervision-entity-id";
constexpr const char* kCheckpointId = "checkpoint-id";
constexpr const char* kSupervisionCycle = "supervision-cycle";
constexpr const char* kExpectedAliveIndications = "expected-alive-indications";

constexpr const char* kOnName = "kOn";
constexpr const char* kPrepSDName = "kPrepSD";

// The health supervision file of a component. What it lacks is logged when it is asked for.
class SupervisionFile {
 public:
  SupervisionFile(const std::string& directory, const std::string& componentName)
      : component(componentName),
        settings(std::make_shared<ini_file_reader::Settings>(
            ini_file_reader::Settings{{kInstanceId, ""},
                                      {kSupervisionEntityId, ""},
                                      {kCheckpointId, ""},
                                      {kSupervisionCycle, ""},
                                      {kExpectedAliveIndications, ""}})) {
    // A failure is logged there, and leaves every setting missing.
    static_cast<void>(ini_file_reader::IniFileReader().ReadIniFile(
        directory + "/" + component + "-phm.ini", settings));
  }

  bool ReadText(const std::string& key, std::string& text) const {
    text = settings->at(key);
    if (!text.empty()) return true;
    CSCLogging::LogWarning(CSCLogEntry()
                           << "Configuration parameter \"" << key
                           << "\" not found from INI file for component " << component);
    return false;
  }

  bool ReadNumber(const std::string& key, std::uint16_t& number) const {
    std::string text;
    if (!ReadText(key, text)) return false;
    try {
      number = static_cast<std::uint16_t>(std::stol(text));
      return true;
    } catch (const std::exception&) {
      CSCLogging::LogWarning(CSCLogEntry() << "Configuration parameter \"" << key
                                           << "\" has no usable number in INI file for component "
                                           << component << ": " << text);
      return false;
    }
  }

 private:
  const std::string component;
  const std::shared_ptr<ini_file_reader::Settings> settings;
};

void LogCheckpointFailure(const char* reason) {
  CSCLogging::LogError(CSCLogEntry()
                       << "ProcessLifecycleAdapterApiImpl::IAmAlive, CheckpointReached exception: "
                       << reason);
}

}  // namespace

ProcessLifecycleAdapterApiImpl::ProcessLifecycleAdapterApiImpl(std::string configDirectory)
    : directory(std::move(configDirectory)) {}

ProcessLifecycleAdapterApiImpl::~ProcessLifecycleAdapterApiImpl() {
  ReplaceComponentClient(nullptr);
}

void ProcessLifecycleAdapterApiImpl::Initialize(const std::string& newName) {
  {
    const support::MutexLock lock(mutex);
    name = newName;
  }
  CSCLogging::LogInfo(
      "ProcessLifecycleAdapterApiImpl::Initialize, ReportApplicationState kRunning");
  if (!applicationClient.ReportApplicationState(ara::exec::ApplicationState::kRunning)) {
    CSCLogging::LogError("ReportApplicationState to kRunning failed.");
  }
}

void ProcessLifecycleAdapterApiImpl::Initialize(
    const std::string& newName, ProcessLifecycleAdapterStateCallbackIf* newCallback) {
  Initialize(newName);
  ara::stm::StateChangeHandler handler = [this](const ara::stm::ComponentClient& client,
                                                std::uint32_t sequence, const std::string& state) {
    StateChangeRequested(client, sequence, state);
  };
  // Of one that was made before: state management knows one client of a component.
  ReplaceComponentClient(nullptr);
  {
    const support::MutexLock lock(mutex);
    stateCallback = newCallback;
    isCreating = true;
  }
  ara::stm::ComponentClientResult created =
      ara::stm::createComponentClient(newName, std::move(handler));
  if (created.client == nullptr) {
    CSCLogging::LogError(
        CSCLogEntry()
        << "ProcessLifecycleAdapterApiImpl::Initialize could not create ComponentClient: "
        << created.error);
  }
  ReplaceComponentClient(std::move(created.client));
}

bool ProcessLifecycleAdapterApiImpl::Start() {
  CSCLogging::LogDebug("ProcessLifecycleAdapterApiImpl::Start");
  std::string component;
  {
    const support::MutexLock lock(mutex);
    component = name;
  }
  const bool isConfigured = ReadConfiguration(component);
  if (!isConfigured) {
    CSCLogging::LogError(CSCLogEntry()
                         << "ProcessLifecycleAdapter::Reading application configuration failed for "
                         << component);
  }
  if (isConfigured && CreateHealthObjects()) return true;
  supervisionCycle = 0;
  expectedAliveIndications = 0;
  return false;
}

std::uint16_t ProcessLifecycleAdapterApiImpl::GetIAmAliveTime() {
  if (supervisionCycle == 0 || expectedAliveIndications == 0) return 0;
  return static_cast<std::uint16_t>(supervisionCycle / expectedAliveIndications);
}

void ProcessLifecycleAdapterApiImpl::IAmAlive() {
  if (supervisionEntity == nullptr) {
    CSCLogging::LogError("IAmAlive called, the mSupervisionEntity has not been created");
    return;
  }
  CSCLogging::LogVerbose(CSCLogEntry()
                         << "ProcessLifecycleAdapterApiImpl::IAmAlive, call CheckpointReached, "
                            "supervision id="
                         << supervisionEntityId << ", checkpoint id=" << checkpointId);
  try {
    supervisionEntity->CheckpointReached(supervisionEntityId, checkpointId);
  } catch (const std::exception& exception) {
    LogCheckpointFailure(exception.what());
  } catch (...) {
    LogCheckpointFailure("unknown");
  }
}

void ProcessLifecycleAdapterApiImpl::Terminating() {
  CSCLogging::LogDebug(
      "ProcessLifecycleAdapterApiImpl::Terminating, ReportApplicationState kTerminating");
  // The platform logs a failure. The process ends all the same.
  static_cast<void>(
      applicationClient.ReportApplicationState(ara::exec::ApplicationState::kTerminating));
}

void ProcessLifecycleAdapterApiImpl::StateChanged(ProcessState state, unsigned int sequence) {
  const auto number = static_cast<unsigned int>(state);
  CSCLogging::LogInfo(CSCLogEntry() << "ProcessLifecycleAdapterApiImpl::StateChanged: " << number
                                    << " seq: " << sequence);
  if (state != ProcessState::kOn && state != ProcessState::kPrepSD) {
    CSCLogging::LogError(
        CSCLogEntry() << "ProcessLifecycleAdapterApiImpl::StateChanged: Invalid state: " << number);
  } else if (!Confirm(sequence, state == ProcessState::kOn ? kOnName : kPrepSDName)) {
    CSCLogging::LogError(
        "ProcessLifecycleAdapterApiImpl::StateChanged: Component Client uninitialized, cannot "
        "notify new state");
  }
}

void ProcessLifecycleAdapterApiImpl::StateChangeRequested(const ara::stm::ComponentClient& /*of*/,
                                                          unsigned int sequence,
                                                          const std::string& state) {
  ProcessLifecycleAdapterStateCallbackIf* callback = nullptr;
  {
    const support::MutexLock lock(mutex);
    while (isCreating) changed.Wait(mutex);
    callback = stateCallback;
  }
  if (state != kOnName && state != kPrepSDName) {
    CSCLogging::LogError(
        CSCLogEntry()
        << "ProcessLifecycleAdapterApiImpl::StateChangeRequested, Invalid state requested: "
        << state);
    return;
  }
  CSCLogging::LogInfo(
      CSCLogEntry() << "ProcessLifecycleAdapterApiImpl::StateChangeRequested new state: " << state);
  if (callback == nullptr) return;
  callback->ProcessLifecycleAdapterEnterState(
      state == kOnName ? ProcessState::kOn : ProcessState::kPrepSD, sequence);
}

bool ProcessLifecycleAdapterApiImpl::ReadConfiguration(const std::string& component) {
  const SupervisionFile file(directory, component);
  return file.ReadText(kInstanceId, instanceId) &&
         file.ReadNumber(kSupervisionEntityId, supervisionEntityId) &&
         file.ReadNumber(kCheckpointId, checkpointId) &&
         file.ReadNumber(kSupervisionCycle, supervisionCycle) &&
         file.ReadNumber(kExpectedAliveIndications, expectedAliveIndications);
}

bool ProcessLifecycleAdapterApiImpl::CreateHealthObjects() {
  CSCLogging::LogDebug(CSCLogEntry() << "Create Phm_client " << instanceId);
  try {
    phmClient = std::make_unique<ara::phm::Phm_client>(instanceId);
    supervisionEntity = std::make_unique<ara::phm::SupervisionEntity>(*phmClient);
    healthChannel = std::make_unique<ara::phm::HealthChannel>(*phmClient);
    return true;
  } catch (const std::exception& exception) {
    CSCLogging::LogError(CSCLogEntry()
                         << "ProcessLifecycleAdapterApiImpl::Start, Phm_client exception: "
                         << exception.what());
  }
  supervisionEntity.reset();
  phmClient.reset();
  return false;
}

void ProcessLifecycleAdapterApiImpl::ReplaceComponentClient(
    std::unique_ptr<ara::stm::ComponentClient> newClient) {
  {
    const support::MutexLock lock(mutex);
    componentClient.swap(newClient);
    isCreating = false;
    changed.NotifyAll();
    // Were the former to end on the thread of its own handler, it would wait for itself.
    while (confirming > 0) changed.Wait(mutex);
  }
  // The former ends here, without the lock: it waits for its handler, which may need it.
  newClient.reset();
}

bool ProcessLifecycleAdapterApiImpl::Confirm(unsigned int sequence, const std::string& state) {
  ara::stm::ComponentClient* client = nullptr;
  {
    const support::MutexLock lock(mutex);
    client = componentClient.get();
    if (client == nullptr) return false;
    ++confirming;
  }
  client->ConfirmState(sequence, state);
  const support::MutexLock lock(mutex);
  --confirming;
  changed.NotifyAll();
  return true;
}

}  // namespace process_lifecycle_adapter
