#include "process_lifecycle_adapter/ProcessLifecycleAdapterApi.h"

#include "process_lifecycle_adapter/ProcessLifecycleAdapterApiImpl.h"

namespace process_lifecycle_adapter {

ProcessLifecycleAdapterApi::ProcessLifecycleAdapterApi()
    : impl(std::make_unique<ProcessLifecycleAdapterApiImpl>()) {}

ProcessLifecycleAdapterApi::ProcessLifecycleAdapterApi(const std::string& configDirectory)
    : impl(std::make_unique<ProcessLifecycleAdapterApiImpl>(configDirectory)) {}

ProcessLifecycleAdapterApi::~ProcessLifecycleAdapterApi() = default;

void ProcessLifecycleAdapterApi::Initialize(const std::string& name) {
  impl->Initialize(name);
}

void ProcessLifecycleAdapterApi::Initialize(const std::string& name,
                                            ProcessLifecycleAdapterStateCallbackIf* stateCallback) {
  impl->Initialize(name, stateCallback);
}

bool ProcessLifecycleAdapterApi::Start() {
  return impl->Start();
}

std::uint16_t ProcessLifecycleAdapterApi::GetIAmAliveTime() {
  return impl->GetIAmAliveTime();
}

void ProcessLifecycleAdapterApi::IAmAlive() {
  impl->IAmAlive();
}

void ProcessLifecycleAdapterApi::Terminating() {
  impl->Terminating();
}

void ProcessLifecycleAdapterApi::StateChanged(ProcessState state, unsigned int sequence) {
  impl->StateChanged(state, sequence);
}

}  // namespace process_lifecycle_adapter
