#include "process_lifecycle_adapter/ProcessLifecycleAdapterImpl.h"

#include <exception>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "process_lifecycle_adapter/ProcessLifecycleAdapterApi.h"
#include "support/WorkerThread.h"

namespace process_lifecycle_adapter {
namespace {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

}  // namespace

ProcessLifecycleAdapterImpl::Parts::Parts()
    : api(std::make_unique<ProcessLifecycleAdapterApi>()),
      startKeepAlive([](std::function<void()> body) {
        return support::StartThread("keepAlive", std::move(body));
      }) {}

ProcessLifecycleAdapterImpl::ProcessLifecycleAdapterImpl(
    ProcessLifecycleAdapterCallbackIf* terminationCallback)
    : ProcessLifecycleAdapterImpl(terminationCallback, Parts()) {}

ProcessLifecycleAdapterImpl::ProcessLifecycleAdapterImpl(
    ProcessLifecycleAdapterCallbackIf* terminationCallback, Parts parts)
    : aliveTimeUnit(parts.aliveTimeUnit),
      startKeepAlive(std::move(parts.startKeepAlive)),
      callback(terminationCallback),
      api(std::move(parts.api)),
      signalHandler(std::make_unique<signal_handler::SignalHandler>(
          [this] { Terminate(); }, std::move(parts.signalSystem))) {}

ProcessLifecycleAdapterImpl::~ProcessLifecycleAdapterImpl() {
  EndRunning();
  signalHandler.reset();
  if (keepAliveThread.joinable()) keepAliveThread.join();
}

void ProcessLifecycleAdapterImpl::Initialize(const std::string& name,
                                             ProcessLifecycleAdapterCallbackIf* newCallback) {
  Initialize(name, newCallback, nullptr);
}

void ProcessLifecycleAdapterImpl::Initialize(
    const std::string& name, ProcessLifecycleAdapterCallbackIf* newCallback,
    ProcessLifecycleAdapterStateCallbackIf* stateCallback) {
  InitializeApi(name, stateCallback);
  if (StoreCallback(newCallback)) newCallback->ProcessLifecycleAdapterTerminate();
  StartKeepAlive();
}

void ProcessLifecycleAdapterImpl::NotifyInit(
    const std::string& name, ProcessLifecycleAdapterStateCallbackIf* stateCallback) {
  InitializeApi(name, stateCallback);
}

void ProcessLifecycleAdapterImpl::Configure(const ConfigParams& /*params*/) {}

void ProcessLifecycleAdapterImpl::StateChanged(ProcessState state, unsigned int sequence) {
  if (ProcessLifecycleAdapterApiIf* platform = Api()) platform->StateChanged(state, sequence);
}

void ProcessLifecycleAdapterImpl::Terminate() {
  CSCLogging::LogDebug("ProcessLifecycleAdapterImpl::Terminate");
  if (!BeginTermination()) return;
  if (ProcessLifecycleAdapterApiIf* platform = Api()) {
    platform->Terminating();
  } else {
    CSCLogging::LogWarning("Cannot notify Terminating, adapter not instantiated");
  }
  try {
    if (ProcessLifecycleAdapterCallbackIf* owner = TerminationReported()) {
      owner->ProcessLifecycleAdapterTerminate();
    }
  } catch (...) {
    // Who fails to end is not to be taken for alive.
    EndRunning();
    throw;
  }
  EndRunning();
}

void ProcessLifecycleAdapterImpl::InitializeApi(
    const std::string& name, ProcessLifecycleAdapterStateCallbackIf* stateCallback) {
  if (!BeginReport()) return;
  try {
    if (Api() == nullptr) MakeApi();
    if (stateCallback != nullptr) {
      Api()->Initialize(name, stateCallback);
    } else {
      Api()->Initialize(name);
    }
  } catch (...) {
    EndReport();
    throw;
  }
  EndReport();
}

void ProcessLifecycleAdapterImpl::MakeApi() {
  auto made = std::make_unique<ProcessLifecycleAdapterApi>();
  const support::MutexLock lock(mutex);
  api = std::move(made);
}

bool ProcessLifecycleAdapterImpl::BeginReport() {
  const support::MutexLock lock(mutex);
  isReporting = reportTerminating;
  return isReporting;
}

void ProcessLifecycleAdapterImpl::EndReport() {
  const support::MutexLock lock(mutex);
  isReporting = false;
  condition.NotifyAll();
}

bool ProcessLifecycleAdapterImpl::StoreCallback(ProcessLifecycleAdapterCallbackIf* newCallback) {
  if (newCallback == nullptr) return false;
  const support::MutexLock lock(mutex);
  callback = newCallback;
  if (!isTerminationReported || toldOfTermination == newCallback) return false;
  toldOfTermination = newCallback;
  return true;
}

void ProcessLifecycleAdapterImpl::StartKeepAlive() {
  if (keepAliveThread.joinable()) return;
  {
    const support::MutexLock lock(mutex);
    if (!reportTerminating) return;
  }
  try {
    keepAliveThread = startKeepAlive([this] { RunKeepAlive(); });
  } catch (const std::exception& exception) {
    CSCLogging::LogError(CSCLogEntry()
                         << "ProcessLifecycleAdapterImpl::Initialize, no alive reports: "
                         << exception.what());
  }
}

void ProcessLifecycleAdapterImpl::RunKeepAlive() {
  try {
    ProcessKeepAliveSignalling();
  } catch (const std::exception& exception) {
    CSCLogging::LogError(CSCLogEntry()
                         << "ProcessKeepAliveSignalling, exception: " << exception.what());
  } catch (...) {
    CSCLogging::LogError("ProcessKeepAliveSignalling, exception: unknown");
  }
}

void ProcessLifecycleAdapterImpl::ProcessKeepAliveSignalling() {
  ProcessLifecycleAdapterApiIf& platform = *Api();
  // What fails there is logged there, and leaves no alive time.
  static_cast<void>(platform.Start());
  const std::uint16_t aliveTime = platform.GetIAmAliveTime();
  CSCLogging::LogDebug(CSCLogEntry() << "ProcessKeepAliveSignalling, aliveTime =" << aliveTime);
  if (aliveTime == 0) return;
  while (running) {
    if (!ReportAlive()) return;
    AwaitNextReport(aliveTime * aliveTimeUnit);
  }
}

bool ProcessLifecycleAdapterImpl::ReportAlive() {
  ProcessLifecycleAdapterCallbackIf* owner = Callback();
  if (owner == nullptr) return true;
  if (owner->ProcessLifecycleAdapterGetHealthStatus() != 0) return false;
  CSCLogging::LogDebug("ProcessKeepAliveSignalling, call IAmAlive()");
  Api()->IAmAlive();
  return true;
}

void ProcessLifecycleAdapterImpl::AwaitNextReport(std::chrono::milliseconds period) {
  const auto deadline = std::chrono::steady_clock::now() + period;
  const support::MutexLock lock(mutex);
  while (running && condition.WaitUntil(mutex, deadline)) {
  }
}

bool ProcessLifecycleAdapterImpl::BeginTermination() {
  const support::MutexLock lock(mutex);
  if (!running || !reportTerminating) return false;
  reportTerminating = false;
  while (isReporting) condition.Wait(mutex);
  return true;
}

ProcessLifecycleAdapterCallbackIf* ProcessLifecycleAdapterImpl::TerminationReported() {
  const support::MutexLock lock(mutex);
  isTerminationReported = true;
  toldOfTermination = callback;
  return callback;
}

void ProcessLifecycleAdapterImpl::EndRunning() {
  const support::MutexLock lock(mutex);
  running = false;
  condition.NotifyAll();
}

ProcessLifecycleAdapterApiIf* ProcessLifecycleAdapterImpl::Api() {
  const support::MutexLock lock(mutex);
  return api.get();
}

ProcessLifecycleAdapterCallbackIf* ProcessLifecycleAdapterImpl::Callback() {
  const support::MutexLock lock(mutex);
  return callback;
}

}  // namespace process_lifecycle_adapter
