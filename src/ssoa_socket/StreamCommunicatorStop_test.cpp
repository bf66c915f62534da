// What becomes of a thread that waits on a connection when another disconnects it, or a signal
// comes.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "ssoa_socket/StreamCommunicator.h"
#include "tests/doubles/PlannedPoll.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/Interruptions.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/UnixPeer.h"
#include "tests/support/WaitingThread.h"

namespace ssoa_socket {
namespace {

using platform_host::LogLevel;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::Interruptions;
using tests::PlannedPoll;
using tests::WaitingThread;
using Bytes = std::vector<unsigned char>;

class CommunicatorStop : public ::testing::Test {
 protected:
  void Connect() {
    tests::ConnectedPair pair = tests::MakeConnectedPair();
    handle = pair.ours.Get();
    peer = std::move(pair.theirs);
    communicator = std::make_unique<StreamCommunicator>(std::move(pair.ours), -1, "Name: ");
  }

  /// Sends until the connection takes no more. Returns how much it took.
  std::size_t Fill() const {
    const std::string piece(4096, 'x');
    std::size_t taken = 0;
    for (;;) {
      const auto count = ::send(handle, piece.data(), piece.size(), MSG_DONTWAIT);
      if (count <= 0) return taken;
      taken += static_cast<std::size_t>(count);
    }
  }

