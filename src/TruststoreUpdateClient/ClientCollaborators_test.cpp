#include "TruststoreUpdateClient/ClientCollaborators.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <optional>
#include <thread>
#include <utility>

#include "tests/support/Interruptions.h"

namespace truststore_update_client {
namespace {

TEST(ClientCollaborators, Pause_TakesSecondWhateverSignalsCome) {
  const ClientCollaborators unit;
  const auto start = std::chrono::steady_clock::now();
  std::optional<tests::Interruptions> interruptions(std::in_place, ::pthread_self());
  // A few: each costs the wait a little of its progress.
  std::thread ending([&] {
    EXPECT_TRUE(tests::Interruptions::WaitForCount(10));
    interruptions.reset();
  });
  unit.pauseForSecond();
  ending.join();
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST(ClientCollaborators, Now_TimeOfSystem) {
  const ClientCollaborators unit;
  const auto before = std::chrono::system_clock::now();
  const auto now = unit.now();
  EXPECT_LE(before, now);
  EXPECT_LE(now, std::chrono::system_clock::now());
}

}  // namespace
}  // namespace truststore_update_client
