/// What the process lifecycle adapter tells its owner, and asks of it.
#ifndef PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTERCALLBACKIF_H
#define PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTERCALLBACKIF_H

namespace process_lifecycle_adapter {

/// Implemented by the owner, which outlives the adapter. Called with no lock held.
class ProcessLifecycleAdapterCallbackIf {
 public:
  virtual ~ProcessLifecycleAdapterCallbackIf() = default;

  /// The process is to end in order. Called once, on the thread "signals", or on the caller's when
  /// SIGTERM came before the adapter's Initialize stored this callback. May take as long as the
  /// owner's work needs to stop; the process counts as alive meanwhile.
  virtual void ProcessLifecycleAdapterTerminate() = 0;

  /// 0 when the process is healthy. Any other answer ends its alive reports for good. Called on the
  /// thread "keepAlive" before each report; should not take longer than the time between two.
  [[nodiscard]] virtual int ProcessLifecycleAdapterGetHealthStatus() = 0;
};

}  // namespace process_lifecycle_adapter

#endif
