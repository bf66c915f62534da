// Hears TLS alerts as the client does and writes one info line for each that it accepts. Runs until
// SIGTERM or SIGINT, then ends with 0.
#include <pthread.h>
#include <signal.h>

#include <string>

#include "csa_common/TlsAlerts.h"
#include "csc_logging/CSCLogging.h"

namespace {

using csc_logging::CSCLogEntry;
using csc_logging::CSCLogging;
using tls_alert_if::ETlsAlertCode;

class LoggingCallback : public csa_common::TlsAlertsCbIf {
 public:
  void TlsAlertNotifyCb(std::string operation, ETlsAlertCode code) override {
    CSCLogging::LogInfo(CSCLogEntry()
                        << "alert_listener: " << static_cast<unsigned>(code) << " " << operation);
  }
};

}  // namespace

int main() {
  // Blocked before there is a second thread: sigwait below is then the only one to get them.
  sigset_t ends;
  ::sigemptyset(&ends);
  ::sigaddset(&ends, SIGTERM);
  ::sigaddset(&ends, SIGINT);
  ::pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  CSCLogging::InitLogging("TU");
  LoggingCallback callback;
  const csa_common::TlsAlerts alerts(
      {ETlsAlertCode::kCertificateUnknown, ETlsAlertCode::kUnknownCa}, &callback);
  int signalNumber = 0;
  return ::sigwait(&ends, &signalNumber);
}
