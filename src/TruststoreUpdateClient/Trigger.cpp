#include "TruststoreUpdateClient/Trigger.h"

namespace truststore_update_client {

void Trigger::Raise() {
  const support::MutexLock lock(mutex);
  raised = true;
  raisedCondition.NotifyOne();
}

void Trigger::Wait() {
  const support::MutexLock lock(mutex);
  while (!raised) raisedCondition.Wait(mutex);
  raised = false;
}

void Trigger::WaitFor(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const support::MutexLock lock(mutex);
  while (!raised && raisedCondition.WaitUntil(mutex, deadline)) {
  }
  raised = false;
}

}  // namespace truststore_update_client
