/// What ties a process to its platform, as its owner sees it: it is known as running, follows the
/// states asked of it, reports that it is alive, and ends in order on SIGTERM.
#ifndef PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTERIF_H
#define PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTERIF_H

#include <string>

#include "process_lifecycle_adapter/ProcessLifecycleAdapterCallbackIf.h"
#include "process_lifecycle_adapter/ProcessLifecycleAdapterStateCallbackIf.h"
#include "process_lifecycle_adapter/ProcessState.h"

namespace process_lifecycle_adapter {

/// StateChanged may be called from any thread, the others by one thread at a time. None throws for
/// a platform that fails: that is logged, and the process goes on without.
class ProcessLifecycleAdapterIf {
 public:
  /// For platforms on which a process has something to configure; nothing here.
  struct ConfigParams {};

  virtual ~ProcessLifecycleAdapterIf() = default;

  /// Reports the process as running and begins its alive reports, as `name` (the component's) is
  /// configured; then `callback` hears of termination. A null one is not stored. Waits for no peer
  /// longer than a second. After a SIGTERM nothing is reported or begun, but `callback` is told of
  /// it, inside this call if need be.
  virtual void Initialize(const std::string& name, ProcessLifecycleAdapterCallbackIf* callback) = 0;

  /// As above, and `stateCallback`, when not null, hears of the states that are asked of the
  /// component `name`; perhaps before this returns. Where an earlier call gave a `stateCallback`,
  /// this one waits for a call of that under way, and so does a termination meanwhile.
  virtual void Initialize(const std::string& name, ProcessLifecycleAdapterCallbackIf* callback,
                          ProcessLifecycleAdapterStateCallbackIf* stateCallback) = 0;

  /// As Initialize, the alive reports and the callback left out.
  virtual void NotifyInit(const std::string& name,
                          ProcessLifecycleAdapterStateCallbackIf* stateCallback) = 0;

  /// Does nothing.
  virtual void Configure(const ConfigParams& params) = 0;

  /// Confirms that the process is in `state`, as the request `sequence` demanded. Does not block.
  virtual void StateChanged(ProcessState state, unsigned int sequence) = 0;
};

}  // namespace process_lifecycle_adapter

#endif
