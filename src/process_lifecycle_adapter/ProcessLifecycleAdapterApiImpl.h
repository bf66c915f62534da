/// The calls to execution, state and health management, and the settings of the latter.
///
/// Threads: see ProcessLifecycleAdapterApiIf; StateChangeRequested comes on a thread of the
/// platform. That thread may be inside the owner's callback, and from there inside StateChanged, at
/// any time until the component client has ended: this is what the destructor does first.
#ifndef PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTERAPIIMPL_H
#define PROCESS_LIFECYCLE_ADAPTER_PROCESSLIFECYCLEADAPTERAPIIMPL_H

#include <cstdint>
#include <memory>
#include <string>

#include "ara/exec/ApplicationClient.h"
#include "ara/phm/HealthChannel.h"
#include "ara/phm/Phm_client.h"
#include "ara/phm/SupervisionEntity.h"
#include "ara/stm/ComponentClient.h"
#include "process_lifecycle_adapter/ProcessLifecycleAdapterApiIf.h"
#include "support/Mutex.h"

namespace process_lifecycle_adapter {

/// Health supervision is configured by a file DIRECTORY/NAME-phm.ini of five keys, all required:
/// instance-id, supervision-entity-id, checkpoint-id, supervision-cycle and
/// expected-alive-indications. The last two, divided, are the time between two alive reports in
/// tenths of a second. Numbers are decimal and cut to 16 bits.
class ProcessLifecycleAdapterApiImpl : public ProcessLifecycleAdapterApiIf {
 public:
  /// Where a unit keeps its health supervision files.
  static constexpr const char* kConfigDirectory = "/etc";

  explicit ProcessLifecycleAdapterApiImpl(std::string configDirectory = kConfigDirectory);

  /// Waits for a request of state management under way; none follows.
  ~ProcessLifecycleAdapterApiImpl() override;
  ProcessLifecycleAdapterApiImpl(const ProcessLifecycleAdapterApiImpl&) = delete;
  ProcessLifecycleAdapterApiImpl& operator=(const ProcessLifecycleAdapterApiImpl&) = delete;

  void Initialize(const std::string& name) override EXCLUDES(mutex);
  void Initialize(const std::string& name,
                  ProcessLifecycleAdapterStateCallbackIf* newCallback) override EXCLUDES(mutex);
  bool Start() override EXCLUDES(mutex);
  [[nodiscard]] std::uint16_t GetIAmAliveTime() override;
  void IAmAlive() override;
  void Terminating() override;
  void StateChanged(ProcessState state, unsigned int sequence) override EXCLUDES(mutex);

  /// State management asks for `state`: "kOn" and "kPrepSD" go to the owner's callback, anything
  /// else is logged only. A request that comes while the component client is being created waits
  /// for it, so that the owner's confirmation finds the client.
  void StateChangeRequested(const ara::stm::ComponentClient& client, unsigned int sequence,
                            const std::string& state) EXCLUDES(mutex);

 private:
  /// Reads the settings of component `component`. False at the first one that is missing or that is
  /// no number, which is logged.
  [[nodiscard]] bool ReadConfiguration(const std::string& component);

  /// Makes the objects that report to health management. False, logged, when one cannot be made.
  [[nodiscard]] bool CreateHealthObjects();

  /// Makes `newClient`, which may be null, the one that confirmations go to, and ends the former
  /// once no confirmation uses it.
  void ReplaceComponentClient(std::unique_ptr<ara::stm::ComponentClient> newClient) EXCLUDES(mutex);

  /// Confirms through the component client. False when there is none.
  [[nodiscard]] bool Confirm(unsigned int sequence, const std::string& state) EXCLUDES(mutex);

  const std::string directory;

  // Their own locking.
  ara::exec::ApplicationClient applicationClient;
  support::Mutex mutex;
  support::ConditionVariable changed;

  // Of the thread that starts and makes alive reports.
  std::unique_ptr<ara::phm::Phm_client> phmClient;
  std::unique_ptr<ara::phm::SupervisionEntity> supervisionEntity;
  std::unique_ptr<ara::phm::HealthChannel> healthChannel;
  std::uint16_t supervisionCycle = 0;
  std::uint16_t expectedAliveIndications = 0;
  std::uint16_t supervisionEntityId = 0;
  std::uint16_t checkpointId = 0;
  std::string instanceId;

  ProcessLifecycleAdapterStateCallbackIf* stateCallback GUARDED_BY(mutex) = nullptr;
  std::unique_ptr<ara::stm::ComponentClient> componentClient GUARDED_BY(mutex);
  std::string name GUARDED_BY(mutex);
  bool isCreating GUARDED_BY(mutex) = false;      ///< the component client
  unsigned int confirming GUARDED_BY(mutex) = 0;  ///< calls into the component client under way
};

}  // namespace process_lifecycle_adapter

#endif
