/// The platform's services for a process's life, as ProcessLifecycleAdapterImpl uses them:
/// execution, state and health management, and the latter's configuration.
#ifndef PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTERAPIIF_H
#define PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTERAPIIF_H

#include <cstdint>
#include <string>

#include "process_lifecycle_adapter/ProcessLifecycleAdapterStateCallbackIf.h"
#include "process_lifecycle_adapter/ProcessState.h"

namespace process_lifecycle_adapter {

/// Terminating and StateChanged may be called from any thread. Both forms of Initialize belong to
/// one thread at a time; so do Start, GetIAmAliveTime and IAmAlive, after the first Initialize.
class ProcessLifecycleAdapterApiIf {
 public:
  virtual ~ProcessLifecycleAdapterApiIf() = default;

  /// Reports the process as running. A failure is logged. Blocks for a second at most.
  virtual void Initialize(const std::string& name) = 0;

  /// As above; then `stateCallback` hears of the states that are asked of the component `name`,
  /// until this object ends. Without a connection to state management, that is logged. A second
  /// call replaces the first one's connection, and waits for a call of its callback under way.
  virtual void Initialize(const std::string& name,
                          ProcessLifecycleAdapterStateCallbackIf* stateCallback) = 0;

  /// Reads the health supervision file and prepares alive reports. False after a failure, which is
  /// logged; then there are none. Blocks for the disk.
  virtual bool Start() = 0;

  /// The time between two alive reports in tenths of a second; 0: none are to be made.
  [[nodiscard]] virtual std::uint16_t GetIAmAliveTime() = 0;

  /// Makes an alive report. A failure is logged.
  virtual void IAmAlive() = 0;

  /// Reports the process as terminating. Blocks for a second at most.
  virtual void Terminating() = 0;

  /// Confirms to state management that the component is in `state`, as the request `sequence`
  /// demanded. A failure is logged. Does not block.
  virtual void StateChanged(ProcessState state, unsigned int sequence) = 0;
};

}  // namespace process_lifecycle_adapter

#endif
