#include "TruststoreUpdateClient/ChangeSignal.h"

namespace truststore_update_client {

std::uint64_t ChangeSignal::Count() const {
  const support::MutexLock lock(mutex);
  return count;
}

void ChangeSignal::Change() {
  const support::MutexLock lock(mutex);
  ++count;
  changed.NotifyAll();
}

void ChangeSignal::WaitForChange(std::uint64_t seen) const {
  const support::MutexLock lock(mutex);
  while (count == seen) changed.Wait(mutex);
}

void ChangeSignal::WaitForChange(std::uint64_t seen, std::chrono::milliseconds timeout) const {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const support::MutexLock lock(mutex);
  while (count == seen && changed.WaitUntil(mutex, deadline)) {
  }
}

}  // namespace truststore_update_client
