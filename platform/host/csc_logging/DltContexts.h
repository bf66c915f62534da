/// The contexts of DLT under which the components of the unit log (docs/host-platform.md lists
/// them). Pure: any thread.
#ifndef PLATFORM_HOST_CSC_LOGGING_DLTCONTEXTS_H
#define PLATFORM_HOST_CSC_LOGGING_DLTCONTEXTS_H

#include <array>
#include <cstddef>
#include <string_view>

namespace platform_host {

/// One context, and the component whose lines it has.
struct DltContextEntry {
  const char* id;               ///< one to four characters, as DLT keeps them
  const char* description;      ///< what DLT's tools show beside the id
  std::string_view components;  ///< names, a blank between two
};

/// Every context. The first has the lines of all that bear no name of a component.
inline constexpr std::array<DltContextEntry, 23> kDltContexts = {{
    {"MAIN", "Triggers, updates, reports and all else", ""},
    {"CONT", "Container handler", "ContainerHandler"},
    {"HSM", "Signature verification", "HSM"},
    {"OCSP", "Revocation checks", "OCSP"},
    {"HTTP", "HTTP exchanges", "HttpConnection"},
    {"MQTT", "Jobs of the backend", "MqttConnection"},
    {"ALRT", "TLS alerts", "TlsAlerts"},
    {"SOCK", "Connection to the TLS alert proxy",
     "SocksTlsAlertClient SocksTlsAlertClientConnector SocksTlsAlertClientCommunicator"},
    {"PERS", "Records of the installed container", "PersistantFileStorage"},
    {"LIFE", "Process lifecycle",
     "ProcessLifecycleAdapter ProcessLifecycleAdapterApiImpl ProcessLifecycleAdapterImpl"},
    {"SIGN", "Signal handler", "SignalHandler"},
    {"INIF", "Health supervision file", "IniFileReader"},
    {"JSON", "JSON parser", "JsonParser"},
    {"TEST", "Development tools", "Testlog"},
    {"HLOG", "Host platform: log", "libaralog"},
    {"HTRS", "Host platform: trust store", "libtruststore"},
    {"HPER", "Host platform: persistency", "libara_per"},
    {"HEXE", "Host platform: execution management", "libara_exec"},
    {"HSTM", "Host platform: state management", "libara_stm"},
    {"HPHM", "Host platform: health management", "libara_phm"},
    {"HCON", "Host platform: backend connector", "libLumoConnectorShared"},
    {"HCTL", "Host platform: control socket", "libhost_control"},
    {"HLCK", "Host platform: work lock", "libwork_lock_host"},
}};

/// The index in kDltContexts of the context for a log line: that of the component whose name and a
/// colon begin `text`, else 0.
[[nodiscard]] std::size_t DltContextOf(std::string_view text);

}  // namespace platform_host

#endif
