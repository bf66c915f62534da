#include "tools/tsc/Timestamps.h"

#include <charconv>
#include <chrono>
#include <ctime>
#include <limits>

namespace tsc {

namespace {

constexpr const char* kFormat = "%Y-%m-%dT%H:%M:%S";

std::optional<std::uint32_t> Within32Bits(std::time_t seconds) {
  if (seconds < 0 || seconds > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  return static_cast<std::uint32_t>(seconds);
}

std::optional<std::uint32_t> ParseSeconds(const std::string& text) {
  std::uint32_t seconds = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, seconds);
  if (error != std::errc() || rest != end) return std::nullopt;
  return seconds;
}

std::optional<std::uint32_t> ParseDate(std::string text) {
  if (!text.empty() && text.back() == 'Z') text.pop_back();
  std::tm date{};
  const char* const rest = ::strptime(text.c_str(), kFormat, &date);
  if (rest == nullptr || *rest != '\0') return std::nullopt;
  const auto seconds = Within32Bits(::timegm(&date));
  // Also refuses February 31 and fields with too few digits, which strptime lets pass.
  if (!seconds.has_value() || FormatTimestamp(*seconds) != text) return std::nullopt;
  return seconds;
}

}  // namespace

std::optional<std::uint32_t> ParseTimestamp(const std::string& text, std::uint32_t now) {
  if (text == "now") return now;
  if (text.find('-') == std::string::npos) return ParseSeconds(text);
  return ParseDate(text);
}

std::string FormatTimestamp(std::uint32_t timestamp) {
  const std::time_t seconds = timestamp;
  std::tm date{};
  ::gmtime_r(&seconds, &date);
  char text[32];
  return {text, std::strftime(text, sizeof text, kFormat, &date)};
}

std::uint32_t SecondsNow() {
  return static_cast<std::uint32_t>(
      std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()));
}

}  // namespace tsc
