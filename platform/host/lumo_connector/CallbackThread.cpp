#include "platform/host/lumo_connector/CallbackThread.h"

#include <exception>
#include <utility>

#include "platform/host/lumo_connector/ConnectorLog.h"
#include "support/WorkerThread.h"

namespace lumo_connector {

CallbackThread::~CallbackThread() {
  Stop();
  if (thread.joinable()) thread.join();
}

void CallbackThread::Begin(std::vector<CallbackSource*> callbackSources) {
  sources = std::move(callbackSources);
  {
    const support::MutexLock lock(mutex);
    running = true;
  }
  try {
    thread = support::StartThread("LumoConnector", [this] { Run(); });
  } catch (...) {
    const support::MutexLock lock(mutex);
    running = false;
    throw;
  }
}

void CallbackThread::Wake() noexcept {
  const support::MutexLock lock(mutex);
  woken = true;
  changed.NotifyAll();
}

void CallbackThread::Stop() {
  const support::MutexLock lock(mutex);
  stopping = true;
  changed.NotifyAll();
  while (running) changed.Wait(mutex);
}

void CallbackThread::Run() noexcept {
  while (WaitForWork()) {
    while (TellOne()) {
    }
  }
  const support::MutexLock lock(mutex);
  running = false;
  changed.NotifyAll();
}

bool CallbackThread::WaitForWork() {
  const support::MutexLock lock(mutex);
  while (!woken && !stopping) changed.Wait(mutex);
  woken = false;
  return !stopping;
}

bool CallbackThread::TellOne() noexcept {
  if (IsStopping()) return false;
  try {
    for (CallbackSource* const source : sources) {
      if (source->TellNext()) return true;
    }
    return false;
  } catch (const std::exception& error) {
    LogError("a callback threw an exception: ", error.what());
  } catch (...) {
    LogError("a callback threw an exception of an unknown kind");
  }
  return true;
}

bool CallbackThread::IsStopping() {
  const support::MutexLock lock(mutex);
  return stopping;
}

}  // namespace lumo_connector
