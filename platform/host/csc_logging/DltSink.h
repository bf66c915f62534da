/// Log lines to the DLT daemon by libdlt, each under the context of its component. Any thread.
///
/// libdlt belongs to the whole process: it has two threads of its own, a pipe that the DLT daemon
/// answers through, and an exit handler. Nothing of that exists before OpenDltSink.
#ifndef PLATFORM_HOST_CSC_LOGGING_DLTSINK_H
#define PLATFORM_HOST_CSC_LOGGING_DLTSINK_H

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "platform/host/config/LogLevel.h"
#include "platform/host/config/Result.h"
#include "platform/host/csc_logging/LogSinks.h"

namespace platform_host {

/// Bytes of the longest text: what libdlt's message of 1,390 bytes leaves beside the kind and the
/// length of its one argument, and the NUL byte behind it.
inline constexpr std::size_t kDltTextLimit = 1383;

/// How long the end of the process waits for a DLT daemon to take what the buffer holds.
inline constexpr std::chrono::milliseconds kDltFarewell{100};

/// The sink, which registers the application and every context at `level`. The first call of a
/// process decides: later ones return the same. Fails when libdlt cannot begin, as when the folder
/// for its pipe cannot be made, and where whoever plants a link in the folder of the DLT daemon's
/// pipe could have libdlt write to another file: anybody may write there, and neither is the folder
/// sticky nor does the kernel keep programs from following other people's links in such folders.
///
/// Its Write never waits for the DLT daemon. While there is none, or it does not read, libdlt keeps
/// what fits in its buffer. Lines after the process' exit handlers have begun go to standard error;
/// what the buffer still holds then is lost unless the daemon takes it within kDltFarewell.
[[nodiscard]] Result<std::shared_ptr<LogSink>> OpenDltSink(const std::string& applicationId,
                                                           LogLevel level);

}  // namespace platform_host

#endif
