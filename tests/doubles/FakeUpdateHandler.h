/// An update handler that updates nothing: it answers as told and writes down what was asked of it.
/// For tests of what stands on UpdateHandlerIf. Any thread.
#ifndef TESTS_DOUBLES_FAKEUPDATEHANDLER_H
#define TESTS_DOUBLES_FAKEUPDATEHANDLER_H

#include <atomic>
#include <cstdint>
#include <string>

#include "TruststoreUpdateClient/UpdateHandlerIf.h"
#include "support/Mutex.h"
#include "tests/doubles/CallRecord.h"

namespace tests {

/// What a FakeUpdateHandler answers; outlives it. Begins as on a unit with a container.
class UpdateHandlerAnswers {
 public:
  void SetInstalledId(const std::string& id) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    installedId = id;
  }
  [[nodiscard]] std::string InstalledId() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return installedId;
  }

  std::atomic<std::uint32_t> timestamp{1720000000};
  std::atomic<truststore_update_client::ResponseStatus> removal{
      truststore_update_client::STATUS_CODE_SUCCESS};
  std::atomic<bool> ongoing{false};
  std::atomic<bool> starts{true};

 private:
  mutable support::Mutex mutex;
  std::string installedId GUARDED_BY(mutex) = "installed-1";
};

/// Writes each call as its name and its arguments, texts in brackets, and its end as
/// "~UpdateHandler".
class FakeUpdateHandler : public truststore_update_client::UpdateHandlerIf {
 public:
  using ResponseStatus = truststore_update_client::ResponseStatus;
  using RenewalReason = truststore_update_client::RenewalReason;

  FakeUpdateHandler(CallRecord& record, const UpdateHandlerAnswers& given)
      : calls(record), answers(given) {}
  ~FakeUpdateHandler() override { calls.Add("~UpdateHandler"); }
  FakeUpdateHandler(const FakeUpdateHandler&) = delete;
  FakeUpdateHandler& operator=(const FakeUpdateHandler&) = delete;

  void GetInstalledContainerId(std::string& id) override {
    calls.Add("GetInstalledContainerId");
    id = answers.InstalledId();
  }
  [[nodiscard]] std::uint32_t GetInstalledContainerTimestamp() const override {
    calls.Add("GetInstalledContainerTimestamp");
    return answers.timestamp;
  }
  [[nodiscard]] ResponseStatus RemoveAllTrustStores() const override {
    calls.Add("RemoveAllTrustStores");
    return answers.removal;
  }

  /// Gives "time " and the number.
  void ConvertEpochTimestampToDatetime(unsigned int timestamp, std::string& text) override {
    text = "time " + std::to_string(timestamp);
  }
  void SendUpdateNotificationToOtherApps(unsigned char value) const override {
    calls.Add("SendUpdateNotificationToOtherApps " + std::to_string(value));
  }
  void ConnectionStateChange(bool connectingAllowed) override {
    calls.Add(connectingAllowed ? "ConnectionStateChange true" : "ConnectionStateChange false");
  }
  void UpdateDevContainer(const std::string& path) override {
    calls.Add("UpdateDevContainer [" + path + "]");
  }
  [[nodiscard]] bool IsContainerUpdateOngoing() const override {
    calls.Add("IsContainerUpdateOngoing");
    return answers.ongoing;
  }
  bool StartContainerUpdate(const RenewalReason& reason, const std::string& operation,
                            const std::string& installedContainerId) override {
    calls.Add("StartContainerUpdate " + std::to_string(reason) + " [" + operation + "] [" +
              installedContainerId + "]");
    return answers.starts;
  }
  void StartStatusUpdate(ResponseStatus status) override {
    calls.Add("StartStatusUpdate " + std::to_string(status));
  }
  void StartStatusUpdate(ResponseStatus status, const std::string& containerId) override {
    calls.Add("StartStatusUpdate " + std::to_string(status) + " [" + containerId + "]");
  }
  void StopProcessing(bool stop) override {
    calls.Add(stop ? "StopProcessing true" : "StopProcessing false");
  }
  void TerminateProcessing() override { calls.Add("TerminateProcessing"); }

 private:
  CallRecord& calls;
  const UpdateHandlerAnswers& answers;
};

}  // namespace tests

#endif
