#include "platform/host/lumo_connector/Exchanges.h"

#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cerrno>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "platform/host/lumo_connector/GuardRails.h"
#include "platform/host/lumo_connector/PeerSocket.h"
#include "platform/host/lumo_connector/PlainStream.h"
#include "platform/host/lumo_connector/RelayedExchange.h"
#include "platform/host/lumo_connector/TlsContext.h"
#include "platform/host/lumo_connector/TlsStream.h"

namespace platform_host {
namespace {

using lumo_connector::LumoSocketResult;

constexpr const char* kPrefix = "libLumoConnectorShared: ";

/// Room for the answer on its way to the client: a client that reads in small pieces lets the relay
/// sleep meanwhile. The system may grant less.
constexpr int kClientBuffer = 1048576;

LumoSocketResult FailureOf(int status, std::string text) {
  LumoSocketResult result;
  result.status = status;
  result.text = std::move(text);
  return result;
}

/// The two ends of the client's stream: the client's, ours.
using Ends = std::pair<support::UniqueFd, support::UniqueFd>;

Connected<Ends> MakeEnds() {
  int descriptors[2] = {-1, -1};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, descriptors) != 0) {
    return ConnectFailure::OfErrno(errno);
  }
  Ends ends{support::UniqueFd(descriptors[0]), support::UniqueFd(descriptors[1])};
  ::setsockopt(ends.second.Get(), SOL_SOCKET, SO_SNDBUF, &kClientBuffer, sizeof kClientBuffer);
  return ends;
}

using Stream = std::unique_ptr<PeerStream>;

}  // namespace

/// What Connect was asked for, for those below.
struct Exchanges::Request {
  const HostConfig& config;
  const std::string& operation;
  const std::string& host;
  std::uint16_t port;

  [[nodiscard]] std::string Label() const {
    return host + ":" + std::to_string(port) + " for " + operation;
  }

  /// Null when the operation has no address.
  [[nodiscard]] const ServiceConfig* Service() const {
    const auto found = config.services.find(operation);
    return found == config.services.end() || found->second.url.empty() ? nullptr : &found->second;
  }
};

namespace {

/// A stream to the peer, whose numeric address is then in `address`.
Connected<Stream> OpenStream(const HostConfig& config, const ServiceConfig& service,
                             const std::string& host, std::uint16_t port, const ConnectWait& wait,
                             std::string& address) {
  std::optional<TlsContext> tls;
  if (service.IsTls()) {
    auto loaded = TlsContext::Load(config, service);
    if (auto* failure = std::get_if<ConnectFailure>(&loaded)) return std::move(*failure);
    tls = std::get<TlsContext>(std::move(loaded));
  }
  auto connected = ConnectTo(host, port, wait);
  if (auto* failure = std::get_if<ConnectFailure>(&connected)) return std::move(*failure);
  auto& peer = std::get<PeerSocket>(connected);
  address = std::move(peer.address);
  if (!tls) return Stream(std::make_unique<PlainStream>(std::move(peer.descriptor)));
  return TlsStream::Open(std::move(peer.descriptor), host, *tls, wait);
}

}  // namespace

Exchanges::Exchanges() : Exchanges(&std::chrono::steady_clock::now) {}

Exchanges::Exchanges(SteadyClock now)
    : clock(now), stopped(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), relay(std::move(now)) {}

LumoSocketResult Exchanges::Connect(const HostConfig& config, const std::string& operationTypeId,
                                    const std::string& host, std::uint16_t port) noexcept {
  try {
    const Request request{config, operationTypeId, host, port};
    LumoSocketResult result = Open(request);
    if (result.status != 0) {
      csc_logging::CSCLogging::LogError(kPrefix + std::string("cannot connect to ") +
                                        request.Label() + ": " + result.text);
    }
    return result;
  } catch (const std::exception&) {
    csc_logging::CSCLogging::LogError("libLumoConnectorShared: cannot connect: out of memory");
    return FailureOf(ENOMEM, "");
  }
}

LumoSocketResult Exchanges::Open(const Request& request) {
  const auto begun = clock();
  const ServiceConfig* service = request.Service();
  if (service == nullptr) return FailureOf(ENOENT, "the operation is not configured");
  if (!stopped.IsOpen()) return FailureOf(EMFILE, support::ErrorText(EMFILE));
  const ExchangeLimits& limits = request.config.limits;
  const ConnectWait wait(clock, begun + limits.duration, stopped.Get());
  if (auto failure = wait.Check()) return FailureOf(failure->status, failure->reason);
  LumoSocketResult result;
  auto opened =
      OpenStream(request.config, *service, request.host, request.port, wait, result.peerAddress);
  if (auto* failure = std::get_if<ConnectFailure>(&opened)) {
    return FailureOf(failure->status, std::move(failure->reason));
  }
  auto made = MakeEnds();
  if (auto* failure = std::get_if<ConnectFailure>(&made)) {
    return FailureOf(failure->status, std::move(failure->reason));
  }
  auto& [clientEnd, ourEnd] = std::get<Ends>(made);
  auto failure = relay.Add(
      std::make_unique<RelayedExchange>(std::move(ourEnd), std::get<Stream>(std::move(opened)),
                                        request.Label(), GuardRails(limits, begun)));
  if (failure) return FailureOf(failure->status, std::move(failure->reason));
  result.descriptor = clientEnd.Release();
  return result;
}

void Exchanges::Stop() {
  ::eventfd_write(stopped.Get(), 1);
  relay.Stop();
}

}  // namespace platform_host
