// What the broker delivers as a job: an id or none, and what has been read is what a sender would
// write again. The answer to a download has the same form on the wire, which both readers must see.
#include <cstddef>
#include <cstdint>
#include <string>

#include "RUNA_CT_TruststoreUpdateTSCJob_v1.pb.h"
#include "TruststoreUpdateClient/ContainerConnection.h"
#include "TruststoreUpdateClient/Protobuffers.h"
#include "fuzz/Require.h"
#include "platform/host/csc_logging/CapturedLog.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using fuzz::Require;
  using namespace truststore_update_client;
  const std::string payload(data, data + size);
  platform_host::CapturedLog log;
  std::string id = "from before";
  Protobuffers().ParseMqttJobRequest(id, payload);
  const bool isRefused = !log.Lines().empty();
  Require(!isRefused || id.empty(), "a refused job names no container");
  Require(id.size() <= size, "an id is part of its job");

  std::string container;
  const bool isRefusedAsDownload =
      ContainerConnection(nullptr).ParseContainerDownloadResponse(container, payload);
  Require(isRefused == isRefusedAsDownload && id == container, "both readers see one text");

  domain::backend::proto::RUNACTTruststoreUpdateTSCJobV1 job;
  job.set_container_id(id);
  std::string again;
  Protobuffers().ParseMqttJobRequest(again, job.SerializeAsString());
  Require(again == id, "an id survives being sent again");
  return 0;
}
