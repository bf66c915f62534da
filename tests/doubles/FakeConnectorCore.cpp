#include "tests/doubles/FakeConnectorCore.h"

#include <sys/socket.h>

#include <cerrno>

namespace tests {
namespace {

/// The core of the FakeLumoConnector alive.
struct CurrentCore {
  static CurrentCore& OfProcess() {
    static CurrentCore current;
    return current;
  }

  support::Mutex mutex;
  std::shared_ptr<FakeConnectorCore> core GUARDED_BY(mutex);
};

}  // namespace

std::shared_ptr<FakeConnectorCore> FakeConnectorCore::Current() {
  CurrentCore& current = CurrentCore::OfProcess();
  const support::MutexLock lock(current.mutex);
  return current.core;
}

void FakeConnectorCore::SetCurrent(std::shared_ptr<FakeConnectorCore> core) {
  CurrentCore& current = CurrentCore::OfProcess();
  const support::MutexLock lock(current.mutex);
  current.core = std::move(core);
}

FakeConnectorCore::FakeConnectorCore()
    : callbacks(StartThread("FakeConnector", [this] { RunCallbacks(); })) {}

void FakeConnectorCore::Post(Event event) {
  const support::MutexLock lock(mutex);
  events.push_back(std::move(event));
  ++posted;
  changed.NotifyAll();
}

void FakeConnectorCore::WaitForCallbacks() {
  const support::MutexLock lock(mutex);
  const unsigned awaited = posted;
  while (told < awaited && !ending) changed.Wait(mutex);
}

void FakeConnectorCore::PostConnectionState(std::uint8_t connectionState,
                                            lumo_connector::LumoServiceControllerCallbackIf* only) {
  Post([connectionState, only](const Listeners& listeners) {
    for (const auto& [type, service] : listeners.services) {
      if (only == nullptr || service == only)
        service->LumoSCConnectionState({type, connectionState});
    }
  });
}

lumo_connector::LumoSocketResult FakeConnectorCore::Connect() {
  const support::MutexLock lock(mutex);
  auto& plans = state.answers.connects;
  if (state.stopped) return {ECANCELED, -1, "", "stopped"};
  if (plans.empty()) return {ECONNREFUSED, -1, "", "nobody listens"};
  // The last one stays until there is another.
  if (plans.front().used && plans.size() > 1) plans.pop_front();
  plans.front().used = true;
  const ConnectPlan plan = plans.front();
  if (plan.status != 0) return {plan.status, -1, "", plan.text};
  int ends[2] = {-1, -1};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    return {errno, -1, "", "no socket"};
  state.peers.push_back(std::make_shared<ScriptedPeer>(support::UniqueFd(ends[1]), plan.script));
  return {0, ends[0], "", ""};
}

void FakeConnectorCore::WaitForPeers() {
  const auto peers = With([](const State& now) { return now.peers; });
  for (const auto& peer : peers) peer->WaitForEnd();
}

void FakeConnectorCore::Stop() {
  const support::MutexLock lock(mutex);
  state.listeners = {};
  state.stopped = true;
  state.status = lumo_connector::SessionStatus::kStopped;
  for (const auto& peer : state.peers) peer->Interrupt();
  while (telling) changed.Wait(mutex);
}

void FakeConnectorCore::End() {
  Stop();
  {
    const support::MutexLock lock(mutex);
    ending = true;
    changed.NotifyAll();
  }
  callbacks.join();
  WaitForPeers();
}

void FakeConnectorCore::RunCallbacks() {
  Event event;
  Listeners listeners;
  while (NextEvent(event, listeners)) {
    event(listeners);
    const support::MutexLock lock(mutex);
    telling = false;
    ++told;
    changed.NotifyAll();
  }
}

bool FakeConnectorCore::NextEvent(Event& event, Listeners& listeners) {
  const support::MutexLock lock(mutex);
  while (events.empty() && !ending) changed.Wait(mutex);
  if (ending) return false;
  event = std::move(events.front());
  events.pop_front();
  listeners = state.listeners;
  telling = true;
  return true;
}

}  // namespace tests
