#include "platform/host/lumo_connector/BrokerThread.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <exception>
#include <system_error>
#include <utility>

#include "platform/host/lumo_connector/ConnectorLog.h"
#include "support/WorkerThread.h"

namespace lumo_connector {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

/// After a turn that failed: shorter than the session's own pause.
constexpr milliseconds kPauseAfterFailure{1000};

/// After a turn that could not even fail in order, for lack of memory.
constexpr milliseconds kLastResortPause{60000};

/// Rounded up, so that what is due at that time is due when the wait is over.
int MillisecondsUntil(BrokerSession::TimePoint time) {
  const auto left = std::chrono::ceil<milliseconds>(time - steady_clock::now());
  return static_cast<int>(std::clamp(left, milliseconds(0), milliseconds(60000)).count());
}

}  // namespace

BrokerThread::BrokerThread() : wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!wake.IsOpen()) throw std::system_error(errno, std::generic_category(), "eventfd");
}

BrokerThread::~BrokerThread() {
  Stop();
  if (thread.joinable()) thread.join();
}

void BrokerThread::Start(std::unique_ptr<BrokerSession> brokerSession) {
  {
    const support::MutexLock lock(mutex);
    if (stopping) return;
    running = true;
  }
  session = std::move(brokerSession);
  try {
    thread = support::StartThread("LumoMqtt", [this] { Run(); });
  } catch (...) {
    session.reset();
    const support::MutexLock lock(mutex);
    running = false;
    changed.NotifyAll();
    throw;
  }
}

void BrokerThread::Wake() noexcept {
  const std::uint64_t one = 1;
  // Fails only when nobody has taken 2^64 - 2 wakes; the thread is awake then.
  if (::write(wake.Get(), &one, sizeof one) < 0) return;
}

void BrokerThread::Stop() {
  const support::MutexLock lock(mutex);
  stopping = true;
  Wake();
  while (running) changed.Wait(mutex);
}

void BrokerThread::Run() noexcept {
  try {
    KeepSession();
    session->End();
  } catch (const std::exception& error) {
    LogError("the session with the broker ended: ", error.what());
  } catch (...) {
    LogError("the session with the broker ended: an exception of an unknown kind");
  }
  session.reset();
  const support::MutexLock lock(mutex);
  running = false;
  changed.NotifyAll();
}

void BrokerThread::KeepSession() {
  short events = 0;
  while (!IsStopping()) {
    const auto wait = TurnSafely(events);
    if (!wait) return;
    events = WaitFor(*wait);
  }
}

std::optional<BrokerSession::Wait> BrokerThread::TurnSafely(short events) {
  try {
    return session->Turn(events, steady_clock::now());
  } catch (const std::exception& error) {
    return FailSafely(error.what());
  } catch (...) {
    return FailSafely("an exception of an unknown kind");
  }
}

BrokerSession::Wait BrokerThread::FailSafely(const char* reason) {
  const auto now = steady_clock::now();
  try {
    session->Fail(reason, now);
    return {{-1, 0}, now + kPauseAfterFailure};
  } catch (const std::exception&) {
    // The next turn finds the connection as it is.
    return {{-1, 0}, now + kLastResortPause};
  }
}

short BrokerThread::WaitFor(const BrokerSession::Wait& wait) const {
  pollfd descriptors[] = {{wake.Get(), POLLIN, 0},
                          {wait.interest.descriptor, wait.interest.events, 0}};
  const int timeout = wait.interest.hasInput ? 0 : MillisecondsUntil(wait.until);
  if (::poll(descriptors, 2, timeout) < 0) return 0;
  std::uint64_t wakes = 0;
  // Empty when the wait ended for another reason.
  if (::read(wake.Get(), &wakes, sizeof wakes) < 0) wakes = 0;
  return wait.interest.hasInput ? static_cast<short>(descriptors[1].revents | POLLIN)
                                : descriptors[1].revents;
}

bool BrokerThread::IsStopping() {
  const support::MutexLock lock(mutex);
  return stopping;
}

}  // namespace lumo_connector
