/// A container handler that installs nothing: it answers as told and remembers what was asked of
/// it. For tests of what stands on ContainerHandlerIf. Any thread.
#ifndef TESTS_DOUBLES_FAKECONTAINERHANDLER_H
#define TESTS_DOUBLES_FAKECONTAINERHANDLER_H

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "TruststoreUpdateClient/ContainerHandlerIf.h"
#include "support/Mutex.h"

namespace tests {

/// Begins as the handler of a unit on which nothing is installed and every container is good.
class FakeContainerHandler : public truststore_update_client::ContainerHandlerIf {
 public:
  using ResponseStatus = truststore_update_client::ResponseStatus;

  /// What a test does inside a call, without the lock; may block, and throw.
  using Hook = std::function<void()>;

  [[nodiscard]] ResponseStatus VerifyAndInstallContainer(const std::string& container) override
      EXCLUDES(mutex) {
    const Hook hook = RememberContainer(container);
    if (hook) hook();
    const support::MutexLock lock(mutex);
    return verification;
  }

  [[nodiscard]] ResponseStatus RemoveAllTrustStores() const override EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    ++removals;
    return removal;
  }

  void GetInstallingContainerId(std::string& id) const override EXCLUDES(mutex) {
    const Hook hook = InstallingIdHook();
    if (hook) hook();
    const support::MutexLock lock(mutex);
    id = installingId;
  }

  void GetInstalledContainerId(std::string& id) const override EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    id = installedId;
  }

  [[nodiscard]] std::uint32_t GetInstalledContainerTimestamp() const override EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return installedTimestamp;
  }

  void StopProcessing(bool stop) override EXCLUDES(mutex) {
    const Hook hook = StopHook();
    if (hook) hook();
    Remember(stop ? "stop" : "resume");
  }
  void TerminateProcessing() override { Remember("terminate"); }
  void DisableUpdateRetries(bool disable) const override EXCLUDES(mutex) {
    const Hook hook = RetriesHook();
    if (hook) hook();
    Remember(disable ? "disable retries" : "enable retries");
  }

  /// Gives the number itself.
  void ConvertEpochTimestampToDatetime(std::uint32_t timestamp, std::string& text) const override {
    text = std::to_string(timestamp);
  }

  /// What the next verifications and removals return.
  void AnswerVerification(ResponseStatus status) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    verification = status;
  }
  void AnswerRemoval(ResponseStatus status) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    removal = status;
  }

  /// What happens inside every further verification, every StopProcessing and DisableUpdateRetries
  /// before it takes effect, and every question for the container being installed.
  void AtVerification(Hook hook) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    atVerification = std::move(hook);
  }
  void AtStop(Hook hook) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    atStop = std::move(hook);
  }
  void AtRetriesChange(Hook hook) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    atRetriesChange = std::move(hook);
  }
  void AtInstallingId(Hook hook) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    atInstallingId = std::move(hook);
  }

  /// What the getters tell.
  void SetInstalled(const std::string& id, std::uint32_t timestamp) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    installedId = id;
    installedTimestamp = timestamp;
  }
  void SetInstalling(const std::string& id) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    installingId = id;
  }

  /// Every container that was to be verified, oldest first.
  [[nodiscard]] std::vector<std::string> Containers() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return containers;
  }

  [[nodiscard]] int Removals() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return removals;
  }

  /// Every change of what may run, oldest first: "stop", "resume", "terminate", "disable retries"
  /// or "enable retries".
  [[nodiscard]] std::vector<std::string> Requests() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return requests;
  }

 private:
  Hook RememberContainer(const std::string& container) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    containers.push_back(container);
    return atVerification;
  }

  void Remember(const std::string& request) const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    requests.push_back(request);
  }

  Hook StopHook() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return atStop;
  }

  Hook RetriesHook() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return atRetriesChange;
  }

  Hook InstallingIdHook() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return atInstallingId;
  }

  mutable support::Mutex mutex;
  ResponseStatus verification GUARDED_BY(mutex) = truststore_update_client::kInstalled;
  ResponseStatus removal GUARDED_BY(mutex) = truststore_update_client::kInstalled;
  std::string installedId GUARDED_BY(mutex);
  std::string installingId GUARDED_BY(mutex);
  std::uint32_t installedTimestamp GUARDED_BY(mutex) = 0;
  Hook atVerification GUARDED_BY(mutex);
  Hook atStop GUARDED_BY(mutex);
  Hook atRetriesChange GUARDED_BY(mutex);
  Hook atInstallingId GUARDED_BY(mutex);
  std::vector<std::string> containers GUARDED_BY(mutex);
  mutable int removals GUARDED_BY(mutex) = 0;
  mutable std::vector<std::string> requests GUARDED_BY(mutex);
};

}  // namespace tests

#endif
