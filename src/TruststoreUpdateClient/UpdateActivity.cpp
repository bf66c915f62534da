#include "TruststoreUpdateClient/UpdateActivity.h"

namespace truststore_update_client {

using support::MutexLock;

bool UpdateActivity::BeginContainerUpdate() {
  const MutexLock lock(mutex);
  if (containerUpdateOngoing) return false;
  containerUpdateOngoing = true;
  updateRetriesDisabled = false;
  return true;
}

void UpdateActivity::EndContainerUpdate() {
  const MutexLock lock(mutex);
  End(containerUpdateOngoing);
}

bool UpdateActivity::BeginStatusReport() {
  const MutexLock lock(mutex);
  if (statusReportOngoing) return false;
  statusReportOngoing = true;
  return true;
}

void UpdateActivity::EndStatusReport() {
  const MutexLock lock(mutex);
  End(statusReportOngoing);
}

void UpdateActivity::End(bool& ongoing) {
  ongoing = false;
  idle.NotifyAll();
}

bool UpdateActivity::IsOngoing() const {
  const MutexLock lock(mutex);
  return containerUpdateOngoing || statusReportOngoing;
}

void UpdateActivity::WaitUntilIdle() const {
  const MutexLock lock(mutex);
  while (containerUpdateOngoing || statusReportOngoing) idle.Wait(mutex);
}

void UpdateActivity::SetProcessingStopped(bool stopped) {
  const MutexLock lock(mutex);
  processingStopped = stopped;
}

void UpdateActivity::Terminate() {
  const MutexLock lock(mutex);
  terminated = true;
}

bool UpdateActivity::IsProcessingStopped() const {
  const MutexLock lock(mutex);
  return processingStopped || terminated;
}

bool UpdateActivity::IsStopRequested() const {
  const MutexLock lock(mutex);
  return processingStopped;
}

void UpdateActivity::SetConnectingAllowed(bool allowed) {
  const MutexLock lock(mutex);
  connectingAllowed = allowed;
}

bool UpdateActivity::IsConnectingAllowed() const {
  const MutexLock lock(mutex);
  return connectingAllowed;
}

void UpdateActivity::DisableUpdateRetries() {
  const MutexLock lock(mutex);
  updateRetriesDisabled = true;
}

bool UpdateActivity::IsUpdateRetryDisabled() const {
  const MutexLock lock(mutex);
  return updateRetriesDisabled;
}

}  // namespace truststore_update_client
