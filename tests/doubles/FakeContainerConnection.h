/// A backend without a network, for tests of what downloads containers and reports updates.
#ifndef TESTS_DOUBLES_FAKECONTAINERCONNECTION_H
#define TESTS_DOUBLES_FAKECONTAINERCONNECTION_H

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "TruststoreUpdateClient/ContainerConnection.h"
#include "support/Mutex.h"

namespace tests {

/// Answers as planned and remembers what it was asked. Fresh: every download brings the container
/// "a container", every report is accepted. Any thread; no plan is run with the lock held.
class FakeContainerConnection : public truststore_update_client::ContainerConnection {
 public:
  /// Fills the container and returns the result; may block, and throw.
  using Download = std::function<unsigned int(std::string& container)>;
  using Report = std::function<unsigned int()>;

  FakeContainerConnection() : ContainerConnection(nullptr) {}

  /// A download with this outcome.
  [[nodiscard]] static Download Brings(unsigned int result, const std::string& container = "") {
    return [result, container](std::string& given) {
      given = container;
      return result;
    };
  }

  /// A report with this outcome.
  [[nodiscard]] static Report Ends(unsigned int result) {
    return [result] { return result; };
  }

  /// What the calls from now on do, one after the other; the last one stays.
  void PlanDownloads(std::vector<Download> plan) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    downloads = std::move(plan);
    nextDownload = 0;
  }
  void PlanReports(std::vector<Report> plan) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    reports = std::move(plan);
    nextReport = 0;
  }

  /// Every call so far, oldest first: "REASON|OPERATION|INSTALLED ID|TOKEN|URL".
  [[nodiscard]] std::vector<std::string> Downloads() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return downloadCalls;
  }

  /// As above: "STATUS|ID|TOKEN|URL".
  [[nodiscard]] std::vector<std::string> Reports() const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    return reportCalls;
  }

  [[nodiscard]] unsigned int GetContainer(std::string& container, unsigned char renewalReason,
                                          const std::string& operationTypeId,
                                          const std::string& containerId, const std::string& token,
                                          const std::string& url) const override EXCLUDES(mutex) {
    return NextDownload(std::to_string(unsigned{renewalReason}) + "|" + operationTypeId + "|" +
                        containerId + "|" + token + "|" + url)(container);
  }

  [[nodiscard]] unsigned int SendUpdateStatus(truststore_update_client::ResponseStatus status,
                                              const std::string& containerId,
                                              const std::string& token,
                                              const std::string& url) const override
      EXCLUDES(mutex) {
    return NextReport(std::to_string(unsigned{status}) + "|" + containerId + "|" + token + "|" +
                      url)();
  }

 private:
  Download NextDownload(const std::string& call) const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    downloadCalls.push_back(call);
    if (nextDownload + 1 < downloads.size()) return downloads[nextDownload++];
    return downloads.back();
  }

  Report NextReport(const std::string& call) const EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    reportCalls.push_back(call);
    if (nextReport + 1 < reports.size()) return reports[nextReport++];
    return reports.back();
  }

  mutable support::Mutex mutex;
  std::vector<Download> downloads GUARDED_BY(mutex) = {Brings(0, "a container")};
  std::vector<Report> reports GUARDED_BY(mutex) = {Ends(0)};
  mutable std::size_t nextDownload GUARDED_BY(mutex) = 0;
  mutable std::size_t nextReport GUARDED_BY(mutex) = 0;
  mutable std::vector<std::string> downloadCalls GUARDED_BY(mutex);
  mutable std::vector<std::string> reportCalls GUARDED_BY(mutex);
};

}  // namespace tests

#endif
