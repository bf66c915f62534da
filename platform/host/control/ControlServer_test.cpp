#include "platform/host/control/ControlServer.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <filesystem>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "support/Mutex.h"
#include "tests/support/ControlPeer.h"
#include "tests/support/Deadline.h"
#include "tests/support/EventLog.h"
#include "tests/support/Files.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

using nlohmann::json;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kStatus = R"({"command":"status"})";
constexpr const char* kEmptyStatus = R"({"ok":true,"status":{}})";
constexpr const char* kLater = R"({"command":"later"})";

/// Offers a command "later" and keeps its replies for the test to answer.
class KeptReplies {
 public:
  explicit KeptReplies(ControlBoard& board)
      : offer(board.OfferCommand("later",
                                 [this](const json&, const ControlReply& reply) { Add(reply); })) {}

  /// The oldest one, once there is one. Throws std::runtime_error after the deadline.
  [[nodiscard]] ControlReply Take() EXCLUDES(mutex) {
    const auto deadline = std::chrono::steady_clock::now() + tests::kDeadline;
    const support::MutexLock lock(mutex);
    while (replies.empty()) {
      if (!changed.WaitUntil(mutex, deadline)) throw std::runtime_error("nobody asks");
    }
    ControlReply reply = replies.front();
    replies.pop_front();
    return reply;
  }

 private:
  void Add(const ControlReply& reply) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    replies.push_back(reply);
    changed.NotifyAll();
  }

  support::Mutex mutex;
  support::ConditionVariable changed;
  std::deque<ControlReply> replies GUARDED_BY(mutex);
  const std::unique_ptr<ControlBoard::Offer> offer;
};

class ControlServerTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::unique_ptr<ControlServer> MustStart() { return MustStart(board); }

  [[nodiscard]] std::unique_ptr<ControlServer> MustStart(ControlBoard& offers) const {
    auto started = ControlServer::Start(path, offers);
    EXPECT_TRUE(started.Ok()) << (started.Ok() ? "" : started.Failure().Text());
    return started.Ok() ? std::move(started).Take() : nullptr;
  }

  [[nodiscard]] std::string FailureToStart() {
    const auto started = ControlServer::Start(path, board);
    return started.Ok() ? "started" : started.Failure().Text();
  }

  const tests::TemporaryDirectory directory;
  std::string path = directory.Path() + "/run/unit/control.sock";
  CapturedLog log;
  ControlBoard board;
};

