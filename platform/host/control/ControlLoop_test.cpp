#include "platform/host/control/ControlLoop.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/control/SocketLock.h"
#include "platform/host/csc_logging/CapturedLog.h"
#include "support/FileContents.h"
#include "support/UniqueFd.h"
#include "support/WorkerThread.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/support/ControlPeer.h"
#include "tests/support/EventLog.h"
#include "tests/support/Files.h"
#include "tests/support/ProcessUse.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;

constexpr const char* kStatus = R"({"command":"status"})";

constexpr const char* kThreadName = "TestControl";

/// The loop's thread as the system sees it (proc(5)), without a descriptor for each look.
class LoopThread {
 public:
  LoopThread() {
    EXPECT_TRUE(tests::Eventually([this] { return Find(); }));
  }

  [[nodiscard]] bool IsAsleep() const { return Read().find(") S ") != std::string::npos; }

 private:
  bool Find() {
    for (const auto& id : tests::RunningThreads()) {
      const std::string path = "/proc/self/task/" + id + "/stat";
      status = support::UniqueFd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
      if (Read().find(kThreadName) != std::string::npos) return true;
    }
    return false;
  }

  [[nodiscard]] std::string Read() const {
    std::string text(1024, '\0');
    const ssize_t count = ::pread(status.Get(), text.data(), text.size(), 0);
    return text.substr(0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }

  support::UniqueFd status;
};

/// A loop on a thread of its own that tells its number as status.
class RunningLoop {
 public:
  RunningLoop(const std::string& path, int number, RetryPlan plan = RetryPlan())
      : part(board.OfferStatus("number", [number] { return json(number); })),
        loop(path, board, plan) {
    const auto failure = loop.Open();
    EXPECT_FALSE(failure) << failure->Text();
    thread = support::StartThread(kThreadName, [this] { loop.Run(); });
  }
  ~RunningLoop() {
    loop.Stop();
    thread.join();
  }
  RunningLoop(const RunningLoop&) = delete;
  RunningLoop& operator=(const RunningLoop&) = delete;

 private:
  ControlBoard board;
  const std::unique_ptr<ControlBoard::Offer> part;
  ControlLoop loop;
  std::thread thread;
};

std::string StatusOf(int number) {
  return R"({"ok":true,"status":{"number":)" + std::to_string(number) + "}}";
}

/// A process that serves, or waits to, until it is killed or told to end.
class ServingProcess {
 public:
  ServingProcess(const std::string& path, int number)
      : process([&, this] { return Serve(path, number); }) {
    char byte = 0;
    EXPECT_EQ(::read(ready[0].Get(), &byte, 1), 1);
  }

  void Kill() { process.Kill(); }
  [[nodiscard]] int End() {
    end[1] = support::UniqueFd();
    return process.Wait();
  }

 private:
  using Pipe = std::array<support::UniqueFd, 2>;

  static Pipe MakePipe() {
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    return {support::UniqueFd(ends[0]), support::UniqueFd(ends[1])};
  }

  /// Returns the exit code.
  int Serve(const std::string& path, int number) {
    end[1] = support::UniqueFd();
    const RunningLoop running(path, number);
    static_cast<void>(support::WriteAll(ready[1].Get(), "r"));
    char byte = 0;
    const bool isToldToEnd = ::read(end[0].Get(), &byte, 1) == 0;
    return isToldToEnd && !::testing::Test::HasFailure() ? 0 : 1;
  }

  Pipe ready = MakePipe();
  Pipe end = MakePipe();
  tests::ChildProcess process;
};

class ControlLoopTest : public ::testing::Test {
 protected:
  /// Whether the process, or loop, of this number serves before the deadline.
  [[nodiscard]] bool IsServedBy(int number) const {
    return tests::Eventually(
        [&] { return tests::ControlPeer(path).Ask(kStatus) == StatusOf(number); });
  }

