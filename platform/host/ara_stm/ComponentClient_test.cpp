// The contract, through the control socket.
#include "ara/stm/ComponentClient.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "tests/support/ControlPeer.h"
#include "tests/support/EventLog.h"
#include "tests/support/Files.h"
#include "tests/support/HostConfiguration.h"
#include "tests/support/ProcessUse.h"

namespace ara::stm {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::ControlPeer;

constexpr const char* kDemandOn = R"({"command":"state","state":"kOn"})";
constexpr const char* kDemandPrepSD = R"({"command":"state","state":"kPrepSD"})";
constexpr const char* kStatus = R"({"command":"status"})";
constexpr const char* kEnding = R"({"ok":false,"error":"the process is ending"})";

class ComponentClientTest : public ::testing::Test {
 protected:
  /// Makes a client whose handler notes "STATE SEQUENCE" and confirms nothing.
  [[nodiscard]] ComponentClientResult Create() {
    return createComponentClient(
        "unit", [this](const ComponentClient&, std::uint32_t sequence, const std::string& state) {
          heard.Add(state + " " + std::to_string(sequence));
        });
  }

  const tests::TemporaryDirectory directory;
  const std::string socket = directory.Path() + "/control.sock";
  const tests::HostConfiguration configuration{"[control]\nsocket = \"" + socket + "\"\n"};
  const platform_host::CapturedLog log;
  tests::EventLog heard;
};

TEST_F(ComponentClientTest, DemandedAndConfirmed_Answered) {
  const auto created = Create();
  ASSERT_NE(created.client, nullptr) << created.error;
  EXPECT_EQ(created.error, "");
  const ControlPeer peer(socket);
  ASSERT_TRUE(peer.Send(kDemandPrepSD));
  ASSERT_TRUE(heard.WaitFor("kPrepSD 1"));
  created.client->ConfirmState(1, "kPrepSD");
  EXPECT_EQ(peer.ReadLine(), R"({"ok":true,"sequence":1,"state":"kPrepSD"})");
  EXPECT_EQ(peer.Ask(kStatus),
            R"({"ok":true,"status":{"component":{"confirmed":{"sequence":1,"state":"kPrepSD"},)"
            R"("name":"unit","requested":{"sequence":1,"state":"kPrepSD"}}}})");
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ComponentClientTest, LaterConfirmedFirst_EarlierRefused) {
  const auto created = Create();
  ASSERT_NE(created.client, nullptr) << created.error;
  const ControlPeer first(socket);
  ASSERT_TRUE(first.Send(kDemandPrepSD));
  ASSERT_TRUE(heard.WaitFor("kPrepSD 1"));
  const ControlPeer second(socket);
  ASSERT_TRUE(second.Send(kDemandOn));
  ASSERT_TRUE(heard.WaitFor("kOn 2"));
  created.client->ConfirmState(2, "kOn");
  EXPECT_EQ(first.ReadLine(), R"({"ok":false,"error":"superseded by request 2"})");
  EXPECT_EQ(second.ReadLine(), R"({"ok":true,"sequence":2,"state":"kOn"})");
}

TEST_F(ComponentClientTest, End_WaitingRequestRefusedAndNothingLeft) {
  ASSERT_NE(Create().client, nullptr) << "after the first one the process has all that stays";
  const auto threads = tests::RunningThreads();
  const auto descriptors = tests::OpenDescriptors();
  auto created = Create();
  ASSERT_NE(created.client, nullptr) << created.error;
  ControlPeer peer(socket);
  ASSERT_TRUE(peer.Send(kDemandOn));
  ASSERT_TRUE(heard.WaitFor("kOn 1"));
  created.client.reset();
  EXPECT_EQ(peer.ReadLine(), kEnding);
  EXPECT_EQ(peer.ReadLine(), "") << "the connection is closed";
  EXPECT_EQ(ControlPeer(socket).ConnectError(), ENOENT);
  peer.Close();
  // The system lists a thread that has been joined for a moment more.
  EXPECT_TRUE(tests::Eventually([&] { return tests::ThreadsSince(threads).empty(); }));
  EXPECT_EQ(tests::OpenDescriptors(), descriptors);
}

TEST_F(ComponentClientTest, HandlerAtWork_StatusStillServed) {
  std::promise<void> released;
  const auto created =
      createComponentClient("unit", [this, release = released.get_future().share()](
                                        const ComponentClient&, std::uint32_t, const std::string&) {
        heard.Add("begun");
        release.wait();
      });
  ASSERT_NE(created.client, nullptr) << created.error;
  const ControlPeer demanding(socket);
  ASSERT_TRUE(demanding.Send(kDemandOn));
  ASSERT_TRUE(heard.WaitFor("begun"));
  EXPECT_NE(ControlPeer(socket).Ask(kStatus).find(R"("confirmed":null)"), std::string::npos);
  released.set_value();
}

TEST_F(ComponentClientTest, SecondOne_ErrorUntilFirstHasEnded) {
  auto first = Create();
  ASSERT_NE(first.client, nullptr) << first.error;
  const auto second = Create();
  EXPECT_EQ(second.client, nullptr);
  EXPECT_EQ(second.error, "there is a component client already");
  first.client.reset();
  const auto third = Create();
  EXPECT_NE(third.client, nullptr) << third.error;
  EXPECT_EQ(ControlPeer(socket).Ask(R"({"command":"state"})"),
            R"({"ok":false,"error":"the request has no \"state\" that is a text"})");
}

