#include "platform/host/ara_phm/Supervision.h"

#include <memory>
#include <optional>
#include <utility>

#include "csc_logging/CSCLogging.h"
#include "platform/host/control/ControlBoard.h"

namespace platform_host {

using csc_logging::CSCLogging;
using nlohmann::json;
using std::chrono::milliseconds;

namespace {

/// Tenths of a second, in which the files count.
constexpr milliseconds kTenth{100};

/// None where the process sends nothing: without a cycle, or with less than a tenth of a second for
/// each indication.
std::optional<CheckpointRule> RuleOf(const SupervisionFile& file) {
  const std::uint16_t indications = file.expectedAliveIndications;
  if (indications == 0 || file.supervisionCycle < indications) return std::nullopt;
  return CheckpointRule{indications, file.supervisionCycle * kTenth};
}

const char* NameOf(CheckpointRecord::Verdict verdict) {
  switch (verdict) {
    case CheckpointRecord::Verdict::kNotConfigured:
      return "not configured";
    case CheckpointRecord::Verdict::kStarting:
      return "starting";
    case CheckpointRecord::Verdict::kInTime:
      return "in time";
    case CheckpointRecord::Verdict::kLate:
      break;
  }
  return "late";
}

/// Never destroyed: threads may report until the very end.
struct ProcessSupervision {
  Supervision supervision{"/etc", [] { return CheckpointRecord::Clock::now(); }};
  const std::unique_ptr<ControlBoard::Offer> offer =
      ControlBoard::OfProcess().OfferStatus("supervision", [this] { return supervision.Status(); });
};

}  // namespace

Supervision& Supervision::OfProcess() {
  static auto* const made = new ProcessSupervision;
  return made->supervision;
}

Supervision::Supervision(std::string fileDirectory, std::function<TimePoint()> clock)
    : directory(std::move(fileDirectory)), now(std::move(clock)) {}

void Supervision::Begin(const std::string& instance) {
  const auto rules = RulesOf(instance);
  const TimePoint time = now();
  const support::MutexLock lock(mutex);
  lastInstance = instance;
  for (const auto& [id, rule] : rules) Find(id);
  for (auto& [id, record] : records) {
    if (id.instance != instance) continue;
    const auto rule = rules.find(id);
    record.Expect(rule == rules.end() ? std::nullopt : std::optional(rule->second), time);
  }
}

void Supervision::Reached(const std::string& instance, std::uint16_t supervisionEntityId,
                          std::uint16_t checkpointId) {
  const Id id{instance, supervisionEntityId, checkpointId};
  const TimePoint time = now();
  CheckpointRecord::Arrival arrival;
  bool isLimitDue = false;
  {
    const support::MutexLock lock(mutex);
    CheckpointRecord* const record = Find(id);
    if (record != nullptr) arrival = record->Reached(time);
    isLimitDue = record == nullptr && !std::exchange(isLimitTold, true);
  }
  if (isLimitDue) {
    CSCLogging::LogWarning("libara_phm: checkpoint " + NameOf(id) + " is not supervised: " +
                           std::to_string(kCheckpointLimit) + " others are");
  }
  if (arrival.isWarningDue) {
    CSCLogging::LogWarning("libara_phm: checkpoint " + NameOf(id) + " came " +
                           std::to_string(arrival.lateness.count()) + " ms late");
  }
}

json Supervision::Status() const {
  const TimePoint time = now();
  json checkpoints = json::array();
  const support::MutexLock lock(mutex);
  for (const auto& [id, record] : records) checkpoints.push_back(Described(id, record, time));
  return {{"instance", lastInstance}, {"checkpoints", std::move(checkpoints)}};
}

std::string Supervision::NameOf(const Id& id) {
  return std::to_string(id.supervisionEntityId) + "/" + std::to_string(id.checkpointId) + " of " +
         id.instance;
}

json Supervision::Described(const Id& id, const CheckpointRecord& record, TimePoint now) {
  json described = {{"instance", id.instance},
                    {"supervision_entity_id", id.supervisionEntityId},
                    {"checkpoint_id", id.checkpointId},
                    {"count", record.Count()},
                    {"age_ms", nullptr},
                    {"late", record.LateCount()},
                    {"expected", nullptr},
                    {"verdict", platform_host::NameOf(record.VerdictAt(now))}};
  if (const auto age = record.AgeAt(now)) described["age_ms"] = age->count();
  if (const auto& rule = record.Rule()) {
    described["expected"] = {{"indications", rule->indications}, {"cycle_ms", rule->cycle.count()}};
  }
  return described;
}

std::map<Supervision::Id, CheckpointRule> Supervision::RulesOf(const std::string& instance) const {
  std::map<Id, CheckpointRule> rules;
  for (const SupervisionFile& file : SupervisionFile::ReadAll(directory)) {
    const auto rule = RuleOf(file);
    if (file.instanceId != instance || !rule) continue;
    rules.emplace(Id{instance, file.supervisionEntityId, file.checkpointId}, *rule);
  }
  return rules;
}

CheckpointRecord* Supervision::Find(const Id& id) {
  const auto found = records.find(id);
  if (found != records.end()) return &found->second;
  if (records.size() >= kCheckpointLimit) return nullptr;
  return &records[id];
}

}  // namespace platform_host
