#include "TruststoreUpdateClient/Protobuffers.h"

#include <google/protobuf/stubs/logging.h>

#include "RUNA_CT_TruststoreUpdateTSCJob_v1.pb.h"
#include "csc_logging/CSCLogging.h"

namespace truststore_update_client {

void Protobuffers::ParseMqttJobRequest(std::string& containerId, const std::string& payload) const {
  // The library writes on standard error for a peer's every invalid character.
  const google::protobuf::LogSilencer silencer;
  domain::backend::proto::RUNACTTruststoreUpdateTSCJobV1 job;
  if (!job.ParseFromString(payload)) {
    csc_logging::CSCLogging::LogInfo("Error in Parsing!");
    containerId.clear();
    return;
  }
  containerId = job.container_id();
}

}  // namespace truststore_update_client
