/// How the process lifecycle adapter hands on what state management asks for.
#ifndef PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTERSTATECALLBACKIF_H
#define PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTERSTATECALLBACKIF_H

#include "process_lifecycle_adapter/ProcessState.h"

namespace process_lifecycle_adapter {

/// Implemented by the owner, which outlives the adapter.
class ProcessLifecycleAdapterStateCallbackIf {
 public:
  virtual ~ProcessLifecycleAdapterStateCallbackIf() = default;

  /// The process is to enter `state` and to tell that it has by the adapter's StateChanged, with
  /// this `sequence`, on any thread. Called on a thread of the platform, one call at a time, with
  /// no lock held; may take as long as the change needs.
  virtual void ProcessLifecycleAdapterEnterState(ProcessState state, unsigned int sequence) = 0;
};

}  // namespace process_lifecycle_adapter

#endif
