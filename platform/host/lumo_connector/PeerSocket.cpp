#include "platform/host/lumo_connector/PeerSocket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <memory>
#include <utility>

namespace platform_host {
namespace {

struct FreeAddresses {
  void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

ConnectFailure ResolverFailure(int error, int systemError) {
  if (error == EAI_MEMORY) return ConnectFailure::OfErrno(ENOMEM);
  const std::string text =
      error == EAI_SYSTEM ? support::ErrorText(systemError) : ::gai_strerror(error);
  return {EHOSTUNREACH, "the name cannot be resolved: " + text};
}

Connected<Addresses> Resolve(const std::string& host, std::uint16_t port) {
  // A NUL byte would make the resolver look for another name than the one that TLS verifies.
  if (host.empty() || host.find('\0') != std::string::npos) {
    return ConnectFailure{EINVAL, "no usable host name"};
  }
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* list = nullptr;
  const int error = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &list);
  if (error != 0) return ResolverFailure(error, errno);
  return Addresses(list);
}

std::string NumericAddress(const addrinfo& address) {
  std::array<char, NI_MAXHOST> host{};
  std::array<char, NI_MAXSERV> port{};
  if (::getnameinfo(address.ai_addr, address.ai_addrlen, host.data(), host.size(), port.data(),
                    port.size(), NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return "";
  }
  const std::string text = host.data();
  return (address.ai_family == AF_INET6 ? "[" + text + "]" : text) + ":" + port.data();
}

/// Waits for the end of a connect under way.
ConnectOutcome Finish(int descriptor, const ConnectWait& wait) {
  if (auto failure = wait.Until(descriptor, POLLOUT)) return failure;
  int error = 0;
  socklen_t size = sizeof error;
  if (::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
  return error == 0 ? ConnectOutcome() : ConnectFailure::OfErrno(error);
}

Connected<PeerSocket> ConnectToAddress(const addrinfo& address, const ConnectWait& wait) {
  PeerSocket peer{
      support::UniqueFd(::socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      NumericAddress(address)};
  const int descriptor = peer.descriptor.Get();
  if (descriptor < 0) return ConnectFailure::OfErrno(errno);
  // A request is one write: nothing is gained by waiting for more of it.
  const int on = 1;
  ::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (::connect(descriptor, address.ai_addr, address.ai_addrlen) != 0) {
    if (errno != EINPROGRESS) return ConnectFailure::OfErrno(errno);
    if (auto failure = Finish(descriptor, wait)) return *failure;
  }
  return peer;
}

/// An address that does not answer must not use up the time of those behind it.
ConnectWait WaitFor(const addrinfo& address, const ConnectWait& wait) {
  return address.ai_next == nullptr ? wait : wait.Part(0.5, kAddressPatience);
}

}  // namespace

Connected<PeerSocket> ConnectTo(const std::string& host, std::uint16_t port,
                                const ConnectWait& wait) {
  const auto resolved = Resolve(host, port);
  if (const auto* failure = std::get_if<ConnectFailure>(&resolved)) return *failure;
  ConnectFailure last{EHOSTUNREACH, "the name has no address"};
  const auto* list = std::get<Addresses>(resolved).get();
  for (const addrinfo* address = list; address != nullptr; address = address->ai_next) {
    if (auto ended = wait.Check()) return *ended;
    auto peer = ConnectToAddress(*address, WaitFor(*address, wait));
    if (std::holds_alternative<PeerSocket>(peer)) return peer;
    last = std::get<ConnectFailure>(std::move(peer));
  }
  return last;
}

}  // namespace platform_host
