#include "ara/phm/HealthChannel.h"

namespace ara::phm {

// Health management of this machine hears of a process through its checkpoints alone.
HealthChannel::HealthChannel(const Phm_client& /*client*/) {}

}  // namespace ara::phm
