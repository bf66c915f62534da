// What a backend answers to a request for a container: read or refused as the caller expects it,
// and what has been read is what a sender would write again.
#include <cstddef>
#include <cstdint>
#include <string>

#include "RUNA_CT_TruststoreUpdateResponseTSC_v1.pb.h"
#include "TruststoreUpdateClient/ContainerConnection.h"
#include "fuzz/Require.h"
#include "platform/host/csc_logging/CapturedLog.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using fuzz::Require;
  const platform_host::CapturedLog log;
  const truststore_update_client::ContainerConnection connection(nullptr);
  std::string container = "from before";
  if (connection.ParseContainerDownloadResponse(container, std::string(data, data + size))) {
    Require(container.empty(), "a refused response leaves no container");
    Require(log.Lines().size() == 1, "a refusal is one line");
    return 0;
  }
  Require(log.Lines().empty(), "what is read is not told");
  Require(container.size() <= size, "a container is part of its response");
  domain::backend::proto::RUNACTTruststoreUpdateResponseTSCV1 response;
  response.set_trust_store_container(container);
  std::string again;
  Require(!connection.ParseContainerDownloadResponse(again, response.SerializeAsString()) &&
              again == container,
          "a container survives being sent again");
  return 0;
}
