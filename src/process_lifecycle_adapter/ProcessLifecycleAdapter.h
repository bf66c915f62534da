/// Ties the process to its platform: see ProcessLifecycleAdapterIf. The client creates one, before
/// anything that a SIGTERM would have to stop.
#ifndef PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTER_H
#define PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTER_H

#include <memory>
#include <string>

#include "process_lifecycle_adapter/ProcessLifecycleAdapterIf.h"

namespace process_lifecycle_adapter {

class ProcessLifecycleAdapterImpl;

/// Hands every call on to its ProcessLifecycleAdapterImpl. Only one may exist at a time. Both
/// callbacks outlive it.
class ProcessLifecycleAdapter : public ProcessLifecycleAdapterIf {
 public:
  /// SIGTERM is caught from now on. Throws std::system_error when the thread that listens to it
  /// cannot be made; then nothing has changed.
  ProcessLifecycleAdapter();

  /// As above; `callback`, which may be null, hears of termination before Initialize too.
  explicit ProcessLifecycleAdapter(ProcessLifecycleAdapterCallbackIf* callback);

  /// Waits for callbacks under way; none follows. SIGTERM has no effect from now on.
  ~ProcessLifecycleAdapter() override;
  ProcessLifecycleAdapter(const ProcessLifecycleAdapter&) = delete;
  ProcessLifecycleAdapter& operator=(const ProcessLifecycleAdapter&) = delete;

  void Initialize(const std::string& name, ProcessLifecycleAdapterCallbackIf* callback) override;
  void Initialize(const std::string& name, ProcessLifecycleAdapterCallbackIf* callback,
                  ProcessLifecycleAdapterStateCallbackIf* stateCallback) override;
  void NotifyInit(const std::string& name,
                  ProcessLifecycleAdapterStateCallbackIf* stateCallback) override;
  void Configure(const ConfigParams& params) override;
  void StateChanged(ProcessState state, unsigned int sequence) override;

 private:
  const std::unique_ptr<ProcessLifecycleAdapterImpl> impl;
};

}  // namespace process_lifecycle_adapter

#endif
