/// Log lines of this library: each begins with its name. Any thread; none throws: a line that gets
/// no memory is lost.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_CONNECTORLOG_H
#define PLATFORM_HOST_LUMO_CONNECTOR_CONNECTORLOG_H

#include <new>
#include <string>
#include <string_view>

#include "csc_logging/CSCLogging.h"

namespace lumo_connector {

/// Hands "libLumoConnectorShared: CONTEXT TEXT" to `log`, an operation of CSCLogging.
template <typename Log>
void LogLine(Log log, std::string_view context, std::string_view text) noexcept {
  try {
    log(std::string("libLumoConnectorShared: ").append(context).append(text));
  } catch (const std::bad_alloc&) {
    // The line is lost, the work goes on.
  }
}

inline void LogInfo(std::string_view text) noexcept {
  LogLine([](std::string_view line) { csc_logging::CSCLogging::LogInfo(line); }, "", text);
}

inline void LogWarning(std::string_view text) noexcept {
  LogLine([](std::string_view line) { csc_logging::CSCLogging::LogWarning(line); }, "", text);
}

/// `context` and `text` stand side by side: for texts that come from elsewhere, exceptions' too.
inline void LogError(std::string_view context, std::string_view text = "") noexcept {
  LogLine([](std::string_view line) { csc_logging::CSCLogging::LogError(line); }, context, text);
}

}  // namespace lumo_connector

#endif
