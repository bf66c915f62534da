#include "ara/phm/Phm_client.h"

#include "platform/host/ara_phm/Supervision.h"

namespace ara::phm {

Phm_client::Phm_client(const std::string& instanceId) : instance(instanceId) {
  platform_host::Supervision::OfProcess().Begin(instance);
}

}  // namespace ara::phm