  std::unique_ptr<StreamCommunicator> communicator;
  support::UniqueFd peer;
  int handle = -1;
  platform_host::CapturedLog log;
};

/// The same, connected when the test begins.
class ConnectedStop : public CommunicatorStop {
 protected:
  ConnectedStop() { Connect(); }
};

TEST_F(ConnectedStop, DuringReadNBytes_EndsItAtOnce) {
  WaitingThread<Bytes> reader([this] { return communicator->ReadNBytes(1); });
  ASSERT_TRUE(reader.Waits());
  communicator->Disconnect();
  ASSERT_TRUE(reader.Ends());
  EXPECT_THAT(reader.Get(), IsEmpty());
  EXPECT_THAT(log.Lines(LogLevel::kDebug),
              ElementsAre("debug: Name: Closing socket: " + std::to_string(handle),
                          "info: Name: Socket closed"));
}

TEST_F(ConnectedStop, InTheMiddleOfReadNBytes_WhatCameIsReturned) {
  ASSERT_TRUE(tests::SendAll(peer.Get(), "ab"));
  WaitingThread<Bytes> reader([this] { return communicator->ReadNBytes(3); });
  ASSERT_TRUE(reader.Waits());
  communicator->Disconnect();
  ASSERT_TRUE(reader.Ends());
  EXPECT_THAT(reader.Get(), ElementsAre('a', 'b'));
}

TEST_F(ConnectedStop, DuringRead_EndsIt) {
  unsigned char byte = 0;
  WaitingThread<std::ptrdiff_t> reader([&] { return communicator->Read(&byte, 1); });
  ASSERT_TRUE(reader.Waits());
  communicator->Disconnect();
  ASSERT_TRUE(reader.Ends());
  EXPECT_EQ(reader.Get(), -1);
}

TEST_F(ConnectedStop, DuringPoll_EndsIt) {
  WaitingThread<int> poller([this] { return communicator->Poll(-1); });
  ASSERT_TRUE(poller.Waits());
  communicator->Disconnect();
  ASSERT_TRUE(poller.Ends());
  EXPECT_EQ(poller.Get(), -1);
}

TEST_F(ConnectedStop, DuringWriteThatNobodyReads_EndsIt) {
  Fill();
  WaitingThread<std::ptrdiff_t> writer([this] { return communicator->Write(Bytes(1)); });
  ASSERT_TRUE(writer.Waits());
  communicator->Disconnect();
  EXPECT_TRUE(writer.Ends());
  peer = support::UniqueFd();
  EXPECT_EQ(writer.Get(), -1);
}

TEST_F(CommunicatorStop, WithoutAPipe_TheSocketItselfEndsTheRead) {
  tests::ConnectedPair pair = tests::MakeConnectedPair();
  std::unique_ptr<StreamCommunicator> made;
  {
    const tests::DescriptorLimit full(tests::DescriptorLimit::Used());
    made = std::make_unique<StreamCommunicator>(std::move(pair.ours), -1, "Name: ");
  }
  communicator = std::move(made);
  WaitingThread<Bytes> reader([this] { return communicator->ReadNBytes(1); });
  ASSERT_TRUE(reader.Waits());
  communicator->Disconnect();
  EXPECT_TRUE(reader.Ends());
  EXPECT_THAT(reader.Get(), IsEmpty());
  EXPECT_EQ(log.Lines().back(), "info: Name: EOF received (socket closed from other end)");
}

TEST_F(ConnectedStop, BySeveralThreads_OneLine) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back([this] { communicator->Disconnect(); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(log.Lines(), ElementsAre("debug: Name: Closing socket: " + std::to_string(handle)));
}

// Whoever reads must never meet the number of its socket as another file.
TEST_F(CommunicatorStop, NumberReusedAtOnce_TheReaderNeverReadsTheOtherFile) {
  const auto before = tests::OpenDescriptors();
  for (int round = 0; round < 100; ++round) {
    Connect();
    WaitingThread<Bytes> reader([this] { return communicator->ReadNBytes(1); });
    if (round % 2 == 0) {
      ASSERT_TRUE(reader.Waits());
    }
    communicator->Disconnect();
    const tests::ConnectedPair other = tests::MakeConnectedPair();
    ASSERT_TRUE(tests::SendAll(other.ours.Get(), "foreign"));
    ASSERT_TRUE(tests::SendAll(other.theirs.Get(), "foreign"));
    ASSERT_TRUE(reader.Ends());
    ASSERT_THAT(reader.Get(), IsEmpty());
  }
  peer = support::UniqueFd();
  EXPECT_EQ(tests::OpenDescriptors(), before);
}

std::atomic<int> gate{-1};
std::atomic<bool> isHeldUp{false};

/// Holds `thread` up inside the system call that it waits in, until a byte comes on `descriptor`.
void HoldUp(pthread_t thread, int descriptor) {
  gate = descriptor;
  struct sigaction action {};
  action.sa_handler = [](int) {
    isHeldUp = true;
    char byte = 0;
    static_cast<void>(!::read(gate, &byte, 1));
  };
  ::sigaction(SIGUSR2, &action, nullptr);
  ::pthread_kill(thread, SIGUSR2);
  ASSERT_TRUE(tests::Eventually([] { return isHeldUp.load(); }));
}

TEST_F(ConnectedStop, WhileAnOperationIsHeldUp_TheDescriptorStaysItsOwn) {
  const tests::ConnectedPair release = tests::MakeConnectedPair();
  WaitingThread<Bytes> reader([this] { return communicator->ReadNBytes(1); });
  ASSERT_TRUE(reader.Waits());
  HoldUp(reader.Thread(), release.ours.Get());
  communicator->Disconnect();
  EXPECT_EQ(::fcntl(handle, F_GETFD), FD_CLOEXEC) << "closed under the reader";
  ASSERT_TRUE(tests::SendAll(release.theirs.Get(), "x"));
  ASSERT_TRUE(reader.Ends());
  EXPECT_THAT(reader.Get(), IsEmpty());
  EXPECT_EQ(::fcntl(handle, F_GETFD), -1) << "closed once the reader has left";
}

TEST_F(ConnectedStop, SignalsDuringReadNBytes_NoLostConnection) {
  WaitingThread<Bytes> reader([this] { return communicator->ReadNBytes(1); });
  ASSERT_TRUE(reader.Waits());
  {
    const Interruptions interruptions(reader.Thread());
    ASSERT_TRUE(Interruptions::WaitForCount(20));
  }
  EXPECT_FALSE(reader.HasEnded());
  ASSERT_TRUE(tests::SendAll(peer.Get(), "a"));
  EXPECT_THAT(reader.Get(), ElementsAre('a'));
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ConnectedStop, SignalsInsideRecv_NoLostConnection) {
  WaitingThread<Bytes> reader([this] {
    PlannedPoll::OfThread().results = {1};  // nothing is there: recv itself waits
    return communicator->ReadNBytes(1);
  });
  ASSERT_TRUE(reader.Waits());
  {
    const Interruptions interruptions(reader.Thread());
    ASSERT_TRUE(Interruptions::WaitForCount(20));
  }
  ASSERT_TRUE(tests::SendAll(peer.Get(), "a"));
  EXPECT_THAT(reader.Get(), ElementsAre('a'));
}

TEST_F(ConnectedStop, SignalsDuringAWriteThatWaits_TheWriteGoesOn) {
  const std::size_t filled = Fill();
  WaitingThread<std::ptrdiff_t> writer([this] { return communicator->Write(Bytes(1)); });
  ASSERT_TRUE(writer.Waits());
  {
    const Interruptions interruptions(writer.Thread());
    ASSERT_TRUE(Interruptions::WaitForCount(20));
  }
  EXPECT_FALSE(writer.HasEnded());
  EXPECT_EQ(tests::ReadUpTo(peer.Get(), filled + 1).size(), filled + 1);
  EXPECT_EQ(writer.Get(), 1);
}

}  // namespace
}  // namespace ssoa_socket
