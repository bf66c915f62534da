/// What went wrong with a peer's TLS, in words for the person who has to put it right. For
/// TlsStream. Reads the TLS library's errors of the calling thread; otherwise pure.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_TLSREASON_H
#define PLATFORM_HOST_LUMO_CONNECTOR_TLSREASON_H

#include <string>

#include "platform/host/lumo_connector/ConnectFailure.h"
#include "platform/host/lumo_connector/PeerBio.h"

namespace platform_host {

/// Why the verification of a peer's certificate ended with `verifyResult`, a number of the library
/// other than success. `anchorFile` is what it was verified against.
[[nodiscard]] std::string VerificationReason(long verifyResult, const std::string& anchorFile);

/// Why the library's operation that just failed on this thread did so. EACCES when the peer refused
/// the unit's certificate, or the lack of one; a socket's own errno; EPROTO otherwise.
[[nodiscard]] ConnectFailure TlsFailure(const PeerBioState& state);

}  // namespace platform_host

#endif
