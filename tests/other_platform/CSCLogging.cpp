// csc_logging: lines on standard error from level info on. The lines below it are the client's
// chatter, and hold whole requests with their access tokens.
#include "csc_logging/CSCLogging.h"

#include <unistd.h>

#include <exception>

#include "support/FileContents.h"

namespace csc_logging {
namespace {

// One write a line, so that lines of several threads never mix; what cannot be written is lost.
void WriteLine(std::string_view level, std::string_view text) noexcept {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  try {
    std::string line(level);
    for (const char byte : text) {
      const auto code = static_cast<unsigned char>(byte);
      if (code >= 0x20 && code != 0x7F) {
        line += byte;
      } else {
        line += {'\\', 'x', kDigits[code >> 4U], kDigits[code & 0xFU]};
      }
    }
    line += '\n';
    (void)support::WriteAll(STDERR_FILENO, line);
  } catch (const std::exception&) {
  }
}

}  // namespace

void CSCLogging::InitLogging(const std::string& /*applicationId*/) noexcept {}

void CSCLogging::LogVerbose(std::string_view /*text*/) noexcept {}

void CSCLogging::LogDebug(std::string_view /*text*/) noexcept {}

void CSCLogging::LogInfo(std::string_view text) noexcept {
  WriteLine("info: ", text);
}

void CSCLogging::LogWarning(std::string_view text) noexcept {
  WriteLine("warning: ", text);
}

void CSCLogging::LogError(std::string_view text) noexcept {
  WriteLine("error: ", text);
}

}  // namespace csc_logging
