#include "ara/exec/ApplicationClient.h"

#include <atomic>
#include <memory>
#include <new>
#include <string>

#include "csc_logging/CSCLogging.h"
#include "platform/host/ara_exec/ServiceManager.h"
#include "platform/host/config/Result.h"
#include "platform/host/control/ControlBoard.h"

namespace ara::exec {
namespace {

using platform_host::ControlBoard;

/// What this process has reported last, for the control socket. Never destroyed: threads may report
/// until the very end. Any thread.
class LastReport {
 public:
  /// Throws std::bad_alloc.
  static LastReport& OfProcess() {
    static auto* const report = new LastReport;
    return *report;
  }

  /// `name` is a literal.
  void Set(const char* name) { state = name; }

 private:
  std::atomic<const char*> state{"none"};
  const std::unique_ptr<ControlBoard::Offer> offer =
      ControlBoard::OfProcess().OfferStatus("application", [this] {
        return nlohmann::json{{"state", state.load()}};
      });
};

/// Returns whether the report was delivered, or nobody is there to hear it.
bool Report(const char* notification, const char* state) {
  using csc_logging::CSCLogging;
  const std::string name = state;
  LastReport::OfProcess().Set(state);
  CSCLogging::LogDebug("libara_exec: application state " + name);
  const int error = platform_host::NotifyServiceManager(notification);
  if (error == 0) return true;
  CSCLogging::LogError("libara_exec: cannot report application state " + name + ": " +
                       platform_host::Error::OfErrno(error).Text());
  return false;
}

}  // namespace

bool ApplicationClient::ReportApplicationState(ApplicationState state) noexcept {
  try {
    return state == ApplicationState::kRunning ? Report("READY=1", "running")
                                               : Report("STOPPING=1", "terminating");
  } catch (const std::bad_alloc&) {
    // Out of memory: the report is lost, its caller goes on.
    return false;
  }
}

}  // namespace ara::exec
