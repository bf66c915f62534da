#include "platform/host/lumo_connector/Relay.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <new>
#include <string>
#include <system_error>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "platform/host/lumo_connector/WorkerThread.h"

namespace platform_host {
namespace {

using csc_logging::CSCLogging;
using std::chrono::milliseconds;

/// Of one exchange in a round: the client's descriptor, the peer's.
constexpr std::size_t kDescriptorsEach = 2;

/// Waiting for more than this in one go is of no use.
constexpr milliseconds kLongestWait{std::chrono::hours(1)};

/// A descriptor that needs nothing is left out: its errors would end the wait again and again.
pollfd WaitForPeer(const RelayedExchange& exchange, short events) {
  return {events == 0 ? -1 : exchange.PeerDescriptor(), events, 0};
}

std::vector<pollfd> WaitsOf(const std::vector<std::unique_ptr<RelayedExchange>>& served, int wake) {
  std::vector<pollfd> waits{{wake, POLLIN, 0}};
  waits.reserve(1 + kDescriptorsEach * served.size());
  for (const auto& exchange : served) {
    const auto needs = exchange->NeedsNow();
    waits.push_back({exchange->ClientDescriptor(), needs.client, 0});
    waits.push_back(WaitForPeer(*exchange, needs.peer));
  }
  return waits;
}

milliseconds TimeToWait(const std::vector<std::unique_ptr<RelayedExchange>>& served,
                        RelayedExchange::TimePoint now) {
  milliseconds wait = kLongestWait;
  for (const auto& exchange : served) {
    if (exchange->HasMore()) return milliseconds(0);
    wait = std::min(wait, std::chrono::ceil<milliseconds>(exchange->NextCheck() - now));
  }
  return std::max(wait, milliseconds(0));
}

constexpr const char* kOutOfMemory = "libLumoConnectorShared: exchange ended: out of memory";

/// Memory that runs out ends the exchange that wanted it, and no other.
void Serve(RelayedExchange& exchange, RelayBuffer& buffer, RelayedExchange::TimePoint now) {
  try {
    exchange.Serve(buffer, now);
  } catch (const std::bad_alloc&) {
    exchange.Abandon();
    CSCLogging::LogError(kOutOfMemory);
  }
}

}  // namespace

Relay::Relay(SteadyClock now)
    : clock(std::move(now)), wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Relay::~Relay() {
  Stop();
  if (thread.joinable()) thread.join();
}

ConnectOutcome Relay::Add(std::unique_ptr<RelayedExchange> exchange) {
  {
    const support::MutexLock lock(mutex);
    if (stopping) return ConnectFailure{ECANCELED, "stopped"};
    if (!wake.IsOpen()) return ConnectFailure::OfErrno(EMFILE);
    try {
      if (!running) StartThread();
    } catch (const std::system_error& error) {
      return ConnectFailure{EAGAIN, std::string("no thread: ") + error.what()};
    }
    added.push_back(std::move(exchange));
  }
  Wake();
  return std::nullopt;
}

void Relay::StartThread() {
  thread = lumo_connector::StartThread(
      "LumoRelay", [this, buffer = std::make_unique<RelayBuffer>()] { Run(*buffer); });
  running = true;
}

void Relay::Stop() {
  {
    const support::MutexLock lock(mutex);
    stopping = true;
  }
  Wake();
  const support::MutexLock lock(mutex);
  while (running) changed.Wait(mutex);
}

void Relay::Wake() const {
  // Only a full counter refuses it, and that wakes as well.
  ::eventfd_write(wake.Get(), 1);
}

void Relay::Run(RelayBuffer& buffer) noexcept {
  for (bool isOn = true; isOn;) {
    Served served;
    try {
      while ((isOn = TakeAdded(served))) ServeRound(served, buffer);
    } catch (const std::exception&) {
      CSCLogging::LogError("libLumoConnectorShared: all exchanges ended: out of memory");
    }
  }
  const support::MutexLock lock(mutex);
  running = false;
  changed.NotifyAll();
}

bool Relay::TakeAdded(Served& served) {
  const support::MutexLock lock(mutex);
  if (stopping) {
    added.clear();
    return false;
  }
  Served fresh;
  fresh.swap(added);
  served.reserve(served.size() + fresh.size());
  for (auto& exchange : fresh) served.push_back(std::move(exchange));
  return true;
}

void Relay::ServeRound(Served& served, RelayBuffer& buffer) const {
  auto waits = WaitsOf(served, wake.Get());
  const auto wait = TimeToWait(served, clock());
  ::poll(waits.data(), waits.size(), static_cast<int>(wait.count()));
  eventfd_t count = 0;
  if (waits[0].revents != 0) ::eventfd_read(wake.Get(), &count);
  const auto now = clock();
  for (std::size_t index = 0; index < served.size(); ++index) {
    RelayedExchange& exchange = *served[index];
    const short client = waits[1 + kDescriptorsEach * index].revents;
    const short peer = waits[2 + kDescriptorsEach * index].revents;
    if ((client & (POLLHUP | POLLERR)) != 0) exchange.Abandon();
    const bool isDue = exchange.HasMore() || now >= exchange.NextCheck();
    if (!exchange.IsFinished() && (client != 0 || peer != 0 || isDue)) {
      Serve(exchange, buffer, now);
    }
  }
  served.erase(std::remove_if(served.begin(), served.end(),
                              [](const auto& exchange) { return exchange->IsFinished(); }),
               served.end());
}

}  // namespace platform_host
