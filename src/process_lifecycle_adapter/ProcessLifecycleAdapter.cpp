#include "process_lifecycle_adapter/ProcessLifecycleAdapter.h"

#include "process_lifecycle_adapter/ProcessLifecycleAdapterImpl.h"

namespace process_lifecycle_adapter {

ProcessLifecycleAdapter::ProcessLifecycleAdapter() : ProcessLifecycleAdapter(nullptr) {}

ProcessLifecycleAdapter::ProcessLifecycleAdapter(ProcessLifecycleAdapterCallbackIf* callback)
    : impl(std::make_unique<ProcessLifecycleAdapterImpl>(callback)) {}

ProcessLifecycleAdapter::~ProcessLifecycleAdapter() = default;

void ProcessLifecycleAdapter::Initialize(const std::string& name,
                                         ProcessLifecycleAdapterCallbackIf* callback) {
  impl->Initialize(name, callback);
}

void ProcessLifecycleAdapter::Initialize(const std::string& name,
                                         ProcessLifecycleAdapterCallbackIf* callback,
                                         ProcessLifecycleAdapterStateCallbackIf* stateCallback) {
  impl->Initialize(name, callback, stateCallback);
}

void ProcessLifecycleAdapter::NotifyInit(const std::string& name,
                                         ProcessLifecycleAdapterStateCallbackIf* stateCallback) {
  impl->NotifyInit(name, stateCallback);
}

void ProcessLifecycleAdapter::Configure(const ConfigParams& params) {
  impl->Configure(params);
}

void ProcessLifecycleAdapter::StateChanged(ProcessState state, unsigned int sequence) {
  impl->StateChanged(state, sequence);
}

}  // namespace process_lifecycle_adapter
