#include "ara/exec/ApplicationClient.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/host/control/ControlBoard.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "support/UniqueFd.h"
#include "tests/support/Deadline.h"
#include "tests/support/TemporaryDirectory.h"

namespace ara::exec {
namespace {

using ::testing::ElementsAre;

/// Stands in for the service manager: its notification socket.
class ApplicationReport : public ::testing::Test {
 protected:
  ~ApplicationReport() override { ::unsetenv("NOTIFY_SOCKET"); }

  void Listen() {
    bound.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof bound.sun_path);
    std::memcpy(bound.sun_path, path.c_str(), path.size());
    const bool isAbstract = path.front() == '@';
    if (isAbstract) bound.sun_path[0] = '\0';
    // An abstract name has no end of its own.
    const auto size = isAbstract ? offsetof(sockaddr_un, sun_path) + path.size() : sizeof bound;
    ASSERT_EQ(::bind(manager.Get(), reinterpret_cast<const sockaddr*>(&bound),
                     static_cast<socklen_t>(size)),
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
  std::string path = directory.Path() + "/notify";
  sockaddr_un bound{};
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

TEST_F(ApplicationReport, ServiceManagerReadsNothing_ErrorLineAfterAWhile) {
  Listen();
  const support::UniqueFd other{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  const auto* const address = reinterpret_cast<const sockaddr*>(&bound);
  while (::sendto(other.Get(), "x", 1, MSG_DONTWAIT, address, sizeof bound) == 1) {
  }
  bool isDelivered = true;
  EXPECT_TRUE(tests::EndsInTime(
      [&] {
        isDelivered = ApplicationClient().ReportApplicationState(ApplicationState::kTerminating);
      },
      [&] { static_cast<void>(Received()); }));
  EXPECT_FALSE(isDelivered);
  EXPECT_THAT(log.Lines(),
              ElementsAre("debug: libara_exec: application state terminating",
                          "error: libara_exec: cannot report application state terminating: "
                          "Resource temporarily unavailable"));
}

TEST_F(ApplicationReport, AbstractName_Told) {
  path = "@" + path;
  Listen();
  EXPECT_TRUE(ApplicationClient().ReportApplicationState(ApplicationState::kRunning));
  EXPECT_EQ(Received(), "READY=1");
}

TEST_F(ApplicationReport, NoAddress_ErrorLine) {
  for (const std::string& name :
       {std::string(), std::string("notify"), "/" + std::string(sizeof bound.sun_path - 1, 'x'),
        "@" + std::string(sizeof bound.sun_path - 1, 'x')}) {
    SCOPED_TRACE(name);
    ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
    EXPECT_FALSE(ApplicationClient().ReportApplicationState(ApplicationState::kRunning));
    EXPECT_EQ(log.Lines().back(),
              "error: libara_exec: cannot report application state running: Invalid argument");
  }
}

}  // namespace
}  // namespace ara::exec
