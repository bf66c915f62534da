/// Reads what a container says, for people: signatures are not verified, and nothing is judged.
/// The text may come from anybody. No state; any thread.
#ifndef TOOLS_TSC_CONTAINERCONTENTS_H
#define TOOLS_TSC_CONTAINERCONTENTS_H

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/config/Result.h"
#include "tools/tsc/Certificates.h"

namespace tsc {

/// One bundle, in the order of the payload.
struct BundleContents {
  std::string name;  ///< raw JSON text: escapes stand as they were written
  std::vector<CertificateFacts> certificates;
};

/// What a container says. Texts of the header are empty where it lacks them.
struct ContainerContents {
  std::string algorithm;
  std::string timestamp;
  std::string id;
  std::size_t signatureBytes = 0;
  std::vector<CertificateFacts> chain;
  std::vector<BundleContents> bundles;
};

/// Takes `text` apart with the decoders that the client uses. The error names the part and the
/// field; a certificate that cannot be read is no error but a fact.
[[nodiscard]] platform_host::Result<ContainerContents> ReadContainer(const std::string& text);

/// The contents as one JSON object.
[[nodiscard]] nlohmann::ordered_json ToJson(const ContainerContents& contents);

}  // namespace tsc

#endif
