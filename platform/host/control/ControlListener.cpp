#include "platform/host/control/ControlListener.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/host/control/UnixAddress.h"

namespace platform_host {
namespace {

constexpr mode_t kMode = 0600;

/// What connecting to `path` gives, 0 or an errno: ECONNREFUSED when nobody listens there.
int TryToConnect(const std::string& path) {
  const support::UniqueFd client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const UnixAddress address(path);
  if (!client.IsOpen()) return errno;
  return ::connect(client.Get(), address.Get(), UnixAddress::Size()) == 0 ? 0 : errno;
}

/// Removes what a killed process has left. Returns 0 or an errno.
int RemoveStaleSocket(const std::string& path) {
  struct stat found {};
  if (::lstat(path.c_str(), &found) != 0) return errno == ENOENT ? 0 : errno;
  if (!S_ISSOCK(found.st_mode)) return EEXIST;
  const int error = TryToConnect(path);
  if (error == 0 || error == EAGAIN) return EADDRINUSE;
  // Above all another kind of socket: whose, nobody knows.
  if (error != ECONNREFUSED && error != ENOENT) return error;
  return ::unlink(path.c_str()) == 0 || errno == ENOENT ? 0 : errno;
}

}  // namespace

Result<std::unique_ptr<ControlListener>> ControlListener::Open(const std::string& path) {
  if (path.size() > kMaxSocketPathBytes) return Error::OfErrno(ENAMETOOLONG).WithContext(path);
  std::unique_ptr<ControlListener> listener(new ControlListener(path));
  int error = RemoveStaleSocket(path);
  if (error == 0) error = listener->Listen();
  if (error != 0) return Error::OfErrno(error).WithContext(path);
  return listener;
}

bool ControlListener::IsServed(const std::string& path) {
  if (path.size() > kMaxSocketPathBytes) return false;
  const int error = TryToConnect(path);
  return error == 0 || error == EAGAIN;
}

int ControlListener::Listen() {
  socket = support::UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const UnixAddress address(path);
  // The mode that bind gives to the path is this one, less the umask; then less nothing. Nobody can
  // connect before listen.
  if (!socket.IsOpen() || ::fchmod(socket.Get(), kMode) != 0 ||
      ::bind(socket.Get(), address.Get(), UnixAddress::Size()) != 0) {
    return errno;
  }
  struct stat made {};
  if (::lstat(path.c_str(), &made) != 0) return errno;
  device = made.st_dev;
  node = made.st_ino;
  if (::chmod(path.c_str(), kMode) != 0) return errno;
  return ::listen(socket.Get(), kBacklog) == 0 ? 0 : errno;
}

ControlListener::~ControlListener() {
  if (IsSocketInPlace()) ::unlink(path.c_str());
}

support::UniqueFd ControlListener::Accept() const {
  return support::UniqueFd(::accept4(socket.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

bool ControlListener::IsSocketInPlace() const {
  struct stat found {};
  return node != 0 && ::lstat(path.c_str(), &found) == 0 && S_ISSOCK(found.st_mode) &&
         found.st_dev == device && found.st_ino == node;
}

}  // namespace platform_host
