// ara::exec and ara::phm: there is neither execution nor health management here, only a line for
// each report.
#include "ara/exec/ApplicationClient.h"
#include "ara/phm/HealthChannel.h"
#include "ara/phm/Phm_client.h"
#include "ara/phm/SupervisionEntity.h"
#include "csc_logging/CSCLogging.h"

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

namespace ara::exec {

bool ApplicationClient::ReportApplicationState(ApplicationState state) noexcept {
  CSCLogging::LogInfo(state == ApplicationState::kRunning ? "other_platform: running"
                                                          : "other_platform: terminating");
  return true;
}

}  // namespace ara::exec

namespace ara::phm {

Phm_client::Phm_client(const std::string& instanceId) : instance(instanceId) {}

HealthChannel::HealthChannel(const Phm_client& /*client*/) {}

SupervisionEntity::SupervisionEntity(const Phm_client& client) : instance(client.InstanceId()) {}

void SupervisionEntity::CheckpointReached(std::uint16_t supervisionEntityId,
                                          std::uint16_t checkpointId) {
  CSCLogging::LogInfo(CSCLogEntry() << "other_platform: checkpoint " << supervisionEntityId << "/"
                                    << checkpointId << " of " << instance);
}

}  // namespace ara::phm
