#include "tests/other_platform/EventThread.h"

#include <exception>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "support/WorkerThread.h"

namespace other_platform {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;

EventThread::EventThread() : thread(support::StartThread("PlatformEvents", [this] { Run(); })) {}

EventThread::~EventThread() {
  Stop();
}

void EventThread::Post(Event event) {
  const support::MutexLock lock(mutex);
  if (stopped) return;
  waiting.push_back(std::move(event));
  changed.NotifyAll();
}

void EventThread::Stop() {
  {
    const support::MutexLock lock(mutex);
    stopped = true;
    changed.NotifyAll();
  }
  const support::MutexLock lock(joining);
  if (thread.joinable()) thread.join();
}

// What a listener throws costs its event only.
void EventThread::Run() {
  Event event;
  while (Next(event)) {
    try {
      event();
    } catch (const std::exception& exception) {
      CSCLogging::LogError(CSCLogEntry()
                           << "other_platform: a listener failed: " << exception.what());
    }
  }
}

bool EventThread::Next(Event& event) {
  const support::MutexLock lock(mutex);
  while (waiting.empty() && !stopped) changed.Wait(mutex);
  if (stopped) return false;
  event = std::move(waiting.front());
  waiting.pop_front();
  return true;
}

}  // namespace other_platform
