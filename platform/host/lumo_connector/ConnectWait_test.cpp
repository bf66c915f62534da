#include "platform/host/lumo_connector/ConnectWait.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <future>

#include "support/UniqueFd.h"

namespace platform_host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

/// A stop descriptor, and another one to wait for.
class Waiting : public ::testing::Test {
 protected:
  [[nodiscard]] ConnectWait Until(seconds left) const {
    return {[] { return steady_clock::time_point(seconds(1000)); },
            steady_clock::time_point(seconds(1000) + left), stop.Get()};
  }

  static void Signal(const support::UniqueFd& event) { ::eventfd_write(event.Get(), 1); }

  const support::UniqueFd stop{::eventfd(0, EFD_CLOEXEC)};
  const support::UniqueFd event{::eventfd(0, EFD_CLOEXEC)};
};

int StatusOf(const ConnectOutcome& outcome) {
  return outcome ? outcome->status : 0;
}

TEST_F(Waiting, Ready_Ends) {
  Signal(event);
  EXPECT_EQ(StatusOf(Until(seconds(30)).Until(event.Get(), POLLIN)), 0);
}

TEST_F(Waiting, DeadlinePassed_TimedOut) {
  const auto outcome = Until(seconds(0)).Until(event.Get(), POLLIN);
  ASSERT_TRUE(outcome);
  EXPECT_EQ(outcome->status, ETIMEDOUT);
  EXPECT_EQ(outcome->reason, "timed out");
}

TEST_F(Waiting, ReadyAfterTheDeadline_TimedOut) {
  Signal(event);
  EXPECT_EQ(StatusOf(Until(seconds(0)).Until(event.Get(), POLLIN)), ETIMEDOUT);
}

TEST_F(Waiting, Stopped_Canceled) {
  auto waiting = std::async(std::launch::async,
                            [this] { return Until(seconds(30)).Until(event.Get(), POLLIN); });
  Signal(stop);
  const auto outcome = waiting.get();
  ASSERT_TRUE(outcome);
  EXPECT_EQ(outcome->status, ECANCELED);
  EXPECT_EQ(outcome->reason, "stopped");
}

TEST_F(Waiting, StoppedAndReady_Canceled) {
  Signal(stop);
  Signal(event);
  EXPECT_EQ(StatusOf(Until(seconds(30)).Until(event.Get(), POLLIN)), ECANCELED);
}

TEST_F(Waiting, BrokenDescriptor_Ends) {
  EXPECT_EQ(StatusOf(Until(seconds(30)).Until(10000, POLLIN)), 0);
}

TEST_F(Waiting, Check_TellsWithoutWaiting) {
  EXPECT_EQ(StatusOf(Until(seconds(30)).Check()), 0);
  EXPECT_EQ(StatusOf(Until(seconds(0)).Check()), ETIMEDOUT);
  Signal(stop);
  EXPECT_EQ(StatusOf(Until(seconds(30)).Check()), ECANCELED);
}

TEST_F(Waiting, Part_EndsEarlierThanTheWhole) {
  const auto whole = Until(seconds(30));
  EXPECT_EQ(StatusOf(whole.Part(0.0, seconds(10)).Until(event.Get(), POLLIN)), ETIMEDOUT);
  EXPECT_EQ(StatusOf(whole.Part(0.5, milliseconds(0)).Until(event.Get(), POLLIN)), ETIMEDOUT);
  EXPECT_EQ(StatusOf(whole.Part(0.5, seconds(10)).Check()), 0);
}

}  // namespace
}  // namespace platform_host
