/// The thread on which this platform tells its listeners what has happened: so no callback comes
/// from inside a call into the platform, and none while it holds a lock.
#ifndef TESTS_OTHER_PLATFORM_EVENTTHREAD_H
#define TESTS_OTHER_PLATFORM_EVENTTHREAD_H

#include <deque>
#include <functional>
#include <thread>

#include "support/Mutex.h"

namespace other_platform {

/// Runs what it is given, one after the other, in order. Any thread but its own may stop it.
class EventThread {
 public:
  using Event = std::function<void()>;

  /// Throws std::exception when there is no further thread.
  EventThread();
  ~EventThread();
  EventThread(const EventThread&) = delete;
  EventThread& operator=(const EventThread&) = delete;

  /// Runs `event` soon. Forgets it after Stop.
  void Post(Event event) EXCLUDES(mutex);

  /// Waits for an event under way and forgets those that wait: when it has returned, nothing of
  /// this thread runs any more. A second caller waits as well.
  void Stop() EXCLUDES(mutex, joining);

 private:
  void Run() EXCLUDES(mutex);
  [[nodiscard]] bool Next(Event& event) EXCLUDES(mutex);

  support::Mutex mutex;
  support::ConditionVariable changed;
  std::deque<Event> waiting GUARDED_BY(mutex);
  bool stopped GUARDED_BY(mutex) = false;
  support::Mutex joining;
  std::thread thread GUARDED_BY(joining);
};

}  // namespace other_platform

#endif
