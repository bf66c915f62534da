#include "ara/exec/ApplicationClient.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstdlib>
#include <cstring>

#include "platform/host/control/ControlBoard.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "support/UniqueFd.h"
#include "tests/support/TemporaryDirectory.h"

namespace ara::exec {
namespace {

using ::testing::ElementsAre;

/// Stands in for the service manager: its notification socket.
class ApplicationReport : public ::testing::Test {
 protected:
  ~ApplicationReport() override { ::unsetenv("NOTIFY_SOCKET"); }

  void Listen() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path.c_str(), path.size());
    ASSERT_EQ(::bind(manager.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
              0);
    ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
  }

  /// The next notification, or "none".
  [[nodiscard]] std::string Received() const {
    std::array<char, 256> bytes{};
    const ssize_t count = ::recv(manager.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    return count < 0 ? "none" : std::string(bytes.data(), static_cast<std::size_t>(count));
  }

  /// What the control socket answers to "status".
  [[nodiscard]] static std::string Shown() {
    std::string shown;
    platform_host::ControlBoard::OfProcess().Serve(
        R"({"command": "status"})",
        platform_host::ControlReply([&shown](const std::string& line) { shown = line; }));
    return shown;
  }

  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/notify";
  const support::UniqueFd manager{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  const platform_host::CapturedLog log;
};

TEST_F(ApplicationReport, Running_ReadyTold) {
  Listen();
  EXPECT_TRUE(ApplicationClient().ReportApplicationState(ApplicationState::kRunning));
  EXPECT_EQ(Received(), "READY=1");
  EXPECT_EQ(Received(), "none");
  EXPECT_THAT(log.Lines(), ElementsAre("debug: libara_exec: application state running"));
}

TEST_F(ApplicationReport, Terminating_StoppingTold) {
  Listen();
  EXPECT_TRUE(ApplicationClient().ReportApplicationState(ApplicationState::kTerminating));
  EXPECT_EQ(Received(), "STOPPING=1");
  EXPECT_THAT(log.Lines(), ElementsAre("debug: libara_exec: application state terminating"));
}

TEST_F(ApplicationReport, ReportedAgain_ToldAgain) {
  Listen();
  EXPECT_TRUE(ApplicationClient().ReportApplicationState(ApplicationState::kRunning));
  EXPECT_TRUE(ApplicationClient().ReportApplicationState(ApplicationState::kRunning));
  EXPECT_EQ(Received(), "READY=1");
  EXPECT_EQ(Received(), "READY=1");
}

TEST_F(ApplicationReport, LastReport_ShownOnBoard) {
  EXPECT_TRUE(ApplicationClient().ReportApplicationState(ApplicationState::kRunning));
  EXPECT_EQ(Shown(), R"({"ok":true,"status":{"application":{"state":"running"}}})");
  EXPECT_TRUE(ApplicationClient().ReportApplicationState(ApplicationState::kTerminating));
  EXPECT_EQ(Shown(), R"({"ok":true,"status":{"application":{"state":"terminating"}}})");
}

TEST_F(ApplicationReport, NotDelivered_StillShownOnBoard) {
  EXPECT_TRUE(ApplicationClient().ReportApplicationState(ApplicationState::kRunning));
  ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
  EXPECT_FALSE(ApplicationClient().ReportApplicationState(ApplicationState::kTerminating));
  EXPECT_EQ(Shown(), R"({"ok":true,"status":{"application":{"state":"terminating"}}})");
}

TEST_F(ApplicationReport, NoServiceManager_OnlyDebugLine) {
  ::unsetenv("NOTIFY_SOCKET");
  EXPECT_TRUE(ApplicationClient().ReportApplicationState(ApplicationState::kRunning));
  EXPECT_THAT(log.Lines(), ElementsAre("debug: libara_exec: application state running"));
}

TEST_F(ApplicationReport, ServiceManagerGone_ErrorLine) {
  ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
  EXPECT_FALSE(ApplicationClient().ReportApplicationState(ApplicationState::kRunning));
  EXPECT_THAT(log.Lines(),
              ElementsAre("debug: libara_exec: application state running",
                          "error: libara_exec: cannot report application state running: No such "
                          "file or directory"));
}

}  // namespace
}  // namespace ara::exec
