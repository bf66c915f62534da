/// A responder that is asked about revocation as a unit asks: the client's own connection, over the
/// host platform's streams with their limits and TLS. For `tsc verify`. No state; any thread.
#ifndef TOOLS_TSC_OCSPRESPONDER_H
#define TOOLS_TSC_OCSPRESPONDER_H

#include <string>

#include "TruststoreUpdateClient/HSM.h"
#include "platform/host/config/HostConfig.h"
#include "platform/host/config/Result.h"
#include "platform/host/lumo_connector/ConnectFailure.h"

namespace tsc {

/// The responder at `url`, by the rules of a unit's configuration. `caFile` names certificates that
/// an https responder is verified against; empty: none. Fails with the option and the reason: a URL
/// that a unit's configuration cannot hold, https without a file, a file without https. Touches no
/// file.
[[nodiscard]] platform_host::Result<platform_host::ServiceConfig> ResponderAt(
    const std::string& url, const std::string& caFile);

/// Why nothing can be verified against the file of `responder`: EINVAL when there is no certificate
/// in it, else it cannot be read; the text names it. None when something can, or when it is not
/// needed. Blocks for the reading.
[[nodiscard]] platform_host::ConnectOutcome TrustFailure(
    const platform_host::ServiceConfig& responder);

/// Has `collaborators` ask `responder` about every certificate, and judge its answers by their own
/// clock. The process ignores SIGPIPE while it is asked.
void AskResponder(const platform_host::ServiceConfig& responder,
                  truststore_update_client::HSM::Collaborators& collaborators);

}  // namespace tsc

#endif
