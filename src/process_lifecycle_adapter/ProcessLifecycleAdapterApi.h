/// The platform's services for a process's life: see ProcessLifecycleAdapterApiIf.
#ifndef PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTERAPI_H
#define PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTERAPI_H

#include <cstdint>
#include <memory>
#include <string>

#include "process_lifecycle_adapter/ProcessLifecycleAdapterApiIf.h"

namespace process_lifecycle_adapter {

class ProcessLifecycleAdapterApiImpl;

/// Hands every call on to its ProcessLifecycleAdapterApiImpl, so that callers see no header of the
/// platform.
class ProcessLifecycleAdapterApi : public ProcessLifecycleAdapterApiIf {
 public:
  /// Reads the unit's health supervision files.
  ProcessLifecycleAdapterApi();

  /// Reads those in `configDirectory` instead.
  explicit ProcessLifecycleAdapterApi(const std::string& configDirectory);

  /// Waits for a request of state management under way.
  ~ProcessLifecycleAdapterApi() override;
  ProcessLifecycleAdapterApi(const ProcessLifecycleAdapterApi&) = delete;
  ProcessLifecycleAdapterApi& operator=(const ProcessLifecycleAdapterApi&) = delete;

  void Initialize(const std::string& name) override;
  void Initialize(const std::string& name,
                  ProcessLifecycleAdapterStateCallbackIf* stateCallback) override;
  bool Start() override;
  [[nodiscard]] std::uint16_t GetIAmAliveTime() override;
  void IAmAlive() override;
  void Terminating() override;
  void StateChanged(ProcessState state, unsigned int sequence) override;

 private:
  const std::unique_ptr<ProcessLifecycleAdapterApiImpl> impl;
};

}  // namespace process_lifecycle_adapter

#endif
