/// Counts what is dropped, so that the log tells it now and then instead of every time. Belongs to
/// one thread at a time.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_DROPCOUNTER_H
#define PLATFORM_HOST_LUMO_CONNECTOR_DROPCOUNTER_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <utility>

namespace lumo_connector {

/// The first drop is due at once, later ones together when kInterval has passed since the last
/// report.
class DropCounter {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  static constexpr std::chrono::minutes kInterval{1};

  /// One more.
  void Add() { ++count; }

  /// How many to report now; 0: none, or not yet. They are then reported.
  [[nodiscard]] std::size_t TakeDue(TimePoint now) {
    if (count == 0 || (lastReport && now - *lastReport < kInterval)) return 0;
    lastReport = now;
    return std::exchange(count, 0);
  }

 private:
  std::size_t count = 0;
  std::optional<TimePoint> lastReport;
};

}  // namespace lumo_connector

#endif