TEST_F(ComponentClientTest, NoHandler_Error) {
  const auto created = createComponentClient("unit", nullptr);
  EXPECT_EQ(created.client, nullptr);
  EXPECT_EQ(created.error, "there is no handler");
}

TEST_F(ComponentClientTest, BrokenConfiguration_ErrorAndPlaceStillFree) {
  {
    const tests::HostConfiguration broken("[control]\nsockt = 1\n");
    const auto created = Create();
    EXPECT_EQ(created.client, nullptr);
    EXPECT_EQ(created.error, broken.File() + ":2: control.sockt: unknown key");
  }
  EXPECT_NE(Create().client, nullptr);
}

TEST_F(ComponentClientTest, NoPlaceForSocket_ErrorAndPlaceStillFree) {
  tests::WriteText(directory.Path() + "/file", "");
  {
    const std::string path = directory.Path() + "/file/control.sock";
    const tests::HostConfiguration unusable("[control]\nsocket = \"" + path + "\"\n");
    const auto created = Create();
    EXPECT_EQ(created.client, nullptr);
    EXPECT_EQ(created.error, path + ".lock: Not a directory");
  }
  EXPECT_NE(Create().client, nullptr);
}

TEST_F(ComponentClientTest, RequestsConfirmationsAndEndAtOnce_EachAnsweredOrClosed) {
  constexpr int kPeers = 3;
  std::atomic<bool> hasEnded{false};
  std::promise<ComponentClient*> made;
  auto created = createComponentClient(
      "unit", [&hasEnded, ready = made.get_future().share()](
                  const ComponentClient&, std::uint32_t sequence, const std::string& state) {
        EXPECT_FALSE(hasEnded);
        ready.get()->ConfirmState(sequence, state);
      });
  ASSERT_NE(created.client, nullptr) << created.error;
  made.set_value(created.client.get());
  std::vector<std::thread> peers;
  for (int index = 0; index < kPeers; ++index) {
    peers.emplace_back([this] {
      const ControlPeer peer(socket);
      std::string answer;
      do {
        answer = peer.Ask(kDemandOn);
      } while (answer.find(R"({"ok":true,"sequence":)") == 0 ||
               answer == R"({"ok":false,"error":"busy"})");
      heard.Add(answer);
    });
  }
  for (std::uint32_t sequence = 1; sequence <= 20; ++sequence) {
    created.client->ConfirmState(sequence, "kOn");
  }
  created.client.reset();
  hasEnded = true;
  for (auto& peer : peers) peer.join();
  for (const std::string& answer : heard.Texts()) {
    EXPECT_TRUE(answer == kEnding || answer.empty() || answer == "not sent" ||
                answer.find(R"({"ok":false,"error":"superseded by request )") == 0 ||
                answer.find(R"({"ok":false,"error":"nobody serves)") == 0)
        << answer;
  }
}

}  // namespace
}  // namespace ara::stm
