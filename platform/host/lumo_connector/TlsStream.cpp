#include "platform/host/lumo_connector/TlsStream.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>

#include <array>
#include <cerrno>
#include <new>
#include <utility>

#include "platform/host/lumo_connector/TlsReason.h"

namespace platform_host {
namespace {

using Outcome = StreamStep::Outcome;

bool IsAddress(const std::string& host) {
  std::array<unsigned char, sizeof(in6_addr)> bytes{};
  return ::inet_pton(AF_INET, host.c_str(), bytes.data()) == 1 ||
         ::inet_pton(AF_INET6, host.c_str(), bytes.data()) == 1;
}

/// A name without the dot that may end it; certificates and SNI have none (RFC 6066 section 3).
std::string WithoutFinalDot(std::string host) {
  if (!host.empty() && host.back() == '.') host.pop_back();
  return host;
}

bool ExpectAddress(X509_VERIFY_PARAM* expected, const std::string& address) {
  return ::X509_VERIFY_PARAM_set1_ip_asc(expected, address.c_str()) == 1;
}

/// The name is also what the peer is asked for (RFC 6066 section 3); an address must not be.
bool ExpectName(SSL* session, const std::string& name) {
  X509_VERIFY_PARAM* expected = ::SSL_get0_param(session);
  // RFC 9525 section 6.3: a whole label at most, and never the subject's Common Name.
  ::X509_VERIFY_PARAM_set_hostflags(
      expected, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
  // What SSL_set_tlsext_host_name stands for, without its cast.
  return ::X509_VERIFY_PARAM_set1_host(expected, name.data(), name.size()) == 1 &&
         ::SSL_ctrl(session, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                    const_cast<char*>(name.c_str())) == 1;
}

}  // namespace

void TlsStream::FreeSession::operator()(ssl_st* owned) const {
  ::SSL_free(owned);
}

TlsStream::TlsStream(support::UniqueFd peer, const TlsContext& context)
    : socket(std::move(peer)), state{socket.Get()}, session(::SSL_new(context.Get().get())) {
  if (!session) throw std::bad_alloc();
  BIO* bio = NewPeerBio(state);
  ::SSL_set_bio(session.get(), bio, bio);
}

/// Says goodbye, which no socket needs to have room for. Not after a failure: the library forbids
/// it.
TlsStream::~TlsStream() {
  // A second goodbye would read on, for that of the peer.
  state.allowance = 0;
  ::ERR_clear_error();
  if (isUsable) ::SSL_shutdown(session.get());
  ::ERR_clear_error();
}

Connected<std::unique_ptr<PeerStream>> TlsStream::Open(support::UniqueFd peer,
                                                       const std::string& host,
                                                       const TlsContext& context,
                                                       const ConnectWait& wait) {
  std::unique_ptr<TlsStream> stream(new TlsStream(std::move(peer), context));
  if (auto failure = stream->ExpectPeer(WithoutFinalDot(host))) return *failure;
  if (auto failure = stream->Handshake(context.AnchorFile(), wait)) return *failure;
  return std::unique_ptr<PeerStream>(std::move(stream));
}

/// An empty name would switch the check of it off; one that begins with a dot would stand for every
/// name that ends with it.
ConnectOutcome TlsStream::ExpectPeer(const std::string& host) {
  const bool isName = !host.empty() && host.front() != '.';
  const bool isSet =
      isName && (IsAddress(host) ? ExpectAddress(::SSL_get0_param(session.get()), host)
                                 : ExpectName(session.get(), host));
  ::ERR_clear_error();
  if (!isSet) return ConnectFailure{EINVAL, "no usable host name"};
  return std::nullopt;
}

ConnectOutcome TlsStream::Handshake(const std::string& anchorFile, const ConnectWait& wait) {
  for (;;) {
    ::ERR_clear_error();
    state.allowance = kReadAllowance;
    const int result = ::SSL_connect(session.get());
    const long verified = ::SSL_get_verify_result(session.get());
    if (result == 1 && verified == X509_V_OK) break;
    if (verified != X509_V_OK) {
      return ConnectFailure{EACCES, VerificationReason(verified, anchorFile)};
    }
    const StreamStep step = StepAfter(result);
    if (step.outcome != Outcome::kWait) return TlsFailure(state);
    if (auto failure = wait.Until(state.descriptor, step.events)) return failure;
  }
  // The library calls a peer without a certificate verified; the system's settings for it decide
  // whether there are ciphers that need none.
  if (::SSL_get0_peer_certificate(session.get()) == nullptr) {
    return ConnectFailure{EACCES, "it has no certificate"};
  }
  isUsable = true;
  return std::nullopt;
}

StreamStep TlsStream::StepAfter(int result) {
  switch (::SSL_get_error(session.get(), result)) {
    case SSL_ERROR_WANT_READ:
      return {Outcome::kWait, 0, POLLIN, ""};
    case SSL_ERROR_WANT_WRITE:
      return {Outcome::kWait, 0, POLLOUT, ""};
    case SSL_ERROR_ZERO_RETURN:
      return {Outcome::kEnd, 0, 0, ""};
    default:
      break;
  }
  isUsable = false;
  const bool isSocket = ::ERR_peek_error() == 0;
  if (state.ended && isSocket) return {Outcome::kEnd, 0, 0, ""};
  return {isSocket ? Outcome::kBroken : Outcome::kRefused, 0, 0, TlsFailure(state).reason};
}

/// As many records as there are and as have room, so that who relays them does so in large pieces.
StreamStep TlsStream::Read(char* buffer, std::size_t size) {
  holdsBytes = false;
  if (last) return *last;
  StreamStep moved{Outcome::kMoved, 0, 0, ""};
  state.allowance = kReadAllowance;
  while (moved.bytes < size) {
    std::size_t count = 0;
    ::ERR_clear_error();
    const int result =
        ::SSL_read_ex(session.get(), buffer + moved.bytes, size - moved.bytes, &count);
    if (result != 1) {
      StreamStep step = StepAfter(result);
      if (moved.bytes == 0) return step;
      moved.events = step.events;
      // The library tells a failure once.
      if (step.outcome != Outcome::kWait) last = std::move(step);
      break;
    }
    moved.bytes += count;
  }
  holdsBytes = moved.bytes == size || last.has_value();
  return moved;
}

StreamStep TlsStream::Write(const char* bytes, std::size_t size) {
  std::size_t count = 0;
  ::ERR_clear_error();
  const int result = ::SSL_write_ex(session.get(), bytes, size, &count);
  if (result == 1) return {Outcome::kMoved, count, 0, ""};
  StreamStep step = StepAfter(result);
  if (step.outcome == Outcome::kEnd) return {Outcome::kBroken, 0, 0, "it closed the connection"};
  return step;
}

void TlsStream::EndWriting() {
  ::ERR_clear_error();
  if (isUsable) ::SSL_shutdown(session.get());
  ::ERR_clear_error();
}

}  // namespace platform_host
