#include "platform/host/lumo_connector/PlainStream.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "support/FileContents.h"

namespace platform_host {
namespace {

using Outcome = StreamStep::Outcome;

StreamStep StepOf(ssize_t count, short events) {
  if (count > 0) return {Outcome::kMoved, static_cast<std::size_t>(count), 0, ""};
  if (count == 0) return {Outcome::kEnd, 0, 0, ""};
  if (errno == EAGAIN || errno == EINTR) return {Outcome::kWait, 0, events, ""};
  return {Outcome::kBroken, 0, 0, support::ErrorText(errno)};
}

}  // namespace

PlainStream::PlainStream(support::UniqueFd peer) : socket(std::move(peer)) {}

StreamStep PlainStream::Read(char* buffer, std::size_t size) {
  return StepOf(::recv(socket.Get(), buffer, size, MSG_DONTWAIT), POLLIN);
}

StreamStep PlainStream::Write(const char* bytes, std::size_t size) {
  return StepOf(::send(socket.Get(), bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL), POLLOUT);
}

void PlainStream::EndWriting() {
  ::shutdown(socket.Get(), SHUT_WR);
}

}  // namespace platform_host
