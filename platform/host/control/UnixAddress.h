/// The address of a Unix socket, for who listens and for who connects. No state: any thread.
#ifndef PLATFORM_HOST_CONTROL_UNIXADDRESS_H
#define PLATFORM_HOST_CONTROL_UNIXADDRESS_H

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

#include "platform/host/config/HostKeys.h"

namespace platform_host {

static_assert(sizeof(sockaddr_un::sun_path) == kMaxSocketPathBytes + 1);

/// As bind(2) and connect(2) take it.
class UnixAddress {
 public:
  /// REQUIRES: `path` has at most kMaxSocketPathBytes.
  explicit UnixAddress(const std::string& path) {
    address.sun_family = AF_UNIX;
    path.copy(static_cast<char*>(address.sun_path), kMaxSocketPathBytes);
  }

  /// Lives as long as this object.
  [[nodiscard]] const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address); }
  /// Bytes of what Get gives; the path ends at its NUL byte.
  [[nodiscard]] static socklen_t Size() { return sizeof(sockaddr_un); }

 private:
  sockaddr_un address{};
};

}  // namespace platform_host

#endif
