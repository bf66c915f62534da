#include "ara/exec/ApplicationClient.h"

#include <systemd/sd-daemon.h>

#include <new>
#include <string>

#include "csc_logging/CSCLogging.h"
#include "platform/host/config/Result.h"

namespace ara::exec {
namespace {

/// Returns whether the report was delivered, or nobody is there to hear it.
bool Report(const char* notification, const std::string& name) {
  using csc_logging::CSCLogging;
  CSCLogging::LogDebug("libara_exec: application state " + name);
  // Without a service manager (NOTIFY_SOCKET is not set) there is nobody to tell: result 0.
  const int result = ::sd_notify(0, notification);
  if (result >= 0) return true;
  CSCLogging::LogError("libara_exec: cannot report application state " + name + ": " +
                       platform_host::Error::OfErrno(-result).Text());
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
