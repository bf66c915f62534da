/// The two sides of a process lifecycle adapter: the platform below it and the owner above it, both
/// writing what they are told into one list, so that tests see its order. Any thread.
#ifndef TESTS_DOUBLES_RECORDINGLIFECYCLE_H
#define TESTS_DOUBLES_RECORDINGLIFECYCLE_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "process_lifecycle_adapter/ProcessLifecycleAdapterApiIf.h"
#include "process_lifecycle_adapter/ProcessLifecycleAdapterCallbackIf.h"
#include "process_lifecycle_adapter/ProcessLifecycleAdapterStateCallbackIf.h"
#include "tests/support/EventLog.h"

namespace tests {

/// Writes "running NAME", "running NAME with states", "start", "alive", "terminating" and "changed
/// STATE SEQUENCE".
class RecordingApi : public process_lifecycle_adapter::ProcessLifecycleAdapterApiIf {
 public:
  RecordingApi(EventLog& eventLog, std::uint16_t tenths) : events(eventLog), aliveTime(tenths) {}

  void Initialize(const std::string& name) override {
    if (inInitialize) inInitialize();
    events.Add("running " + name);
  }
  void Initialize(
      const std::string& name,
      process_lifecycle_adapter::ProcessLifecycleAdapterStateCallbackIf* /*callback*/) override {
    if (inInitialize) inInitialize();
    events.Add("running " + name + " with states");
  }
  bool Start() override {
    events.Add("start");
    if (inStart) inStart();
    return aliveTime != 0;
  }
  [[nodiscard]] std::uint16_t GetIAmAliveTime() override { return aliveTime; }
  void IAmAlive() override { events.Add("alive"); }
  void Terminating() override { events.Add("terminating"); }
  void StateChanged(process_lifecycle_adapter::ProcessState state, unsigned int number) override {
    events.Add("changed " + std::to_string(static_cast<int>(state)) + " " + std::to_string(number));
  }

  std::function<void()> inInitialize;  ///< set before use
  std::function<void()> inStart;       ///< set before use

 private:
  EventLog& events;
  const std::uint16_t aliveTime;
};

/// Writes "terminate" and "health".
class RecordingOwner : public process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf {
 public:
  explicit RecordingOwner(EventLog& eventLog) : events(eventLog) {}

  void ProcessLifecycleAdapterTerminate() override {
    events.Add("terminate");
    if (inTerminate) inTerminate();
  }
  [[nodiscard]] int ProcessLifecycleAdapterGetHealthStatus() override {
    events.Add("health");
    if (inHealth) inHealth();
    return health;
  }

  std::atomic<int> health{0};
  std::function<void()> inTerminate;  ///< set before use
  std::function<void()> inHealth;     ///< set before use

 private:
  EventLog& events;
};

}  // namespace tests

#endif
