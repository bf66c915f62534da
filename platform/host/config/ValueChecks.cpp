#include "platform/host/config/ValueChecks.h"

#include <algorithm>

namespace platform_host {
namespace {

bool IsControl(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte < 0x20 || byte == 0x7F;
}

bool IsVisible(char character) {
  return character > ' ' && character < '\x7F';
}

bool HasControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(), IsControl);
}

}  // namespace

Refusal TakePath(std::string_view value, std::string& target) {
  const bool isUsable =
      !value.empty() && value.front() == '/' && value.find('\0') == std::string_view::npos;
  if (!isUsable) return "must be an absolute path";
  target = value;
  return std::nullopt;
}

Refusal TakeName(const std::string& value, std::string& target) {
  if (value.empty()) return "must not be empty";
  if (HasControl(value)) return "must not contain control characters";
  target = value;
  return std::nullopt;
}

Refusal TakeHost(const std::string& value, std::string& target) {
  if (value.find(' ') != std::string::npos) return "must not contain blanks";
  return TakeName(value, target);
}

Refusal CheckRange(std::int64_t value, const Range& range) {
  if (value >= range.least && value <= range.most) return std::nullopt;
  return "must be from " + std::to_string(range.least) + " to " + std::to_string(range.most);
}

Refusal TakePort(std::int64_t value, std::uint16_t& target) {
  if (auto refusal = CheckRange(value, kPorts)) return refusal;
  target = static_cast<std::uint16_t>(value);
  return std::nullopt;
}

Refusal TakeSeconds(std::int64_t value, const Range& range, std::chrono::seconds& target) {
  if (auto refusal = CheckRange(value, range)) return refusal;
  target = std::chrono::seconds(value);
  return std::nullopt;
}

bool IsToken(std::string_view text) {
  return !text.empty() && text.size() <= kMaxTokenBytes &&
         std::all_of(text.begin(), text.end(), IsVisible);
}

}  // namespace platform_host