  [[nodiscard]] std::string Ask() const { return tests::ControlPeer(path).Ask(kStatus); }

  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/control.sock";
  CapturedLog log;
};

TEST_F(ControlLoopTest, ProcessThatServesKilled_WaitingOneTakesOver) {
  ServingProcess serving(path, 1);
  const RunningLoop waiting(path, 2);
  EXPECT_EQ(Ask(), StatusOf(1));
  serving.Kill();
  EXPECT_TRUE(IsServedBy(2));
}

TEST_F(ControlLoopTest, ProcessThatServesEnds_WaitingOneTakesOver) {
  ServingProcess serving(path, 1);
  const RunningLoop waiting(path, 2);
  EXPECT_EQ(Ask(), StatusOf(1));
  EXPECT_EQ(serving.End(), 0);
  EXPECT_TRUE(IsServedBy(2));
}

TEST_F(ControlLoopTest, StaleSocketOfAKilledProcess_Replaced) {
  ServingProcess(path, 1).Kill();
  EXPECT_EQ(tests::ControlPeer(path).ConnectError(), ECONNREFUSED);
  const RunningLoop next(path, 2);
  EXPECT_EQ(Ask(), StatusOf(2));
}

TEST_F(ControlLoopTest, WaitingProcessKilled_OtherServesOn) {
  ServingProcess serving(path, 1);
  ServingProcess waiting(path, 2);
  waiting.Kill();
  EXPECT_EQ(Ask(), StatusOf(1));
  EXPECT_EQ(serving.End(), 0);
}

TEST_F(ControlLoopTest, ThreeProcesses_ServeOneAfterTheOther) {
  ServingProcess first(path, 1);
  ServingProcess second(path, 2);
  const RunningLoop third(path, 3);
  EXPECT_EQ(Ask(), StatusOf(1));
  second.Kill();
  EXPECT_EQ(Ask(), StatusOf(1));
  first.Kill();
  EXPECT_TRUE(IsServedBy(3));
}

TEST_F(ControlLoopTest, LockFileClosedLongAfterTheStart_TriedAgain) {
  SocketLock holder(path + ".lock");
  ASSERT_EQ(holder.Acquire(), 0);
  // One attempt at the start, and one each time the file was closed.
  const RunningLoop waiting(path, 1, RetryPlan(std::chrono::milliseconds(0)));
  const LoopThread thread;
  EXPECT_TRUE(tests::Eventually([&] { return thread.IsAsleep(); }));
  holder.Release();
  // The lock is free for certain now, and the file is closed once more.
  EXPECT_EQ(tests::ReadText(path + ".lock"), "");
  EXPECT_TRUE(IsServedBy(1));
}

TEST_F(ControlLoopTest, LockFileRemovedUnderTheProcess_NotTakenOverBeforeItsEnd) {
  auto serving = std::make_unique<RunningLoop>(path, 1);
  std::filesystem::remove(path + ".lock");
  const RunningLoop waiting(path, 2);
  EXPECT_THAT(log.Lines(), ElementsAre("info: libhost_control: another process serves " + path +
                                       "; this one waits for its end"));
  EXPECT_EQ(Ask(), StatusOf(1));
  serving.reset();
  EXPECT_TRUE(IsServedBy(2));
}

TEST_F(ControlLoopTest, LockFileRemovedWhileOneWaits_NotTakenOver) {
  const RunningLoop serving(path, 1);
  const RunningLoop waiting(path, 2, RetryPlan(std::chrono::milliseconds(0)));
  log.Clear();
  std::filesystem::remove(path + ".lock");
  EXPECT_TRUE(tests::Eventually([&] { return !log.Lines().empty(); }));
  EXPECT_THAT(log.Lines(), ElementsAre("error: libhost_control: " + path +
                                       ": a process that does not hold the lock serves there"));
  EXPECT_EQ(Ask(), StatusOf(1));
  // Given up, and left to others.
  SocketLock next(path + ".lock");
  EXPECT_EQ(next.Acquire(), 0);
}

TEST_F(ControlLoopTest, PathInTheWayAtTheStart_LockLeftToOthers) {
  tests::WriteText(path, "precious");
  ControlBoard board;
  ControlLoop loop(path, board);
  EXPECT_TRUE(loop.Open());
  SocketLock other(path + ".lock");
  EXPECT_EQ(other.Acquire(), 0);
}

TEST_F(ControlLoopTest, PathInTheWayAtTheTakeover_TriedAgainAndToldOnce) {
  auto serving = std::make_unique<RunningLoop>(path, 1);
  const RunningLoop waiting(path, 2);
  std::filesystem::remove(path);
  tests::WriteText(path, "precious");
  log.Clear();
  serving.reset();
  EXPECT_TRUE(tests::Eventually([&] { return !log.Lines().empty(); }));
  std::filesystem::remove(path);
  EXPECT_TRUE(IsServedBy(2));
  EXPECT_TRUE(tests::Eventually([&] { return log.Lines().size() > 1; }));
  EXPECT_THAT(log.Lines(), ElementsAre("error: libhost_control: " + path + ": File exists",
                                       "info: libhost_control: serves " + path +
                                           " in place of a process that has ended"));
}

TEST_F(ControlLoopTest, ProcessesRaceAtTheStart_OneServesThenTheOther) {
  for (int round = 0; round < 10; ++round) {
    tests::ChildProcess racing([&] {
      const RunningLoop running(path, 1);
      return IsServedBy(1) && !::testing::Test::HasFailure() ? 0 : 1;
    });
    {
      const RunningLoop running(path, 2);
      EXPECT_TRUE(IsServedBy(2));
    }
    EXPECT_EQ(racing.Wait(), 0);
  }
}

TEST_F(ControlLoopTest, AnswerJustBeforeTheEnd_Sent) {
  ControlBoard board;
  ControlLoop loop(path, board);
  std::optional<ControlReply> kept;
  const auto later = board.OfferCommand(
      "later", [&kept](const json&, const ControlReply& reply) { kept = reply; });
  const auto end = board.OfferCommand("end", [&](const json&, const ControlReply&) {
    kept->Answer({});
    loop.Stop();
  });
  ASSERT_FALSE(loop.Open());
  std::thread thread = support::StartThread(kThreadName, [&loop] { loop.Run(); });
  const tests::ControlPeer waiting(path);
  // Served first in each round, so that its answer comes too late for the last one.
  ASSERT_TRUE(waiting.Send(R"({"command":"later"})"));
  EXPECT_EQ(tests::ControlPeer(path).Ask("x").substr(0, 11), R"({"ok":false)");
  EXPECT_TRUE(tests::ControlPeer(path).Send(R"({"command":"end"})"));
  EXPECT_EQ(waiting.ReadLine(), R"({"ok":true})");
  thread.join();
}

TEST_F(ControlLoopTest, ManyRequestsOfOneClient_AnotherServedBetween) {
  ControlBoard board;
  std::vector<std::string> served;
  const auto offer =
      board.OfferCommand("note", [&served](const json& request, const ControlReply& reply) {
        served.push_back(request.at("by"));
        reply.Answer({});
      });
  ControlLoop loop(path, board);
  ASSERT_FALSE(loop.Open());
  // Both are there before anybody is served.
  const tests::ControlPeer busy(path);
  std::string requests;
  for (int count = 0; count < 100; ++count)
    requests += R"({"command":"note","by":"busy"})"
                "\n";
  ASSERT_TRUE(tests::SendAll(busy.Descriptor(), requests));
  const tests::ControlPeer other(path);
  ASSERT_TRUE(other.Send(R"({"command":"note","by":"other"})"));
  std::thread thread = support::StartThread(kThreadName, [&loop] { loop.Run(); });
  EXPECT_EQ(other.ReadLine(), R"({"ok":true})");
  for (int count = 0; count < 100; ++count) EXPECT_EQ(busy.ReadLine(), R"({"ok":true})");
  loop.Stop();
  thread.join();
  ASSERT_EQ(served.size(), 101U);
  EXPECT_EQ(served[1], "other");
}

TEST_F(ControlLoopTest, StoppedAmongManyRequestsOfOneClient_NoneServedAfterwards) {
  ControlBoard board;
  ControlLoop loop(path, board);
  int calls = 0;
  const auto end = board.OfferCommand("end", [&](const json&, const ControlReply&) {
    ++calls;
    loop.Stop();
  });
  ASSERT_FALSE(loop.Open());
  const tests::ControlPeer client(path);
  ASSERT_TRUE(client.Send(std::string(R"({"command":"end"})") + "\n" + R"({"command":"end"})"));
  support::StartThread(kThreadName, [&loop] { loop.Run(); }).join();
  EXPECT_EQ(calls, 1);
}

TEST_F(ControlLoopTest, AnswerOfAnotherThreadSent_ThreadSleepsAgain) {
  ControlBoard board;
  std::promise<ControlReply> asked;
  const auto later = board.OfferCommand(
      "later", [&asked](const json&, const ControlReply& reply) { asked.set_value(reply); });
  ControlLoop loop(path, board);
  ASSERT_FALSE(loop.Open());
  std::thread running = support::StartThread(kThreadName, [&loop] { loop.Run(); });
  const tests::ControlPeer client(path);
  ASSERT_TRUE(client.Send(R"({"command":"later"})"));
  asked.get_future().get().Answer({});
  EXPECT_EQ(client.ReadLine(), R"({"ok":true})");
  const LoopThread thread;
  EXPECT_TRUE(tests::Eventually([&] { return thread.IsAsleep(); }));
  loop.Stop();
  running.join();
}

TEST_F(ControlLoopTest, MostClients_AllServed) {
  const RunningLoop running(path, 1);
  std::vector<tests::ControlPeer> clients;
  for (std::size_t count = 0; count < ControlLoop::kMaxConnections; ++count) {
    clients.emplace_back(path);
  }
  for (const auto& client : clients) EXPECT_EQ(client.Ask(kStatus), StatusOf(1));
}

TEST_F(ControlLoopTest, OneClientTooMany_ClosedAtOnce) {
  const RunningLoop running(path, 1);
  std::vector<tests::ControlPeer> clients;
  for (std::size_t count = 0; count < ControlLoop::kMaxConnections; ++count) {
    clients.emplace_back(path);
    ASSERT_EQ(clients.back().Ask(kStatus), StatusOf(1));
  }
  const tests::ControlPeer tooMany(path);
  EXPECT_EQ(tooMany.ConnectError(), 0);
  EXPECT_TRUE(tests::IsAtEnd(tooMany.Descriptor()));
  clients.pop_back();
  EXPECT_TRUE(IsServedBy(1));
}

/// While it lives, this process can open one descriptor more and no other.
class OneDescriptorLeft {
 public:
  OneDescriptorLeft() {
    EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &former), 0);
    const support::UniqueFd next(::open("/", O_RDONLY | O_CLOEXEC));
    rlimit narrow = former;
    narrow.rlim_cur = static_cast<rlim_t>(next.Get()) + 1;
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &narrow), 0);
  }
  ~OneDescriptorLeft() { ::setrlimit(RLIMIT_NOFILE, &former); }
  OneDescriptorLeft(const OneDescriptorLeft&) = delete;
  OneDescriptorLeft& operator=(const OneDescriptorLeft&) = delete;

 private:
  rlimit former{};
};

TEST_F(ControlLoopTest, NoDescriptorForAClient_ServedWhenThereIsOne) {
  const RunningLoop running(path, 1);
  const LoopThread thread;
  std::optional<tests::ControlPeer> client;
  {
    const OneDescriptorLeft narrow;
    client.emplace(path);
    ASSERT_EQ(client->ConnectError(), 0);
    EXPECT_TRUE(tests::Eventually([&] { return !log.Lines().empty(); }));
    EXPECT_TRUE(tests::Eventually([&] { return thread.IsAsleep(); }));
  }
  EXPECT_EQ(client->Ask(kStatus), StatusOf(1));
  EXPECT_THAT(log.Lines(), ElementsAre("warning: libhost_control: cannot accept a client: "
                                       "Too many open files"));
}

}  // namespace
}  // namespace platform_host
