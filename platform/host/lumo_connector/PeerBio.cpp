#include "platform/host/lumo_connector/PeerBio.h"

#include <openssl/bio.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace platform_host {
namespace {

PeerBioState& StateOf(BIO* bio) {
  return *static_cast<PeerBioState*>(::BIO_get_data(bio));
}

/// Returns 1 when bytes were moved, 0 otherwise, as the library wants it.
int Finish(BIO* bio, ssize_t count, int retryFlag, std::size_t* moved) {
  PeerBioState& state = StateOf(bio);
  *moved = count > 0 ? static_cast<std::size_t>(count) : 0;
  state.ended = count == 0;
  state.error = count < 0 ? errno : 0;
  if (count > 0) return 1;
  if (state.error == EAGAIN || state.error == EINTR) {
    ::BIO_set_flags(bio, retryFlag | BIO_FLAGS_SHOULD_RETRY);
  }
  return 0;
}

int Write(BIO* bio, const char* bytes, std::size_t size, std::size_t* moved) {
  ::BIO_clear_flags(bio, BIO_FLAGS_RWS | BIO_FLAGS_SHOULD_RETRY);
  const ssize_t count = ::send(StateOf(bio).descriptor, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
  return Finish(bio, count, BIO_FLAGS_WRITE, moved);
}

int Read(BIO* bio, char* buffer, std::size_t size, std::size_t* moved) {
  ::BIO_clear_flags(bio, BIO_FLAGS_RWS | BIO_FLAGS_SHOULD_RETRY);
  PeerBioState& state = StateOf(bio);
  ssize_t count = -1;
  if (state.allowance == 0) {
    errno = EAGAIN;
  } else {
    count = ::recv(state.descriptor, buffer, size, MSG_DONTWAIT);
  }
  if (count > 0) state.allowance -= std::min(state.allowance, static_cast<std::size_t>(count));
  return Finish(bio, count, BIO_FLAGS_READ, moved);
}

long Control(BIO* /*bio*/, int command, long /*number*/, void* /*data*/) {
  return command == BIO_CTRL_FLUSH ? 1 : 0;
}

BIO_METHOD* NewMethod() {
  BIO_METHOD* method = ::BIO_meth_new(::BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "peer");
  if (method == nullptr) throw std::bad_alloc();
  ::BIO_meth_set_write_ex(method, Write);
  ::BIO_meth_set_read_ex(method, Read);
  ::BIO_meth_set_ctrl(method, Control);
  return method;
}

}  // namespace

bio_st* NewPeerBio(PeerBioState& state) {
  // Never freed: streams may live until the very end of the process.
  static BIO_METHOD* const method = NewMethod();
  BIO* bio = ::BIO_new(method);
  if (bio == nullptr) throw std::bad_alloc();
  ::BIO_set_data(bio, &state);
  ::BIO_set_init(bio, 1);
  return bio;
}

}  // namespace platform_host
