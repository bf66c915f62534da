#include "platform/host/files/FileName.h"

#include <utility>

namespace platform_host {
namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";

bool IsAlphanumeric(char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9');
}

}  // namespace

std::string FileNameOf(std::string_view name) {
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

std::optional<std::string> NameOfFile(std::string_view fileName) {
  std::string name;
  for (std::size_t at = 0; at < fileName.size() && fileName != "%"; ++at) {
    if (fileName[at] != '%') {
      name += fileName[at];
      continue;
    }
    if (fileName.size() - at < 3) return std::nullopt;
    const auto high = kDigits.find(fileName[at + 1]);
    const auto low = kDigits.find(fileName[at + 2]);
    if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
    name += static_cast<char>(high * 16 + low);
    at += 2;
  }
  // Of several ways to write a name, one is its file.
  return FileNameOf(name) == fileName ? std::optional(std::move(name)) : std::nullopt;
}

}  // namespace platform_host
