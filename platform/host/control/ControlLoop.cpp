#include "platform/host/control/ControlLoop.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <new>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "csc_logging/CSCSubLogger.h"
#include "support/FileContents.h"

namespace platform_host {
namespace {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// The waits of a round: the event, the lock, the listener, then the connections.
enum : std::size_t { kWake, kLock, kListener, kFirstConnection };
using Waits = std::array<pollfd, kFirstConnection + ControlLoop::kMaxConnections>;

CSCLogEntry Entry(std::string_view text) {
  static const auto* const logger = new csc_logging::CSCSubLogger("libhost_control");
  return logger->SubLog(text);
}

}  // namespace

ControlLoop::ControlLoop(std::string socketPath, ControlBoard& offers, RetryPlan plan)
    : path(std::move(socketPath)),
      board(offers),
      wake(std::make_shared<const WakeEvent>()),
      lock(path + ".lock"),
      lockAttempts(plan) {
  // No lack of memory can lose a client that is being served.
  connections.reserve(kMaxConnections);
}

std::optional<Error> ControlLoop::Open() {
  if (!wake->IsOpen()) return Error::OfErrno(EMFILE).WithContext(path);
  if (auto failure = ListenIfFree()) return failure;
  if (listener) return std::nullopt;
  CSCLogging::LogInfo(Entry("another process serves ") << path << "; this one waits for its end");
  lockAttempts.Begin(steady_clock::now());
  return std::nullopt;
}

std::optional<Error> ControlLoop::ListenIfFree() {
  const int error = lock.Acquire();
  if (error == EAGAIN) return std::nullopt;
  if (error != 0) return Error::OfErrno(error).WithContext(path + ".lock");
  if (ControlListener::IsServed(path)) return std::nullopt;
  auto opened = ControlListener::Open(path);
  if (!opened.Ok()) {
    lock.Release();
    return opened.Failure();
  }
  listener = std::move(opened).Take();
  return std::nullopt;
}

void ControlLoop::Stop() {
  isStopping = true;
  wake->Raise();
}

void ControlLoop::Run() noexcept {
  try {
    while (!isStopping) ServeRound();
  } catch (const std::exception& error) {
    CSCLogging::LogError(Entry("serves no more: ") << error.what());
  }
  for (const auto& connection : connections) connection->Finish();
  connections.clear();
  listener.reset();
  lock.Release();
}

void ControlLoop::ServeRound() {
  Waits waits{};
  waits[kWake] = {wake->Descriptor(), POLLIN, 0};
  waits[kLock] = {lock.Descriptor(), POLLIN, 0};
  waits[kListener] = {listener && !acceptAgain ? listener->Descriptor() : -1, POLLIN, 0};
  const std::size_t count = connections.size();
  for (std::size_t index = 0; index < count; ++index) {
    const ControlConnection& connection = *connections[index];
    waits[kFirstConnection + index] = {connection.Descriptor(), connection.NeedsNow(), 0};
  }
  ::poll(waits.data(), kFirstConnection + count, TimeToWait(steady_clock::now()));

  const auto now = steady_clock::now();
  if (waits[kWake].revents != 0) wake->Clear();
  if (waits[kLock].revents != 0) {
    lock.Clear();
    lockAttempts.Begin(now);
  }
  if (lockAttempts.IsDue(now)) TryToServe(now);
  for (std::size_t index = 0; index < count; ++index) {
    ServeClient(*connections[index], waits[kFirstConnection + index].revents);
  }
  DropFinished();
  if (acceptAgain && *acceptAgain <= now) acceptAgain.reset();
  if (waits[kListener].revents != 0) AcceptClients(now);
}

int ControlLoop::TimeToWait(TimePoint now) const {
  const bool isRequestThere =
      std::any_of(connections.begin(), connections.end(),
                  [](const auto& connection) { return connection->HasRequest(); });
  if (isRequestThere) return 0;
  std::optional<TimePoint> next = acceptAgain;
  if (const auto attempt = lockAttempts.Next()) next = next ? std::min(*next, *attempt) : attempt;
  if (!next) return -1;
  const auto wait = std::chrono::ceil<milliseconds>(*next - now);
  return static_cast<int>(std::max<milliseconds::rep>(wait.count(), 0));
}

void ControlLoop::TryToServe(TimePoint now) {
  const auto failure = ListenIfFree();
  if (listener) {
    lockAttempts.End();
    CSCLogging::LogInfo(Entry("serves ") << path << " in place of a process that has ended");
    return;
  }
  // What the system lacks may come back, so that is tried again too.
  lockAttempts.Failed(now);
  if (failure && !isTakeoverFailing) CSCLogging::LogError(Entry(failure->Text()));
  isTakeoverFailing = failure.has_value();
  if (!failure && lock.Descriptor() < 0 && !lockAttempts.Next()) {
    // Nothing tells when that one ends; whoever comes then shall find the lock free.
    lock.Release();
    CSCLogging::LogError(Entry(path) << ": a process that does not hold the lock serves there");
  }
}

void ControlLoop::AcceptClients(TimePoint now) {
  for (int count = 0; count < ControlListener::kBacklog; ++count) {
    support::UniqueFd client = listener->Accept();
    if (client.IsOpen()) {
      isAcceptFailing = false;
      AddClient(std::move(client));
      continue;
    }
    if (errno == EINTR || errno == ECONNABORTED) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return;
    if (!std::exchange(isAcceptFailing, true)) {
      const int error = errno;
      CSCLogging::LogWarning(Entry("cannot accept a client: ") << support::ErrorText(error));
    }
    acceptAgain = now + kAcceptPause;
    return;
  }
}

void ControlLoop::AddClient(support::UniqueFd client) {
  if (connections.size() == kMaxConnections) return;
  try {
    connections.push_back(std::make_unique<ControlConnection>(std::move(client), board, wake));
  } catch (const std::bad_alloc&) {
    CSCLogging::LogError(Entry("a client was not accepted: out of memory"));
  }
}

void ControlLoop::ServeClient(ControlConnection& connection, short ready) {
  try {
    connection.Serve(ready);
  } catch (const std::bad_alloc&) {
    connection.Abandon();
    CSCLogging::LogError(Entry("a client's connection ended: out of memory"));
  }
}

void ControlLoop::DropFinished() {
  connections.erase(std::remove_if(connections.begin(), connections.end(),
                                   [](const auto& connection) { return connection->IsFinished(); }),
                    connections.end());
}

}  // namespace platform_host
