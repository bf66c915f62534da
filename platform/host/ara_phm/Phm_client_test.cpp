// The contract, on the supervision of this process.
#include "ara/phm/Phm_client.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "ara/phm/HealthChannel.h"
#include "ara/phm/SupervisionEntity.h"
#include "platform/host/control/ControlBoard.h"

namespace ara::phm {
namespace {

using nlohmann::json;

/// What the control socket shows of supervision.
json Shown() {
  json answer;
  platform_host::ControlBoard::OfProcess().Serve(
      R"({"command": "status"})",
      platform_host::ControlReply([&](const std::string& line) { answer = json::parse(line); }));
  return answer["status"]["supervision"];
}

/// How often checkpoint 1/`checkpoint` of `instance` has been reached in this process.
std::uint64_t CountOf(const std::string& instance, int checkpoint) {
  const json shown = Shown();
  for (const json& one : shown["checkpoints"]) {
    if (one["instance"] == instance && one["checkpoint_id"] == checkpoint) {
      return one["count"].get<std::uint64_t>();
    }
  }
  return 0;
}

TEST(PhmClient, Made_NameKeptAndShown) {
  const Phm_client client("first of this test");
  EXPECT_EQ(client.InstanceId(), "first of this test");
  EXPECT_EQ(Shown()["instance"], "first of this test");
}

TEST(PhmClient, CheckpointReached_ShownOnBoard) {
  const Phm_client client("counted");
  const auto before = CountOf("counted", 65535);
  SupervisionEntity entity(client);
  const HealthChannel channel(client);
  entity.CheckpointReached(1, 65535);
  entity.CheckpointReached(1, 65535);
  EXPECT_EQ(CountOf("counted", 65535), before + 2);
}

TEST(PhmClient, Gone_EntityStillReports) {
  auto client = std::make_unique<Phm_client>("outlived");
  const auto before = CountOf("outlived", 3);
  SupervisionEntity entity(*client);
  client.reset();
  entity.CheckpointReached(1, 3);
  EXPECT_EQ(CountOf("outlived", 3), before + 1);
}

TEST(PhmClient, ReportsOfManyThreads_AllCounted) {
  const Phm_client client("threads");
  const auto before = CountOf("threads", 4);
  SupervisionEntity entity(client);
  std::vector<std::thread> threads;
  for (int index = 0; index < 4; ++index) {
    threads.emplace_back([&entity] {
      for (int round = 0; round < 100; ++round) entity.CheckpointReached(1, 4);
    });
  }
  for (int round = 0; round < 20; ++round) EXPECT_TRUE(Shown().is_object());
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(CountOf("threads", 4), before + 400);
}

}  // namespace
}  // namespace ara::phm
