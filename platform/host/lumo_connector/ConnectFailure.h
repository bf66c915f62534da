/// Why a stream to a peer could not be opened. For Exchanges and what it is made of. Plain values.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_CONNECTFAILURE_H
#define PLATFORM_HOST_LUMO_CONNECTOR_CONNECTFAILURE_H

#include <optional>
#include <string>
#include <variant>

#include "support/FileContents.h"

namespace platform_host {

/// A status for the caller and a reason for the log.
struct ConnectFailure {
  int status;          ///< an errno
  std::string reason;  ///< in words, without a full stop

  /// The system's own text for the errno `number`.
  static ConnectFailure OfErrno(int number) { return {number, support::ErrorText(number)}; }
};

/// None: success.
using ConnectOutcome = std::optional<ConnectFailure>;

/// A value or why there is none.
template <typename T>
using Connected = std::variant<T, ConnectFailure>;

}  // namespace platform_host

#endif