TEST_F(ControlServerTest, Started_Serves) {
  const auto server = MustStart();
  const tests::ControlPeer client(path);
  EXPECT_EQ(client.Ask(kStatus), kEmptyStatus);
  EXPECT_EQ(client.Ask("x"), R"({"ok":false,"error":"the request is not JSON in UTF-8"})");
  EXPECT_EQ(tests::ControlPeer(path).Ask(kStatus), kEmptyStatus);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ControlServerTest, MissingDirectories_MadeForAllToPass) {
  const auto server = MustStart();
  for (const char* made : {"/run", "/run/unit"}) {
    struct stat status {};
    ASSERT_EQ(::stat((directory.Path() + made).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0755U);
  }
}

TEST_F(ControlServerTest, Thread_HasItsName) {
  const auto server = MustStart();
  ASSERT_EQ(tests::ControlPeer(path).Ask(kStatus), kEmptyStatus);
  std::vector<std::string> names;
  for (const auto& id : tests::RunningThreads()) {
    names.push_back(tests::ReadText("/proc/self/task/" + id + "/comm"));
  }
  EXPECT_THAT(names, Contains("HostControl\n"));
}

TEST_F(ControlServerTest, End_NothingLeftButTheLockFile) {
  // Beside the first thread a sanitizer makes one of its own, which stays.
  std::thread([] {}).join();
  const auto descriptors = tests::OpenDescriptors();
  const auto threads = tests::RunningThreads();
  MustStart().reset();
  EXPECT_EQ(tests::OpenDescriptors(), descriptors);
  EXPECT_TRUE(tests::Eventually([&] { return tests::ThreadsSince(threads).empty(); }));
  EXPECT_THAT(tests::NamesIn(directory.Path() + "/run/unit"), ElementsAre("control.sock.lock"));
}

TEST_F(ControlServerTest, StartedAgain_Serves) {
  MustStart().reset();
  const auto server = MustStart();
  EXPECT_EQ(tests::ControlPeer(path).Ask(kStatus), kEmptyStatus);
}

TEST_F(ControlServerTest, Unusable_Told) {
  tests::WriteText(directory.Path() + "/file", "");
  const std::string folder = directory.Path();
  struct Case {
    std::string path;
    std::string failure;
  };
  const std::string deep = folder + "/" + std::string(108 - folder.size(), 'x');
  const std::vector<Case> cases = {
      {folder + "/file", folder + "/file: File exists"},
      {folder + "/file/control.sock", folder + "/file/control.sock.lock: Not a directory"},
      {deep, deep + ": File name too long"},
  };
  for (const auto& one : cases) {
    path = one.path;
    EXPECT_EQ(FailureToStart(), one.failure);
  }
}

TEST_F(ControlServerTest, AnswerFromAnotherThread_Delivered) {
  KeptReplies replies(board);
  const auto server = MustStart();
  const tests::ControlPeer client(path);
  ASSERT_TRUE(client.Send(kLater));
  auto answering = std::async(std::launch::async, [reply = replies.Take()] {
    reply.Answer(json{{"sequence", 7}});
  });
  EXPECT_EQ(client.ReadLine(), R"({"ok":true,"sequence":7})");
}

TEST_F(ControlServerTest, RequestThatWaits_OthersServed) {
  KeptReplies replies(board);
  const auto server = MustStart();
  const tests::ControlPeer waiting(path);
  ASSERT_TRUE(waiting.Send(kLater));
  const ControlReply reply = replies.Take();
  EXPECT_EQ(tests::ControlPeer(path).Ask(kStatus), kEmptyStatus);
  reply.Refuse("no");
  EXPECT_EQ(waiting.ReadLine(), R"({"ok":false,"error":"no"})");
}

TEST_F(ControlServerTest, ClientsThatVanish_OthersServed) {
  KeptReplies replies(board);
  const auto server = MustStart();
  static_cast<void>(tests::ControlPeer(path));
  static_cast<void>(tests::SendAll(tests::ControlPeer(path).Descriptor(), "{\"comm"));
  static_cast<void>(tests::ControlPeer(path).Send(kLater));
  static_cast<void>(tests::ControlPeer(path).Send(kStatus));
  EXPECT_EQ(tests::ControlPeer(path).Ask(kStatus), kEmptyStatus);
}

TEST_F(ControlServerTest, EndWithClients_TheyHearTheEnd) {
  KeptReplies replies(board);
  auto server = MustStart();
  const tests::ControlPeer idle(path);
  EXPECT_EQ(idle.Ask(kStatus), kEmptyStatus);
  const tests::ControlPeer waiting(path);
  ASSERT_TRUE(waiting.Send(kLater));
  const ControlReply reply = replies.Take();
  server.reset();
  EXPECT_EQ(waiting.ReadLine(), "");
  EXPECT_TRUE(tests::IsAtEnd(idle.Descriptor()));
  EXPECT_TRUE(tests::IsAtEnd(waiting.Descriptor()));
  // Nobody is there to hear it, and nothing breaks.
  reply.Answer({});
}

TEST_F(ControlServerTest, RepliesDroppedJustBeforeTheEnd_ClientsToldWhy) {
  KeptReplies replies(board);
  auto server = MustStart();
  const tests::ControlPeer client(path);
  ASSERT_TRUE(client.Send(kLater));
  // Taken and dropped, as by a library that ends.
  static_cast<void>(replies.Take());
  server.reset();
  EXPECT_EQ(client.ReadLine(), R"({"ok":false,"error":"the process is ending"})");
}

TEST_F(ControlServerTest, EndDuringARequest_WaitsForIt) {
  std::promise<void> entered;
  std::promise<void> leave;
  std::atomic<bool> hasLeft{false};
  const auto offer = board.OfferStatus("part", [&] {
    entered.set_value();
    leave.get_future().wait();
    hasLeft = true;
    return json(1);
  });
  auto server = MustStart();
  const tests::ControlPeer client(path);
  ASSERT_TRUE(client.Send(kStatus));
  entered.get_future().wait();
  auto ended = std::async(std::launch::async, [&] {
    server.reset();
    return hasLeft.load();
  });
  leave.set_value();
  EXPECT_TRUE(ended.get());
  EXPECT_EQ(client.ReadLine(), R"({"ok":true,"status":{"part":1}})");
}

TEST_F(ControlServerTest, SecondServer_WaitsAndTakesOver) {
  ControlBoard otherBoard;
  const auto part = otherBoard.OfferStatus("second", [] { return json(true); });
  auto first = MustStart();
  const auto second = MustStart(otherBoard);
  const tests::ControlPeer client(path);
  EXPECT_EQ(client.Ask(kStatus), kEmptyStatus);
  EXPECT_THAT(log.Lines(), ElementsAre("info: libhost_control: another process serves " + path +
                                       "; this one waits for its end"));
  log.Clear();
  first.reset();
  EXPECT_TRUE(tests::Eventually([&] { return tests::ControlPeer(path).ConnectError() == 0; }));
  EXPECT_EQ(tests::ControlPeer(path).Ask(kStatus), R"({"ok":true,"status":{"second":true}})");
  EXPECT_TRUE(tests::Eventually([&] { return !log.Lines().empty(); }));
  EXPECT_THAT(log.Lines(), ElementsAre("info: libhost_control: serves " + path +
                                       " in place of a process that has ended"));
}

TEST_F(ControlServerTest, WaitingServerEnds_FirstServesOn) {
  const auto first = MustStart();
  MustStart().reset();
  EXPECT_EQ(tests::ControlPeer(path).Ask(kStatus), kEmptyStatus);
}

TEST_F(ControlServerTest, PathTakenWhileWaiting_ErrorLogged) {
  auto first = MustStart();
  const auto second = MustStart();
  std::filesystem::remove(path);
  tests::WriteText(path, "precious");
  log.Clear();
  first.reset();
  EXPECT_TRUE(tests::Eventually([&] { return !log.Lines().empty(); }));
  EXPECT_THAT(log.Lines(), ElementsAre("error: libhost_control: " + path + ": File exists"));
  EXPECT_EQ(tests::ReadText(path), "precious");
}

TEST_F(ControlServerTest, StartedAndEndedWithClients_EveryTimeOrderly) {
  for (int round = 0; round < 20; ++round) {
    std::atomic<bool> isOver{false};
    auto server = MustStart();
    auto asking = std::async(std::launch::async, [&] {
      while (!isOver) {
        const tests::ControlPeer client(path);
        const std::string answer = client.ConnectError() == 0 ? client.Ask(kStatus) : "";
        EXPECT_THAT(answer, ::testing::AnyOf("", "not sent", kEmptyStatus));
      }
    });
    EXPECT_EQ(tests::ControlPeer(path).Ask(kStatus), kEmptyStatus);
    server.reset();
    isOver = true;
    asking.get();
  }
}

TEST_F(ControlServerTest, OffersComeAndGoWhileAsked_EveryAnswerWhole) {
  const auto server = MustStart();
  std::atomic<bool> isOver{false};
  auto offering = std::async(std::launch::async, [&] {
    while (!isOver) {
      const auto part = board.OfferStatus("part", [] { return json(1); });
      const auto later = board.OfferCommand(
          "later", [](const json&, const ControlReply& reply) { reply.Answer({}); });
    }
  });
  const tests::ControlPeer client(path);
  for (int count = 0; count < 100; ++count) {
    EXPECT_THAT(client.Ask(kStatus),
                ::testing::AnyOf(kEmptyStatus, R"({"ok":true,"status":{"part":1}})"));
    EXPECT_THAT(
        client.Ask(kLater),
        ::testing::AnyOf(R"({"ok":true})",
                         R"({"ok":false,"error":"nobody serves the command \"later\" here"})"));
  }
  isOver = true;
  offering.get();
}

}  // namespace
}  // namespace platform_host
