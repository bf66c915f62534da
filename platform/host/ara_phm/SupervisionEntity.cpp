#include "ara/phm/SupervisionEntity.h"

#include "platform/host/ara_phm/Supervision.h"

namespace ara::phm {

SupervisionEntity::SupervisionEntity(const Phm_client& client) : instance(client.InstanceId()) {}

void SupervisionEntity::CheckpointReached(std::uint16_t supervisionEntityId,
                                          std::uint16_t checkpointId) {
  platform_host::Supervision::OfProcess().Reached(instance, supervisionEntityId, checkpointId);
}

}  // namespace ara::phm
