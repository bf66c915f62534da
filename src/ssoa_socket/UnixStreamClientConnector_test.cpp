#include "ssoa_socket/UnixStreamClientConnector.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UnixPeer.h"

namespace ssoa_socket {
namespace {

using ::testing::ElementsAre;
using tests::DescriptorLimit;

class UnixConnector : public ::testing::Test {
 protected:
  /// A path of `length` bytes in the test's folder.
  [[nodiscard]] std::string PathOfLength(std::size_t length) const {
    const std::string start = directory.Path() + "/";
    return start + std::string(length - start.size(), 'p');
  }

  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/socket";
  platform_host::CapturedLog log;
  UnixStreamClientConnector connector{path, -1, "Client"};
};

TEST_F(UnixConnector, Made_OneLine) {
  EXPECT_THAT(log.Lines(), ElementsAre("debug: ClientConnector: New connector: " + path));
}

TEST_F(UnixConnector, Server_ConnectedAndNamed) {
  const tests::UnixPeer server(path);
  log.Clear();
  const auto connection = connector.EstablishConnection();
  ASSERT_NE(connection, nullptr);
  const std::string handle = std::to_string(connection->GetSocketHandle());
  const support::UniqueFd served = server.Accept();
  connection->Disconnect();
  EXPECT_TRUE(tests::IsAtEnd(served.Get()));
  EXPECT_THAT(log.Lines(),
              ElementsAre("debug: ClientConnector: Connection opened. Socket: " + handle,
                          "debug: ClientCommunicator: Closing socket: " + handle));
}

TEST_F(UnixConnector, Connection_BlocksAndIsClosedOnExec) {
  const tests::UnixPeer server(path);
  const auto connection = connector.EstablishConnection();
  ASSERT_NE(connection, nullptr);
  EXPECT_EQ(::fcntl(connection->GetSocketHandle(), F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(::fcntl(connection->GetSocketHandle(), F_GETFD), FD_CLOEXEC);
}

TEST_F(UnixConnector, ReadTimeout_GoesOnToTheConnection) {
  UnixStreamClientConnector impatient(path, 1, "Client");
  const tests::UnixPeer server(path);
  const auto connection = impatient.EstablishConnection();
  ASSERT_NE(connection, nullptr);
  EXPECT_TRUE(connection->ReadNBytes(1).empty());
  EXPECT_TRUE(connection->IsOpen());
}

TEST_F(UnixConnector, NoSocket_OneErrorLineAndNothingLeftOpen) {
  log.Clear();
  const auto before = tests::OpenDescriptors();
  EXPECT_EQ(connector.EstablishConnection(), nullptr);
  EXPECT_THAT(log.Lines(), ElementsAre("error: ClientConnector: Connection failed, code:  -1"));
  EXPECT_EQ(tests::OpenDescriptors(), before);
}

TEST_F(UnixConnector, NobodyListensAnyMore_Refused) {
  support::UniqueFd abandoned(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(abandoned.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  abandoned = support::UniqueFd();
  log.Clear();
  EXPECT_EQ(connector.EstablishConnection(), nullptr);
  EXPECT_THAT(log.Lines(), ElementsAre("error: ClientConnector: Connection failed, code:  -1"));
}

TEST_F(UnixConnector, ServerBehindWithItsConnections_RefusedAtOnceAndTakenLater) {
  const tests::UnixPeer server(path, 0);
  std::vector<std::shared_ptr<StreamCommunicatorIf>> waiting;
  // Linux takes one more than the backlog; a bound, lest a server without one is filled for ever.
  for (auto next = connector.EstablishConnection(); next; next = connector.EstablishConnection()) {
    waiting.push_back(next);
    ASSERT_LT(waiting.size(), 100U);
  }
  EXPECT_EQ(log.Lines().back(), "error: ClientConnector: Connection failed, code:  -1");
  const support::UniqueFd served = server.Accept();
  EXPECT_NE(connector.EstablishConnection(), nullptr);
}

TEST_F(UnixConnector, NoDescriptorFree_OneErrorLine) {
  const tests::UnixPeer server(path);
  // A sanitizer opens a descriptor to look at an object for the first time.
  EXPECT_NE(connector.EstablishConnection(), nullptr);
  log.Clear();
  {
    const DescriptorLimit full(DescriptorLimit::Used());
    EXPECT_EQ(connector.EstablishConnection(), nullptr);
  }
  EXPECT_THAT(log.Lines(), ElementsAre("error: ClientConnector: Socket creation failed."));
}

TEST_F(UnixConnector, LongestPath_Whole) {
  const std::string longest = PathOfLength(107);
  const tests::UnixPeer server(longest);
  EXPECT_NE(UnixStreamClientConnector(longest, -1, "Client").EstablishConnection(), nullptr);
}

TEST_F(UnixConnector, PathOneLonger_CutWithoutALine) {
  const tests::UnixPeer server(PathOfLength(107));
  log.Clear();
  const auto connection =
      UnixStreamClientConnector(PathOfLength(108), -1, "Client").EstablishConnection();
  ASSERT_NE(connection, nullptr);
  EXPECT_THAT(log.Lines(),
              ElementsAre("debug: ClientConnector: New connector: " + PathOfLength(108),
                          "debug: ClientConnector: Connection opened. Socket: " +
                              std::to_string(connection->GetSocketHandle())));
}

TEST_F(UnixConnector, ManyConnections_NothingLeftOpen) {
  const tests::UnixPeer server(path);
  const auto before = tests::OpenDescriptors();
  for (int i = 0; i < 50; ++i) {
    const auto connection = connector.EstablishConnection();
    ASSERT_NE(connection, nullptr);
    const support::UniqueFd served = server.Accept();
    if (i % 2 == 0) connection->Disconnect();
  }
  EXPECT_EQ(tests::OpenDescriptors(), before);
}

}  // namespace
}  // namespace ssoa_socket
