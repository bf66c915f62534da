/// How long to wait before the next try to reach the broker. Belongs to one thread.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_RECONNECTPAUSE_H
#define PLATFORM_HOST_LUMO_CONNECTOR_RECONNECTPAUSE_H

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>

namespace lumo_connector {

/// Doubling pauses, each shortened at random by up to a half: units that lost their broker together
/// do not come back together, and two that share a client id do not throw each other out at once.
class ReconnectPause {
 public:
  using Milliseconds = std::chrono::milliseconds;

  static constexpr Milliseconds kShortest{1000};
  static constexpr Milliseconds kLongest{60000};

  /// `randomFraction` gives numbers from 0 to 1.
  explicit ReconnectPause(std::function<double()> randomFraction)
      : fraction(std::move(randomFraction)) {}

  /// The pause after another failure, between kShortest and kLongest.
  [[nodiscard]] Milliseconds Next() {
    const Milliseconds longest = std::exchange(present, std::min(present * 2, kLongest));
    const double shortened = static_cast<double>(longest.count()) * (1 - fraction() / 2);
    return std::clamp(Milliseconds(static_cast<Milliseconds::rep>(shortened)), kShortest, kLongest);
  }

  /// The next pause is a short one again.
  void Reset() { present = 2 * kShortest; }

 private:
  const std::function<double()> fraction;
  Milliseconds present = 2 * kShortest;
};

}  // namespace lumo_connector

#endif
