#include "platform/host/lumo_connector/GuardRails.h"

#include <algorithm>
#include <numeric>

namespace platform_host {
namespace {

constexpr std::chrono::seconds kSlotLength{1};
constexpr std::size_t kLeastBytes = kLeastBytesPerSecond * kRateWindow.count();

}  // namespace

GuardRails::GuardRails(const ExchangeLimits& limits, TimePoint begun)
    : rails(limits), end(begun + limits.duration) {}

std::size_t GuardRails::Admit(std::size_t bytes, TimePoint now) {
  if (bytes == 0) return 0;
  if (answerBytes == 0) slotEnd = now + kSlotLength;
  Advance(now);
  slots.at(slot % kSlots) += bytes;
  const std::size_t room = rails.responseBytes - answerBytes;
  const std::size_t admitted = std::min(bytes, room);
  answerBytes += admitted;
  isTooLong = isTooLong || admitted < bytes;
  return admitted;
}

void GuardRails::ClientTakes(bool isTaking, TimePoint now) {
  if (isTaking == !pausedAt) return;
  if (isTaking) {
    slotEnd += now - *pausedAt;
    pausedAt.reset();
  } else {
    Advance(now);
    pausedAt = now;
  }
}

std::optional<PassedLimit> GuardRails::Passed(TimePoint now) {
  if (now >= end) {
    return PassedLimit{"it takes longer than " + std::to_string(rails.duration.count()) + " s",
                       false};
  }
  if (isTooLong) {
    return PassedLimit{
        "the answer is longer than " + std::to_string(rails.responseBytes) + " bytes", true};
  }
  Advance(now);
  if (!isTooSlow) return std::nullopt;
  return PassedLimit{"less than " + std::to_string(kLeastBytesPerSecond) +
                         " bytes a second arrived over " + std::to_string(kRateWindow.count()) +
                         " s",
                     false};
}

GuardRails::TimePoint GuardRails::NextCheck() const {
  const bool isCounting = answerBytes > 0 && !pausedAt;
  return isCounting ? std::min(end, slotEnd) : end;
}

void GuardRails::Advance(TimePoint now) {
  if (answerBytes == 0 || pausedAt) return;
  for (; now >= slotEnd && !isTooSlow; slotEnd += kSlotLength) {
    const bool isWindowFull = slot + 1 >= kSlots;
    const std::size_t arrived = std::accumulate(slots.begin(), slots.end(), std::size_t{0});
    isTooSlow = isWindowFull && arrived < kLeastBytes;
    ++slot;
    slots.at(slot % kSlots) = 0;
  }
}

}  // namespace platform_host
