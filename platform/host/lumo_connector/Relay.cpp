#include "platform/host/lumo_connector/Relay.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <new>
#include <string>
#include <system_error>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "support/WorkerThread.h"

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

}  // namespace

/// The waits have room for all of `served` from the moment these are taken over.
struct Relay::Work {
  std::vector<std::unique_ptr<RelayedExchange>> served;
  std::vector<pollfd> waits = std::vector<pollfd>(1);  ///< the eventfd's, then those of `served`
  RelayBuffer buffer;
};

namespace {

/// REQUIRES: `waits` has room.
void CollectWaits(const std::vector<std::unique_ptr<RelayedExchange>>& served, int wake,
                  std::vector<pollfd>& waits) {
  waits.clear();
  waits.push_back({wake, POLLIN, 0});
  for (const auto& exchange : served) {
    const auto needs = exchange->NeedsNow();
    waits.push_back({exchange->ClientDescriptor(), needs.client, 0});
    waits.push_back(WaitForPeer(*exchange, needs.peer));
  }
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
  thread =
      support::StartThread("LumoRelay", [this, work = std::make_unique<Work>()] { Run(*work); });
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

void Relay::Run(Work& work) noexcept {
  for (bool isOn = true; isOn;) {
    try {
      isOn = TakeAdded(work);
    } catch (const std::bad_alloc&) {
      CSCLogging::LogError(kOutOfMemory);
    }
    if (isOn) ServeRound(work);
  }
  work.served.clear();
  const support::MutexLock lock(mutex);
  running = false;
  changed.NotifyAll();
}

bool Relay::TakeAdded(Work& work) {
  Added fresh;
  {
    const support::MutexLock lock(mutex);
    fresh.swap(added);
    if (stopping) return false;
  }
  const std::size_t count = work.served.size() + fresh.size();
  work.waits.reserve(1 + kDescriptorsEach * count);
  work.served.reserve(count);
  for (auto& exchange : fresh) work.served.push_back(std::move(exchange));
  return true;
}

void Relay::ServeRound(Work& work) const {
  CollectWaits(work.served, wake.Get(), work.waits);
  const auto wait = TimeToWait(work.served, clock());
  ::poll(work.waits.data(), work.waits.size(), static_cast<int>(wait.count()));
  eventfd_t count = 0;
  if (work.waits[0].revents != 0) ::eventfd_read(wake.Get(), &count);
  const auto now = clock();
  for (std::size_t index = 0; index < work.served.size(); ++index) {
    RelayedExchange& exchange = *work.served[index];
    const short client = work.waits[1 + kDescriptorsEach * index].revents;
    const short peer = work.waits[2 + kDescriptorsEach * index].revents;
    if ((client & (POLLHUP | POLLERR)) != 0) exchange.Abandon();
    const bool isDue = exchange.HasMore() || now >= exchange.NextCheck();
    if (!exchange.IsFinished() && (client != 0 || peer != 0 || isDue)) {
      Serve(exchange, work.buffer, now);
    }
  }
  work.served.erase(std::remove_if(work.served.begin(), work.served.end(),
                                   [](const auto& exchange) { return exchange->IsFinished(); }),
                    work.served.end());
}

}  // namespace platform_host
