#include "socks_cdp/Listening.h"

#include <utility>

namespace socks_cdp {

Listening::Listening(SocksTlsAlertClientCallbackIf* listeningCallback, Clock clock)
    : now(std::move(clock)), callback(listeningCallback) {}

void Listening::Stop() {
  {
    const support::MutexLock lock(mutex);
    running = false;
    callback = nullptr;
    stopped.NotifyAll();
  }
  Drop();
}

bool Listening::IsRunning() const {
  const support::MutexLock lock(mutex);
  return running;
}

SocksTlsAlertClientCallbackIf* Listening::Callback() const {
  const support::MutexLock lock(mutex);
  return callback;
}

bool Listening::Hold(std::shared_ptr<ssoa_socket::StreamCommunicatorIf> connected) {
  // What is given up goes after the lock: its end calls out.
  const support::MutexLock lock(mutex);
  if (!running) return false;
  communicator.swap(connected);
  return true;
}

void Listening::Drop() {
  std::shared_ptr<ssoa_socket::StreamCommunicatorIf> dropped;
  {
    const support::MutexLock lock(mutex);
    dropped.swap(communicator);
  }
  if (dropped) dropped->Disconnect();
}

void Listening::Pause(std::chrono::milliseconds duration) {
  const auto deadline = now() + duration;
  for (auto time = now(); time < deadline; time = now()) {
    if (!WaitForStop(deadline - time)) return;
  }
}

bool Listening::WaitForStop(std::chrono::nanoseconds duration) {
  const auto deadline = std::chrono::steady_clock::now() + duration;
  const support::MutexLock lock(mutex);
  while (running && stopped.WaitUntil(mutex, deadline)) {
  }
  return running;
}

}  // namespace socks_cdp
