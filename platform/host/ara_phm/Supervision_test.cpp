#include "platform/host/ara_phm/Supervision.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

using nlohmann::json;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Supervision whose files and time are the test's own.
class SupervisionOf : public ::testing::Test {
 protected:
  /// One file: `indications` in `cycle` tenths of a second.
  void Expect(const std::string& file, const std::string& instance, int checkpoint, int cycle,
              int indications) const {
    tests::WriteText(directory.Path() + "/" + file + "-phm.ini",
                     "[phm]\ninstance-id = " + instance + "\nsupervision-entity-id = 1\n" +
                         "checkpoint-id = " + std::to_string(checkpoint) +
                         "\nsupervision-cycle = " + std::to_string(cycle) +
                         "\nexpected-alive-indications = " + std::to_string(indications) + "\n");
  }

  void Pass(int time) { now = now.load() + milliseconds(time); }

  /// INSTANCE ENTITY/CHECKPOINT: VERDICT for each checkpoint.
  [[nodiscard]] std::vector<std::string> Verdicts() const {
    std::vector<std::string> verdicts;
    const json status = supervision.Status();
    for (const json& one : status["checkpoints"]) {
      verdicts.push_back(one["instance"].get<std::string>() + " " +
                         one["supervision_entity_id"].dump() + "/" + one["checkpoint_id"].dump() +
                         ": " + one["verdict"].get<std::string>());
    }
    return verdicts;
  }

  const tests::TemporaryDirectory directory;
  const CapturedLog log;
  std::atomic<Supervision::TimePoint> now{Supervision::TimePoint(std::chrono::hours(1))};
  Supervision supervision{directory.Path(), [this] { return now.load(); }};
};

TEST_F(SupervisionOf, NothingYet_Empty) {
  EXPECT_EQ(supervision.Status(), (json{{"instance", ""}, {"checkpoints", json::array()}}));
}

TEST_F(SupervisionOf, ReachedInTime_WholeStatus) {
  Expect("unit", "U", 2, 20, 2);
  supervision.Begin("U");
  supervision.Reached("U", 1, 2);
  Pass(1000);
  supervision.Reached("U", 1, 2);
  Pass(1412);
  EXPECT_EQ(supervision.Status(), json::parse(R"({"instance": "U", "checkpoints": [
      {"instance": "U", "supervision_entity_id": 1, "checkpoint_id": 2, "count": 2,
       "age_ms": 1412, "late": 0, "expected": {"indications": 2, "cycle_ms": 2000},
       "verdict": "in time"}]})"));
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(SupervisionOf, ExpectedAndNeverReached_ShownWithoutAge) {
  Expect("unit", "U", 2, 20, 2);
  supervision.Begin("U");
  EXPECT_THAT(Verdicts(), ElementsAre("U 1/2: starting"));
  Pass(2001);
  EXPECT_THAT(Verdicts(), ElementsAre("U 1/2: late"));
  EXPECT_EQ(supervision.Status()["checkpoints"][0]["age_ms"], nullptr);
}

TEST_F(SupervisionOf, NoFileMatches_NotConfigured) {
  Expect("a", "other", 2, 20, 2);
  Expect("b", "U", 3, 20, 2);
  supervision.Begin("U");
  supervision.Reached("U", 1, 2);
  Pass(100000);
  EXPECT_THAT(Verdicts(), ElementsAre("U 1/2: not configured", "U 1/3: late"));
  EXPECT_EQ(supervision.Status()["checkpoints"][0]["expected"], nullptr);
}

TEST_F(SupervisionOf, NoClient_NotConfigured) {
  Expect("unit", "U", 2, 20, 2);
  supervision.Reached("U", 1, 2);
  EXPECT_THAT(Verdicts(), ElementsAre("U 1/2: not configured"));
}

TEST_F(SupervisionOf, NothingDue_NotConfigured) {
  Expect("a", "U", 1, 0, 5);
  Expect("b", "U", 2, 50, 0);
  Expect("c", "U", 3, 4, 5);
  Expect("d", "U", 4, 5, 5);
  supervision.Begin("U");
  for (std::uint16_t id = 1; id <= 4; ++id) supervision.Reached("U", 1, id);
  EXPECT_THAT(Verdicts(), ElementsAre("U 1/1: not configured", "U 1/2: not configured",
                                      "U 1/3: not configured", "U 1/4: starting"));
}

TEST_F(SupervisionOf, SeveralFilesForOne_FirstHolds) {
  Expect("b", "U", 2, 100, 2);
  Expect("a", "U", 2, 20, 2);
  supervision.Begin("U");
  EXPECT_EQ(supervision.Status()["checkpoints"][0]["expected"]["cycle_ms"], 2000);
}

TEST_F(SupervisionOf, FileGoneAtNextClient_NoLongerExpected) {
  Expect("unit", "U", 2, 20, 2);
  supervision.Begin("U");
  std::filesystem::remove(directory.Path() + "/unit-phm.ini");
  supervision.Begin("U");
  EXPECT_THAT(Verdicts(), ElementsAre("U 1/2: not configured"));
}

TEST_F(SupervisionOf, OtherInstanceBegins_FirstStillExpected) {
  Expect("unit", "U", 2, 20, 2);
  supervision.Begin("U");
  supervision.Begin("V");
  supervision.Reached("V", 7, 8);
  EXPECT_THAT(Verdicts(), ElementsAre("U 1/2: starting", "V 7/8: not configured"));
  EXPECT_EQ(supervision.Status()["instance"], "V");
}

TEST_F(SupervisionOf, LateCheckpoint_OneWarning) {
  Expect("unit", "U", 2, 20, 2);
  supervision.Begin("U");
  Pass(2412);
  supervision.Reached("U", 1, 2);
  supervision.Reached("U", 1, 2);
  EXPECT_EQ(supervision.Status()["checkpoints"][0]["late"], 2);
  EXPECT_THAT(log.Lines(),
              ElementsAre("warning: libara_phm: checkpoint 1/2 of U came 412 ms late"));
}

TEST_F(SupervisionOf, CheckpointsAtLimit_AllKeptAndOneMoreWarnedOnce) {
  for (std::size_t id = 0; id < Supervision::kCheckpointLimit; ++id) {
    supervision.Reached("U", 1, static_cast<std::uint16_t>(id));
  }
  EXPECT_THAT(log.Lines(), IsEmpty());
  supervision.Reached("U", 1, 1000);
  supervision.Reached("U", 1, 1001);
  supervision.Reached("U", 1, 0);
  EXPECT_EQ(Verdicts().size(), Supervision::kCheckpointLimit);
  EXPECT_EQ(supervision.Status()["checkpoints"][0]["count"], 2);
  EXPECT_THAT(log.Lines(), ElementsAre("warning: libara_phm: checkpoint 1/1000 of U is not "
                                       "supervised: 64 others are"));
}

TEST_F(SupervisionOf, ManyThreads_EveryCheckpointCounted) {
  Expect("unit", "U", 2, 20, 2);
  std::vector<std::thread> threads;
  for (int index = 0; index < 4; ++index) {
    threads.emplace_back([this] {
      supervision.Begin("U");
      for (int round = 0; round < 250; ++round) {
        supervision.Reached("U", 1, 2);
        EXPECT_EQ(Verdicts().size(), 1U);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(supervision.Status()["checkpoints"][0]["count"], 1000);
}

}  // namespace
}  // namespace platform_host
