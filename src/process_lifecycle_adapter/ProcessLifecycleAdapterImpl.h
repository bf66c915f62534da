/// The life of the process between its platform and its owner: termination by SIGTERM, alive
/// reports, states. Everything that ProcessLifecycleAdapter is.
///
/// Threads: those of ProcessLifecycleAdapterIf; "signals", which runs Terminate; "keepAlive", which
/// makes the alive reports. None of their calls to the owner or to the platform is made with the
/// lock held.
///
/// A SIGTERM may come at any instant from the moment the constructor installs its handler:
///
/// - Before Initialize: kTerminating is reported at once. Initialize reports nothing and starts no
///   thread, but tells the callback that it was given.
/// - While Initialize reports kRunning: Terminate waits until the platform side is initialised, so
///   that kTerminating is the last report; then it is as above or below. That waits for no peer
///   longer than a second, but a second Initialize or NotifyInit waits for the state callback too.
/// - Before Initialize stores the callback: Terminate finds none, so Initialize tells it: whoever
///   is second to take the lock does, and never both.
/// - Afterwards: kTerminating, then the callback on the thread "signals", then the end of the alive
///   reports.
/// - In the destructor: no effect if nothing of Terminate has begun; otherwise the destructor waits
///   for it.
#ifndef PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTERIMPL_H
#define PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTERIMPL_H

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "process_lifecycle_adapter/ProcessLifecycleAdapterApiIf.h"
#include "process_lifecycle_adapter/ProcessLifecycleAdapterIf.h"
#include "signal_handler/SignalHandler.h"
#include "support/Mutex.h"

namespace process_lifecycle_adapter {

/// Only one may exist at a time.
class ProcessLifecycleAdapterImpl : public ProcessLifecycleAdapterIf {
 public:
  /// The unit in which GetIAmAliveTime counts.
  static constexpr std::chrono::milliseconds kAliveTimeUnit{100};

  /// What tests replace; fresh, all is the unit's own.
  struct Parts {
    /// The platform. Null: made by the first Initialize.
    std::unique_ptr<ProcessLifecycleAdapterApiIf> api;
    std::chrono::milliseconds aliveTimeUnit = kAliveTimeUnit;
    signal_handler::SignalSystem signalSystem;

    /// Runs the body on a new thread "keepAlive". Throws std::exception.
    std::function<std::thread(std::function<void()> body)> startKeepAlive;

    Parts();
  };

  /// Listens to SIGTERM from now on. `terminationCallback` may be null: Initialize stores another.
  /// Throws std::system_error when the thread that listens cannot be made.
  explicit ProcessLifecycleAdapterImpl(
      ProcessLifecycleAdapterCallbackIf* terminationCallback = nullptr);

  /// As above, made of `parts`.
  ProcessLifecycleAdapterImpl(ProcessLifecycleAdapterCallbackIf* terminationCallback, Parts parts);

  /// Ends the alive reports, and waits for the owner's callbacks under way; none follows. Reports
  /// nothing.
  ~ProcessLifecycleAdapterImpl() override;
  ProcessLifecycleAdapterImpl(const ProcessLifecycleAdapterImpl&) = delete;
  ProcessLifecycleAdapterImpl& operator=(const ProcessLifecycleAdapterImpl&) = delete;

  void Initialize(const std::string& name, ProcessLifecycleAdapterCallbackIf* newCallback) override
      EXCLUDES(mutex);

  /// The alive reports begin with the first call, and only once.
  void Initialize(const std::string& name, ProcessLifecycleAdapterCallbackIf* newCallback,
                  ProcessLifecycleAdapterStateCallbackIf* stateCallback) override EXCLUDES(mutex);
  void NotifyInit(const std::string& name,
                  ProcessLifecycleAdapterStateCallbackIf* stateCallback) override EXCLUDES(mutex);
  void Configure(const ConfigParams& params) override;
  void StateChanged(ProcessState state, unsigned int sequence) override EXCLUDES(mutex);

  /// Reports that the process is terminating, tells the owner and ends the alive reports, which go
  /// on until the owner's callback has returned or thrown; what it throws leaves this call. A
  /// second call returns at once. Any thread but one inside Initialize.
  void Terminate() EXCLUDES(mutex);

 private:
  /// Initialises the platform side, which is made if need be. Does nothing once the process
  /// terminates.
  void InitializeApi(const std::string& name, ProcessLifecycleAdapterStateCallbackIf* stateCallback)
      EXCLUDES(mutex);

  void MakeApi() EXCLUDES(mutex);

  /// Whether the platform may be told that the process runs. If so, EndReport must follow.
  [[nodiscard]] bool BeginReport() EXCLUDES(mutex);
  void EndReport() EXCLUDES(mutex);

  /// Stores `newCallback`, unless null. True when it has to hear of a termination that no callback
  /// was there to hear of.
  [[nodiscard]] bool StoreCallback(ProcessLifecycleAdapterCallbackIf* newCallback) EXCLUDES(mutex);

  /// Starts the thread of the alive reports unless it has been, or the process terminates.
  void StartKeepAlive() EXCLUDES(mutex);
  void RunKeepAlive() EXCLUDES(mutex);
  void ProcessKeepAliveSignalling() EXCLUDES(mutex);

  /// An alive report, if there is an owner to vouch for it. False when the owner is not healthy.
  [[nodiscard]] bool ReportAlive() EXCLUDES(mutex);

  /// Waits for the time of the next report, or the end.
  void AwaitNextReport(std::chrono::milliseconds period) EXCLUDES(mutex);

  /// Whether this is the first call while the process runs; then no other report is under way.
  [[nodiscard]] bool BeginTermination() EXCLUDES(mutex);

  /// To be called once kTerminating is reported. The callback that is to be told now, or null.
  [[nodiscard]] ProcessLifecycleAdapterCallbackIf* TerminationReported() EXCLUDES(mutex);
  void EndRunning() EXCLUDES(mutex);

  [[nodiscard]] ProcessLifecycleAdapterApiIf* Api() EXCLUDES(mutex);
  [[nodiscard]] ProcessLifecycleAdapterCallbackIf* Callback() EXCLUDES(mutex);

  const std::chrono::milliseconds aliveTimeUnit;
  const std::function<std::thread(std::function<void()>)> startKeepAlive;

  support::Mutex mutex;
  support::ConditionVariable condition;
  std::atomic<bool> running{true};  ///< changed with the mutex held
  ProcessLifecycleAdapterCallbackIf* callback GUARDED_BY(mutex);
  ProcessLifecycleAdapterCallbackIf* toldOfTermination GUARDED_BY(mutex) = nullptr;
  bool isReporting GUARDED_BY(mutex) = false;       ///< that the process runs
  bool reportTerminating GUARDED_BY(mutex) = true;  ///< it is still to be done
  bool isTerminationReported GUARDED_BY(mutex) = false;

  /// Set once. Ends before the members above: a request of state management under way uses them.
  std::unique_ptr<ProcessLifecycleAdapterApiIf> api GUARDED_BY(mutex);
  std::thread keepAliveThread;  ///< of the thread that owns this object

  /// Last: its action uses everything above, from its construction on.
  std::unique_ptr<signal_handler::SignalHandler> signalHandler;
};

}  // namespace process_lifecycle_adapter

#endif
