#include "ssoa_socket/StreamCommunicator.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/doubles/PlannedPoll.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/UnixPeer.h"

namespace ssoa_socket {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::PlannedPoll;
using Bytes = std::vector<unsigned char>;

class Communicator : public ::testing::Test {
 protected:
  explicit Communicator(int readTimeoutMs = -1) {
    PlannedPoll::OfThread() = PlannedPoll();
    tests::ConnectedPair pair = tests::MakeConnectedPair();
    handle = std::to_string(pair.ours.Get());
    peer = std::move(pair.theirs);
    communicator =
        std::make_unique<StreamCommunicator>(std::move(pair.ours), readTimeoutMs, "Name: ");
  }
  ~Communicator() override { PlannedPoll::OfThread() = PlannedPoll(); }

  void Deliver(std::string_view bytes) const { ASSERT_TRUE(tests::SendAll(peer.Get(), bytes)); }
  void EndOfPeer() { peer = support::UniqueFd(); }

  std::unique_ptr<StreamCommunicator> communicator;
  support::UniqueFd peer;
  std::string handle;
  platform_host::CapturedLog log;
};

class ImpatientCommunicator : public Communicator {
 protected:
  ImpatientCommunicator() : Communicator(1) {}
};

TEST_F(Communicator, Read_WhatIsThere) {
  Deliver("abc");
  std::array<unsigned char, 10> buffer{};
  EXPECT_EQ(communicator->Read(buffer.data(), buffer.size()), 3);
  EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 3), "abc");
  EXPECT_THAT(log.Lines(), ElementsAre("verbose: Name: Read 3 byte(s)"));
}

TEST_F(Communicator, Read_NoMoreThanTheBufferHolds) {
  Deliver("abc");
  std::array<unsigned char, 2> buffer{};
  EXPECT_EQ(communicator->Read(buffer.data(), buffer.size()), 2);
  EXPECT_THAT(communicator->ReadNBytes(1), ElementsAre('c'));
}

TEST_F(Communicator, ReadIntoNothing_Said) {
  Deliver("abc");
  EXPECT_EQ(communicator->Read(nullptr, 0), 0);
  EXPECT_THAT(log.Lines(), ElementsAre("info: Name: Invalid buffer size on Read"));
}

TEST_F(Communicator, ReadAtTheEnd_Zero) {
  EndOfPeer();
  std::array<unsigned char, 2> buffer{};
  EXPECT_EQ(communicator->Read(buffer.data(), buffer.size()), 0);
  EXPECT_THAT(log.Lines(), ElementsAre("verbose: Name: Read 0 byte(s)"));
}

TEST_F(Communicator, ReadNBytes_AcrossPieces) {
  Deliver("ab");
  Bytes read;
  std::thread reader([&] { read = communicator->ReadNBytes(4); });
  Deliver("cd");
  reader.join();
  EXPECT_THAT(read, ElementsAre('a', 'b', 'c', 'd'));
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Communicator, ReadNBytes_NoMoreThanAskedFor) {
  Deliver("abcdef");
  EXPECT_THAT(communicator->ReadNBytes(2), ElementsAre('a', 'b'));
  EXPECT_THAT(communicator->ReadNBytes(4), ElementsAre('c', 'd', 'e', 'f'));
  EXPECT_THAT(communicator->ReadNBytes(0), IsEmpty());
}

TEST_F(Communicator, StreamEndsInTheMiddle_WhatCame) {
  Deliver("abc");
  EndOfPeer();
  EXPECT_THAT(communicator->ReadNBytes(4), ElementsAre('a', 'b', 'c'));
  EXPECT_THAT(log.Lines(), ElementsAre("info: Name: EOF received (socket closed from other end)"));
}

TEST_F(Communicator, StreamReset_AWarning) {
  // A peer that ends without having read what was sent resets the stream.
  EXPECT_EQ(communicator->Write(Bytes{1}), 1);
  EndOfPeer();
  log.Clear();
  EXPECT_THAT(communicator->ReadNBytes(1), IsEmpty());
  EXPECT_THAT(log.Lines(), ElementsAre("warning: Name: Error in reading socket"));
}

TEST_F(ImpatientCommunicator, SilenceInTheMiddle_WhatCameAndNoLine) {
  Deliver("abc");
  EXPECT_THAT(communicator->ReadNBytes(4), ElementsAre('a', 'b', 'c'));
  EXPECT_THAT(log.Lines(), IsEmpty());
  EXPECT_THAT(PlannedPoll::OfThread().timeouts, ElementsAre(1, 1));
}

TEST_F(Communicator, NoReadTimeout_WaitsWithoutLimit) {
  Deliver("a");
  EXPECT_THAT(communicator->ReadNBytes(1), ElementsAre('a'));
  EXPECT_THAT(PlannedPoll::OfThread().timeouts, ElementsAre(-1));
}

