/// The channel on which a process could report its own health to health management. The client
/// opens one, as supervision demands it, and reports by checkpoints only.
#ifndef ARA_PHM_HEALTHCHANNEL_H
#define ARA_PHM_HEALTHCHANNEL_H

#include "ara/phm/Phm_client.h"

namespace ara::phm {

/// Open while it lives. Any thread.
class HealthChannel {
 public:
  /// Throws std::exception when the channel cannot be opened.
  explicit HealthChannel(const Phm_client& client);
};

}  // namespace ara::phm

#endif
