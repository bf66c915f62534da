#include "platform/host/files/FileName.h"

namespace platform_host {
namespace {

bool IsAlphanumeric(char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9');
}

}  // namespace

std::string FileNameOf(std::string_view name) {
  static constexpr std::string_view kDigits = "0123456789ABCDEF";
  if (name.empty()) return "%";
  std::string fileName;
  for (const char byte : name) {
    const bool innerDot = byte == '.' && !fileName.empty();
    if (IsAlphanumeric(byte) || byte == '_' || byte == '-' || innerDot) {
      fileName += byte;
      continue;
    }
    const auto value = static_cast<unsigned char>(byte);
    fileName += '%';
    fileName += kDigits[value >> 4U];
    fileName += kDigits[value & 0x0FU];
  }
  return fileName;
}

}  // namespace platform_host
