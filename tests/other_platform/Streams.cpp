#include "tests/other_platform/Streams.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>

#include "support/FileContents.h"
#include "tests/other_platform/Surroundings.h"

namespace other_platform {
namespace {

using lumo_connector::LumoSocketResult;

LumoSocketResult Failure(int error) {
  return {error, -1, "", support::ErrorText(error)};
}

// 0 and an address, or an errno.
int AddressOf(const std::string& path, sockaddr_un& address) {
  address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  std::copy(path.begin(), path.end(), address.sun_path);
  return 0;
}

// The peer has closed its end: nobody waits for anything in it.
bool HasEnded(const support::UniqueFd& stream) {
  pollfd state{stream.Get(), 0, 0};
  return ::poll(&state, 1, 0) > 0;
}

}  // namespace

LumoSocketResult Streams::Connect(const std::string& operationTypeId) {
  sockaddr_un address{};
  if (const int error = AddressOf(PeerOf(operationTypeId), address); error != 0) {
    return Failure(error);
  }
  // Not to wait for a peer that takes nobody: it would hold up Stop.
  support::UniqueFd stream(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const support::MutexLock lock(mutex);
  if (stopped) return Failure(ECANCELED);
  ForgetEnded();
  if (::connect(stream.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return Failure(errno);
  }
  ::fcntl(stream.Get(), F_SETFL, 0);
  support::UniqueFd further(::fcntl(stream.Get(), F_DUPFD_CLOEXEC, 0));
  if (further.Get() < 0) return Failure(errno);
  open.push_back(std::move(further));
  return {0, stream.Release(), "", ""};
}

void Streams::Stop() {
  const support::MutexLock lock(mutex);
  stopped = true;
  for (const support::UniqueFd& stream : open) ::shutdown(stream.Get(), SHUT_RDWR);
  open.clear();
}

void Streams::ForgetEnded() {
  open.erase(std::remove_if(open.begin(), open.end(), HasEnded), open.end());
}

}  // namespace other_platform
