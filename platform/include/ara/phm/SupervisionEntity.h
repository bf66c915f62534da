/// What a process reports of its life: checkpoints that it reaches.
#ifndef ARA_PHM_SUPERVISIONENTITY_H
#define ARA_PHM_SUPERVISIONENTITY_H

#include <cstdint>
#include <string>

#include "ara/phm/Phm_client.h"

namespace ara::phm {

/// Immutable: any thread.
class SupervisionEntity {
 public:
  explicit SupervisionEntity(const Phm_client& client);

  /// Reports the checkpoint now; health management compares its times with its configuration. Does
  /// not block. Throws std::exception when the report cannot be delivered.
  void CheckpointReached(std::uint16_t supervisionEntityId, std::uint16_t checkpointId);

 private:
  std::string instance;
};

}  // namespace ara::phm

#endif
