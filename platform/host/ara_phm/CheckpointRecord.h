/// How one checkpoint of a supervised process has arrived, compared with what is expected of it.
/// Supervision keeps one for each checkpoint. Not synchronised.
#ifndef PLATFORM_HOST_ARA_PHM_CHECKPOINTRECORD_H
#define PLATFORM_HOST_ARA_PHM_CHECKPOINTRECORD_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace platform_host {

/// `indications` checkpoints are due in each `cycle`. Plain values, neither of them 0.
struct CheckpointRule {
  std::uint16_t indications;
  std::chrono::milliseconds cycle;

  friend bool operator==(const CheckpointRule& left, const CheckpointRule& right) {
    return left.indications == right.indications && left.cycle == right.cycle;
  }
};

/// Times go forward, but may come out of order by what threads take to report them.
class CheckpointRecord {
 public:
  using Clock = std::chrono::steady_clock;

  /// Arrivals that are remembered. Where more are due in a cycle, this many are expected in their
  /// part of the cycle.
  static constexpr std::size_t kTimesLimit = 256;

  /// Between two warnings, or a cycle where that is longer.
  static constexpr std::chrono::seconds kWarningPause{60};

  enum class Verdict {
    kNotConfigured,  ///< nothing is expected
    kStarting,       ///< less than a cycle has passed since the first one was expected
    kInTime,  ///< the last indications of a cycle lie within it and half the time between two
    kLate,
  };

  /// One arrival, as it is to be told.
  struct Arrival {
    std::chrono::milliseconds lateness{0};  ///< 0: in time
    bool isWarningDue = false;
  };

  /// From `now` on `newRule` is expected, or nothing. Arrivals count anew unless the rule is the
  /// present one.
  void Expect(const std::optional<CheckpointRule>& newRule, Clock::time_point now);

  /// The checkpoint has been reached. Throws std::bad_alloc, and then nothing has changed.
  Arrival Reached(Clock::time_point now);

  [[nodiscard]] Verdict VerdictAt(Clock::time_point now) const;

  [[nodiscard]] const std::optional<CheckpointRule>& Rule() const { return rule; }
  [[nodiscard]] std::uint64_t Count() const { return count; }

  /// How many came when the verdict was late.
  [[nodiscard]] std::uint64_t LateCount() const { return lateCount; }

  /// Time since the last one; none before the first.
  [[nodiscard]] std::optional<std::chrono::milliseconds> AgeAt(Clock::time_point now) const;

 private:
  /// How many arrivals the verdict looks at. REQUIRES: there is a rule.
  [[nodiscard]] std::size_t Watched() const;

  /// Until when the verdict is not late if none arrives. REQUIRES: there is a rule.
  [[nodiscard]] Clock::time_point Due() const;

  void Remember(Clock::time_point now);

  std::optional<CheckpointRule> rule;
  Clock::time_point start{};              ///< when the first one was expected
  std::vector<Clock::time_point> times;   ///< the last Watched(), a ring once it is full
  std::size_t oldest = 0;                 ///< in the full ring
  std::optional<Clock::time_point> last;  ///< arrival
  std::optional<Clock::time_point> lastWarning;
  std::uint64_t count = 0;
  std::uint64_t lateCount = 0;
};

}  // namespace platform_host

#endif