TEST_F(Communicator, Write_BothForms) {
  const std::array<unsigned char, 2> data{'a', 'b'};
  EXPECT_EQ(communicator->Write(data.data(), data.size()), 2);
  EXPECT_EQ(communicator->Write(Bytes{'c'}), 1);
  EXPECT_EQ(tests::ReadUpTo(peer.Get(), 3), "abc");
  EXPECT_THAT(log.Lines(),
              ElementsAre("verbose: Name: Wrote 2 byte(s)", "verbose: Name: Wrote 1 byte(s)"));
}

TEST_F(Communicator, WriteToAVanishedPeer_FailsWithoutASignal) {
  EndOfPeer();
  EXPECT_EQ(communicator->Write(Bytes{'c'}), -1);
  EXPECT_THAT(log.Lines(), ElementsAre("verbose: Name: Wrote -1 byte(s)"));
}

TEST_F(Communicator, Disconnect_PeerSeesTheEnd) {
  communicator->Disconnect();
  EXPECT_TRUE(tests::IsAtEnd(peer.Get()));
  EXPECT_FALSE(communicator->IsOpen());
  EXPECT_EQ(communicator->GetSocketHandle(), -1);
  EXPECT_THAT(log.Lines(), ElementsAre("debug: Name: Closing socket: " + handle));
}

TEST_F(Communicator, DisconnectAgain_Nothing) {
  communicator->Disconnect();
  log.Clear();
  communicator->Disconnect();
  communicator.reset();
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Communicator, Disconnected_EveryOperationSaysSo) {
  communicator->Disconnect();
  log.Clear();
  std::array<unsigned char, 2> buffer{};
  EXPECT_EQ(communicator->Read(buffer.data(), buffer.size()), -1);
  EXPECT_THAT(communicator->ReadNBytes(1), IsEmpty());
  EXPECT_EQ(communicator->Write(buffer.data(), buffer.size()), -1);
  EXPECT_EQ(communicator->Write(Bytes{1}), -1);
  EXPECT_EQ(communicator->Poll(-1), -1);
  EXPECT_EQ(communicator->TakeOwnershipOfSocketHandle(), -1);
  EXPECT_THAT(log.Lines(), ElementsAre("warning: Name: Trying to read from a closed socket",
                                       "warning: Name: Trying to read from a closed socket",
                                       "warning: Name: Trying to write to a closed socket",
                                       "warning: Name: Trying to write to a closed socket"));
}

TEST_F(Communicator, Poll_TellsWhatThereIs) {
  EXPECT_EQ(communicator->Poll(0), 0);
  Deliver("a");
  EXPECT_EQ(communicator->Poll(-1), 1);
}

TEST_F(Communicator, End_Disconnects) {
  communicator.reset();
  EXPECT_TRUE(tests::IsAtEnd(peer.Get()));
  EXPECT_THAT(log.Lines(), ElementsAre("debug: Name: Closing socket: " + handle));
}

TEST_F(Communicator, HandleTaken_StaysOpenBeyondTheEnd) {
  const support::UniqueFd taken(communicator->TakeOwnershipOfSocketHandle());
  EXPECT_EQ(std::to_string(taken.Get()), handle);
  EXPECT_TRUE(communicator->IsOpen());
  communicator.reset();
  Deliver("a");
  EXPECT_EQ(tests::ReadUpTo(taken.Get(), 1), "a");
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(Communicator, HandleTakenAndDisconnected_ItsOwnerCloses) {
  const auto before = tests::OpenDescriptors();
  support::UniqueFd taken(communicator->TakeOwnershipOfSocketHandle());
  communicator->Disconnect();
  EXPECT_TRUE(tests::IsAtEnd(peer.Get()));
  EXPECT_EQ(::fcntl(taken.Get(), F_GETFD), FD_CLOEXEC) << "open";
  EXPECT_EQ(taken.Close(), 0);
  EXPECT_EQ(tests::OpenDescriptors().size(), before.size() - 3) << "with both ends of the pipe";
}

TEST_F(Communicator, PeerOfAUnixSocket_Named) {
  ucred credentials{};
  ASSERT_EQ(communicator->GetProcessCredentials(&credentials), 0);
  EXPECT_EQ(credentials.pid, ::getpid());
  EXPECT_EQ(credentials.uid, ::geteuid());
  EXPECT_EQ(credentials.gid, ::getegid());
  communicator->Disconnect();
  EXPECT_EQ(communicator->GetProcessCredentials(&credentials), -1);
}

TEST_F(Communicator, PeerOfAnotherSocket_NotNamed) {
  StreamCommunicator other(support::UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), -1,
                           "Name: ");
  ucred credentials{};
  EXPECT_EQ(other.GetProcessCredentials(&credentials), -1);
}

TEST_F(Communicator, NoSocketAtAll_NotNamed) {
  StreamCommunicator other(support::UniqueFd(::epoll_create1(EPOLL_CLOEXEC)), -1, "Name: ");
  ucred credentials{};
  EXPECT_EQ(other.GetProcessCredentials(&credentials), -1);
}

TEST_F(Communicator, Tls_NeverThere) {
  EXPECT_TRUE(communicator->DropTls());
  EXPECT_EQ(communicator->GetAlpnProtocol(), "");
  EXPECT_TRUE(communicator->IsOpen());
}

}  // namespace
}  // namespace ssoa_socket
