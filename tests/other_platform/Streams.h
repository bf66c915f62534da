/// The connector's streams: each operation of the backend is a Unix socket of its name.
#ifndef TESTS_OTHER_PLATFORM_STREAMS_H
#define TESTS_OTHER_PLATFORM_STREAMS_H

#include <string>
#include <vector>

#include "lumo_connector/LumoTypes.h"
#include "support/Mutex.h"
#include "support/UniqueFd.h"

namespace other_platform {

/// Any thread. A connector over a network has to bound what a peer may take, in bytes and in time
/// from the first packet to the last, and to verify who it is: see docs/integrate.md. These peers
/// are on this machine and known.
class Streams {
 public:
  Streams() = default;
  Streams(const Streams&) = delete;
  Streams& operator=(const Streams&) = delete;

  /// A stream to the peer of an operation. ECANCELED after Stop, else what the system says.
  [[nodiscard]] lumo_connector::LumoSocketResult Connect(const std::string& operationTypeId)
      EXCLUDES(mutex);

  /// Ends every stream; none begins any more.
  void Stop() EXCLUDES(mutex);

 private:
  void ForgetEnded() REQUIRES(mutex);

  support::Mutex mutex;
  /// The client owns its descriptors: these are further ones for the same streams.
  std::vector<support::UniqueFd> open GUARDED_BY(mutex);
  bool stopped GUARDED_BY(mutex) = false;
};

}  // namespace other_platform

#endif
