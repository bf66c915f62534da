#include "ssoa_socket/SocketCloseHelper.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/PlannedPoll.h"
#include "tests/support/Deadline.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/UnixPeer.h"

namespace ssoa_socket {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::PlannedPoll;

class CloseHelper : public ::testing::Test {
 protected:
  CloseHelper() { PlannedPoll::OfThread() = PlannedPoll(); }
  ~CloseHelper() override { PlannedPoll::OfThread() = PlannedPoll(); }

  const tests::ConnectedPair pair = tests::MakeConnectedPair();
  const SocketCloseHelper helper{pair.ours.Get(), "Name: "};
  platform_host::CapturedLog log;
};

TEST_F(CloseHelper, SocketReadable_One) {
  ASSERT_TRUE(tests::SendAll(pair.theirs.Get(), "x"));
  EXPECT_EQ(helper.Poll(-1), 1);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CloseHelper, Silence_ZeroAfterTheTimeout) {
  EXPECT_EQ(helper.Poll(1), 0);
  EXPECT_EQ(helper.Poll(0), 0);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CloseHelper, Closed_EveryPollEndsWithItsLine) {
  helper.SocketClosed();
  EXPECT_EQ(helper.Poll(-1), -1);
  EXPECT_EQ(helper.Poll(-1), -1);
  EXPECT_THAT(log.Lines(), ElementsAre("verbose: Name: CLOSED_MSG in pipe => socket closed",
                                       "verbose: Name: CLOSED_MSG in pipe => socket closed"));
}

TEST_F(CloseHelper, ClosedAndReadable_ClosedWins) {
  ASSERT_TRUE(tests::SendAll(pair.theirs.Get(), "x"));
  helper.SocketClosed();
  EXPECT_EQ(helper.Poll(-1), -1);
}

TEST_F(CloseHelper, ClosedMoreOftenThanAPipeHolds_NeverBlocks) {
  const auto closeOften = [this] {
    for (int i = 0; i < 70000; ++i) helper.SocketClosed();
  };
  // Nothing could release a write that blocks but its reader.
  ASSERT_TRUE(tests::EndsInTime(closeOften, [] {}));
  EXPECT_EQ(helper.Poll(-1), -1);
}

TEST_F(CloseHelper, ClosedByAnotherThread_EndsTheWaitsOfTwo) {
  std::thread first([this] { EXPECT_EQ(helper.Poll(-1), -1); });
  std::thread second([this] { EXPECT_EQ(helper.Poll(-1), -1); });
  helper.SocketClosed();
  first.join();
  second.join();
}

TEST_F(CloseHelper, PollFails_ItsResult) {
  const SocketCloseHelper& watching = helper;
  int result = 0;
  {
    const tests::DescriptorLimit limit(1);  // fewer than it waits on: EINVAL
    result = watching.Poll(-1);
  }
  EXPECT_EQ(result, -1);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CloseHelper, Interrupted_WaitsForTheRestOfTheTime) {
  // So often that some milliseconds pass on the fastest machine.
  PlannedPoll::OfThread().results.assign(200000, -1);
  PlannedPoll::OfThread().results.emplace_back(0);
  EXPECT_EQ(helper.Poll(60000), 0);
  const std::vector<int>& timeouts = PlannedPoll::OfThread().timeouts;
  ASSERT_EQ(timeouts.size(), 200001U);
  EXPECT_EQ(timeouts.front(), 60000);
  EXPECT_LT(timeouts.back(), 60000);
}

TEST_F(CloseHelper, InterruptedWithoutLimit_WaitsOnWithoutLimit) {
  PlannedPoll::OfThread().results = {-1, 0};
  EXPECT_EQ(helper.Poll(-1), 0);
  EXPECT_THAT(PlannedPoll::OfThread().timeouts, ElementsAre(-1, -1));
}

TEST_F(CloseHelper, InterruptedUntilTheTimeIsOver_WaitsNoMore) {
  // So many that a millisecond passes meanwhile.
  PlannedPoll::OfThread().results.assign(500000, -1);
  EXPECT_EQ(helper.Poll(1), 0);
  EXPECT_EQ(PlannedPoll::OfThread().timeouts.front(), 1);
  EXPECT_EQ(PlannedPoll::OfThread().timeouts.back(), 0);
}

TEST(CloseHelperWithoutPipe, EndOfTheSocket_EndsTheWait) {
  const tests::ConnectedPair pair = tests::MakeConnectedPair();
  std::optional<SocketCloseHelper> helper;
  {
    const tests::DescriptorLimit full(tests::DescriptorLimit::Used());
    helper.emplace(pair.ours.Get(), "Name: ");
  }
  EXPECT_EQ(helper->Poll(0), 0);
  helper->SocketClosed();
  EXPECT_EQ(helper->Poll(0), 0);
  ASSERT_EQ(::shutdown(pair.ours.Get(), SHUT_RDWR), 0);
  EXPECT_EQ(helper->Poll(-1), 1);
}

TEST(CloseHelperLife, End_ItsPipeIsClosedTheSocketIsNot) {
  const tests::ConnectedPair pair = tests::MakeConnectedPair();
  const auto before = tests::OpenDescriptors();
  {
    const SocketCloseHelper helper(pair.ours.Get(), "Name: ");
    const auto during = tests::OpenDescriptors();
    EXPECT_EQ(during.size(), before.size() + 2);
    for (const std::string& number : during) {
      if (before.count(number) > 0) continue;
      EXPECT_EQ(::fcntl(std::stoi(number), F_GETFD), FD_CLOEXEC) << "no child gets it";
    }
  }
  EXPECT_EQ(tests::OpenDescriptors(), before);
}

}  // namespace
}  // namespace ssoa_socket
