/// The checkpoints that this process reaches, and whether they arrive as its health supervision
/// files demand. There is no thread and no timer: what is late is found when the next checkpoint
/// comes, or when the status is asked for. Behind Phm_client and SupervisionEntity.
#ifndef PLATFORM_HOST_ARA_PHM_SUPERVISION_H
#define PLATFORM_HOST_ARA_PHM_SUPERVISION_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>

#include "platform/host/ara_phm/CheckpointRecord.h"
#include "platform/host/ara_phm/SupervisionFile.h"
#include "support/Mutex.h"

namespace platform_host {

/// Any thread.
class Supervision {
 public:
  using TimePoint = CheckpointRecord::Clock::time_point;

  /// Different checkpoints that are kept; of others, one warning tells.
  static constexpr std::size_t kCheckpointLimit = 64;

  /// The supervision of this process, made at the first call and never destroyed. It shows itself
  /// at the control socket. Throws std::bad_alloc.
  static Supervision& OfProcess();

  /// Reads the files in `fileDirectory`, and the time from `clock`.
  Supervision(std::string fileDirectory, std::function<TimePoint()> clock);

  /// From now on the checkpoints of `instance` are expected that the files tell; of several files
  /// that expect one checkpoint the first holds. Blocks for reading. Throws std::bad_alloc.
  void Begin(const std::string& instance) EXCLUDES(mutex);

  /// One warning tells of a checkpoint that is late, at most once a minute and cycle. Does not
  /// block. Throws std::bad_alloc.
  void Reached(const std::string& instance, std::uint16_t supervisionEntityId,
               std::uint16_t checkpointId) EXCLUDES(mutex);

  /// What the control socket shows: the instance that began last, and all checkpoints. Throws
  /// std::bad_alloc.
  [[nodiscard]] nlohmann::json Status() const EXCLUDES(mutex);

 private:
  struct Id {
    std::string instance;
    std::uint16_t supervisionEntityId;
    std::uint16_t checkpointId;

    friend bool operator<(const Id& left, const Id& right) {
      return std::tie(left.instance, left.supervisionEntityId, left.checkpointId) <
             std::tie(right.instance, right.supervisionEntityId, right.checkpointId);
    }
  };

  /// The log's name for a checkpoint: "1/2 of INSTANCE".
  [[nodiscard]] static std::string NameOf(const Id& id);

  [[nodiscard]] static nlohmann::json Described(const Id& id, const CheckpointRecord& record,
                                                TimePoint now);

  /// What the files expect of `instance`.
  [[nodiscard]] std::map<Id, CheckpointRule> RulesOf(const std::string& instance) const;

  /// Null above the limit.
  CheckpointRecord* Find(const Id& id) REQUIRES(mutex);

  const std::string directory;
  const std::function<TimePoint()> now;

  mutable support::Mutex mutex;
  std::string lastInstance GUARDED_BY(mutex);
  std::map<Id, CheckpointRecord> records GUARDED_BY(mutex);
  bool isLimitTold GUARDED_BY(mutex) = false;
};

}  // namespace platform_host

#endif
