#include "platform/host/control/AnswerSlot.h"

#include <gtest/gtest.h>

#include "tests/support/LoopbackPeer.h"

namespace platform_host {
namespace {

TEST(AnswerSlot, NoAnswerYet_Nothing) {
  AnswerSlot slot(std::make_shared<const WakeEvent>());
  EXPECT_EQ(slot.Take(), std::nullopt);
}

TEST(AnswerSlot, Answer_TakenOnceAndWakes) {
  const auto wake = std::make_shared<const WakeEvent>();
  AnswerSlot slot(wake);
  slot.Put("line");
  EXPECT_TRUE(tests::WaitFor(wake->Descriptor(), POLLIN));
  EXPECT_EQ(slot.Take(), "line");
  EXPECT_EQ(slot.Take(), std::nullopt);
}

TEST(WakeEvent, Cleared_ReadableNoMore) {
  const WakeEvent wake;
  wake.Raise();
  wake.Raise();
  wake.Clear();
  pollfd wait{wake.Descriptor(), POLLIN, 0};
  EXPECT_EQ(::poll(&wait, 1, 0), 0);
}

}  // namespace
}  // namespace platform_host
