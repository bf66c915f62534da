/// The limits of one exchange: bytes of the answer, time in all, and a rate that an answer must
/// keep. For RelayedExchange. Pure: time comes with each call and never goes back. Each object
/// belongs to one thread at a time.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_GUARDRAILS_H
#define PLATFORM_HOST_LUMO_CONNECTOR_GUARDRAILS_H

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "platform/host/config/HostConfig.h"

namespace platform_host {

/// The rate that an answer must keep over each window of this length.
inline constexpr std::chrono::seconds kRateWindow{30};
inline constexpr std::size_t kLeastBytesPerSecond = 1024;

/// A limit that has been passed.
struct PassedLimit {
  std::string reason;  ///< which, as a part of a sentence
  bool isLength;       ///< the answer up to the limit may still be delivered
};

/// Counts one exchange's answer and time.
class GuardRails {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// `begun` is when the exchange began, connecting included.
  GuardRails(const ExchangeLimits& limits, TimePoint begun);

  /// Counts `bytes` more of the answer, arrived by `now`. Returns how many of them may go on: less
  /// than `bytes` when the limit on the answer's length is passed.
  [[nodiscard]] std::size_t Admit(std::size_t bytes, TimePoint now);

  /// From `now` on, `isTaking` tells whether the client takes what arrives. While it does not, no
  /// time counts for the rate: a slow reader is not a slow peer.
  void ClientTakes(bool isTaking, TimePoint now);

  /// The limit that has been passed by `now`; none: go on.
  [[nodiscard]] std::optional<PassedLimit> Passed(TimePoint now);

  /// When Passed has to be asked again at the latest.
  [[nodiscard]] TimePoint NextCheck() const;

 private:
  static constexpr std::size_t kSlots = kRateWindow.count();

  /// Moves the window to `now`.
  void Advance(TimePoint now);

  const ExchangeLimits rails;
  const TimePoint end;
  std::size_t answerBytes = 0;
  bool isTooLong = false;
  bool isTooSlow = false;

  /// Bytes of each of the last seconds in which the client took what arrived; the window begins
  /// with the first byte of the answer.
  std::array<std::size_t, kSlots> slots{};
  std::size_t slot = 0;  ///< the second under way, counted since the window began
  TimePoint slotEnd;     ///< when it ends; moves while the client takes nothing
  std::optional<TimePoint> pausedAt;
};

}  // namespace platform_host

#endif
