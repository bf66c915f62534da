#include "platform/host/ara_exec/ServiceManager.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "support/UniqueFd.h"

namespace platform_host {
namespace {

// False for what is no address of a Unix socket. The NUL byte behind a path does not count; the
// one in front of an abstract name does.
bool ReadAddress(std::string_view name, sockaddr_un& address, socklen_t& size) {
  const bool isAbstract = !name.empty() && name.front() == '@';
  const bool isPath = !name.empty() && name.front() == '/';
  if ((!isAbstract && !isPath) || name.size() >= sizeof address.sun_path) return false;
  address.sun_family = AF_UNIX;
  name.copy(static_cast<char*>(address.sun_path), name.size());
  if (isAbstract) address.sun_path[0] = '\0';
  size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
  return true;
}

}  // namespace

int NotifyServiceManager(const char* notification) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the client never changes its environment
  const char* const name = std::getenv("NOTIFY_SOCKET");
  if (name == nullptr) return 0;
  sockaddr_un address{};
  socklen_t size = 0;
  if (!ReadAddress(name, address, size)) return EINVAL;

  const support::UniqueFd sender(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!sender.IsOpen()) return errno;
  const timeval patience{kServiceManagerPatience.count(), 0};
  if (::setsockopt(sender.Get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience) != 0) {
    return errno;
  }
  for (;;) {
    const auto sent = ::sendto(sender.Get(), notification, std::strlen(notification), MSG_NOSIGNAL,
                               reinterpret_cast<const sockaddr*>(&address), size);
    if (sent >= 0) return 0;
    if (errno != EINTR) return errno;
  }
}

}  // namespace platform_host
