#include "platform/host/work_lock/WorkLock.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "platform/host/csc_logging/CapturedLog.h"
#include "support/FileContents.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::ChildProcess;
using Purpose = WorkLock::Purpose;

constexpr milliseconds kLease(1000);

/// Workers on one lock file with a clock that the test moves.
class WorkLockOf : public ::testing::Test {
 protected:
  [[nodiscard]] WorkLock::Timing TimingWith(milliseconds patience) {
    return {kLease, patience, milliseconds(1), [this] { return now.load(); }};
  }

  /// A worker that does not wait.
  std::unique_ptr<WorkLock> Worker() {
    return std::make_unique<WorkLock>(path, TimingWith(milliseconds(0)));
  }

  static bool Works(WorkLock& worker) { return worker.Begin(Purpose::kChange).Ok(); }

  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/records/lock";
  std::atomic<milliseconds> now{milliseconds(100000)};
};

TEST_F(WorkLockOf, NobodyAtWork_Granted) {
  const auto worker = Worker();
  EXPECT_TRUE(Works(*worker));
  EXPECT_TRUE(Works(*worker));
}

TEST_F(WorkLockOf, AnotherInItsTurn_WaitsHoweverLongItTakes) {
  const auto first = Worker();
  const auto second = Worker();
  const auto turn = first->Begin(Purpose::kChange);
  ASSERT_TRUE(turn.Ok());
  now = now.load() + 10 * kLease;
  const auto refused = second->Begin(Purpose::kChange);
  ASSERT_FALSE(refused.Ok());
  EXPECT_EQ(refused.Failure().Text(),
            path + ": process " + std::to_string(::getpid()) + " is still at work");
}

TEST_F(WorkLockOf, LongWait_ToldOnce) {
  const auto first = Worker();
  const CapturedLog log;
  auto timing = TimingWith(milliseconds(20));
  timing.quietFor = milliseconds(5);
  WorkLock second(path, timing);
  ASSERT_TRUE(Works(*first));
  EXPECT_FALSE(Works(second));
  EXPECT_THAT(log.Lines(), ElementsAre("info: libwork_lock_host: " + path + ": process " +
                                       std::to_string(::getpid()) + " is at work; this one waits"));
}

TEST_F(WorkLockOf, ShortWait_NotTold) {
  const auto first = Worker();
  const CapturedLog log;
  auto timing = TimingWith(milliseconds(5));
  timing.quietFor = seconds(1000);
  WorkLock second(path, timing);
  ASSERT_TRUE(Works(*first));
  EXPECT_FALSE(Works(second));
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(WorkLockOf, AnotherWithinLease_Refused) {
  const auto first = Worker();
  const auto second = Worker();
  ASSERT_TRUE(Works(*first));
  now = now.load() + kLease - milliseconds(1);
  EXPECT_FALSE(Works(*second));
  EXPECT_FALSE(second->Begin(Purpose::kRead).Ok());
  EXPECT_TRUE(Works(*first));
}

TEST_F(WorkLockOf, LeaseOver_AnotherTakesOver) {
  const auto first = Worker();
  const auto second = Worker();
  ASSERT_TRUE(Works(*first));
  now = now.load() + kLease;
  EXPECT_TRUE(Works(*second));
  EXPECT_FALSE(Works(*first));
}

TEST_F(WorkLockOf, EndOfTurn_BeginsLeaseAnew) {
  const auto first = Worker();
  const auto second = Worker();
  {
    const auto turn = first->Begin(Purpose::kChange);
    ASSERT_TRUE(turn.Ok());
    now = now.load() + kLease;
  }
  EXPECT_FALSE(Works(*second));
}

TEST_F(WorkLockOf, ReadingTurn_HasLeaseToo) {
  const auto first = Worker();
  const auto second = Worker();
  ASSERT_TRUE(Works(*first));
  now = now.load() + kLease / 2;
  ASSERT_TRUE(first->Begin(Purpose::kRead).Ok());
  now = now.load() + kLease / 2;
  EXPECT_FALSE(Works(*second));
}

TEST_F(WorkLockOf, WorkerGone_NextOneAtOnce) {
  auto first = Worker();
  const auto second = Worker();
  ASSERT_TRUE(Works(*first));
  ASSERT_FALSE(Works(*second));
  first.reset();
  EXPECT_TRUE(Works(*second));
}

TEST_F(WorkLockOf, WorkerGoneMeanwhile_WaitingOneGoesOn) {
  auto first = Worker();
  WorkLock patient(path, TimingWith(seconds(60)));
  ASSERT_TRUE(Works(*first));
  auto granted = std::async(std::launch::async, [&patient] { return Works(patient); });
  first.reset();
  EXPECT_TRUE(granted.get());
}

TEST_F(WorkLockOf, TwoThreadsOfOneWorker_SideBySide) {
  const auto worker = Worker();
  const auto other = Worker();
  auto first = std::make_unique<Result<WorkLock::Turn>>(worker->Begin(Purpose::kChange));
  auto second = std::async(std::launch::async, [&worker] {
                  return std::make_unique<Result<WorkLock::Turn>>(worker->Begin(Purpose::kChange));
                }).get();
  ASSERT_TRUE(first->Ok());
  ASSERT_TRUE(second->Ok());
  first.reset();
  now = now.load() + kLease;
  EXPECT_FALSE(Works(*other));
  second.reset();
  now = now.load() + kLease;
  EXPECT_TRUE(Works(*other));
}

TEST_F(WorkLockOf, StartOfMachineSince_OldRecordWithoutMeaning) {
  const auto first = Worker();
  const auto second = Worker();
  ASSERT_TRUE(Works(*first));
  now = now.load() - milliseconds(1);
  EXPECT_TRUE(Works(*second));
}

TEST_F(WorkLockOf, BrokenRecord_Granted) {
  const std::string number = "00000000000000005000 ";
  const std::vector<std::string> records = {"", "garbage", std::string(100, 'x'),
                                            number + number + number,
                                            number + number + number + "-"};
  ASSERT_TRUE(Works(*Worker()));
  for (const auto& record : records) {
    ASSERT_EQ(support::ReplaceFile(path, record, 0600), 0);
    EXPECT_TRUE(Works(*Worker())) << record;
  }
}

TEST_F(WorkLockOf, Changing_MakesDirectoryAndPrivateFile) {
  ASSERT_TRUE(Works(*Worker()));
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(WorkLockOf, ReadingWithoutFile_GrantedAndNothingMade) {
  EXPECT_TRUE(Worker()->Begin(Purpose::kRead).Ok());
  struct stat status {};
  EXPECT_NE(::stat((directory.Path() + "/records").c_str(), &status), 0);
}

TEST_F(WorkLockOf, DirectoryCannotBeMade_ChangeFailsReadGranted) {
  ASSERT_EQ(support::ReplaceFile(directory.Path() + "/records", "", 0600), 0);
  const auto refused = Worker()->Begin(Purpose::kChange);
  ASSERT_FALSE(refused.Ok());
  EXPECT_EQ(refused.Failure().Text(), path + ": Not a directory");
  EXPECT_TRUE(Worker()->Begin(Purpose::kRead).Ok());
}

TEST_F(WorkLockOf, LinkInPlaceOfFile_NotFollowed) {
  ASSERT_TRUE(Works(*Worker()));
  ASSERT_EQ(::unlink(path.c_str()), 0);
  ASSERT_EQ(::symlink("elsewhere", path.c_str()), 0);
  EXPECT_FALSE(Works(*Worker()));
}

TEST_F(WorkLockOf, FileRemovedMeanwhile_NewOneCounts) {
  const auto first = Worker();
  const auto second = Worker();
  ASSERT_TRUE(Works(*first));
  ASSERT_EQ(::unlink(path.c_str()), 0);
  ASSERT_TRUE(Works(*first));
  EXPECT_FALSE(Works(*second));
}

TEST_F(WorkLockOf, OfProcess_OneForEachFile) {
  WorkLock& worker = WorkLock::OfProcess(path);
  EXPECT_EQ(&WorkLock::OfProcess(path), &worker);
  EXPECT_NE(&WorkLock::OfProcess(path + "2"), &worker);
}

TEST_F(WorkLockOf, ProcessKilledInItsTurn_NextOneAtOnce) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const support::UniqueFd readEnd(ends[0]);
  const support::UniqueFd writeEnd(ends[1]);
  ChildProcess child([&] {
    const auto worker = Worker();
    const auto turn = worker->Begin(Purpose::kChange);
    static_cast<void>(support::WriteAll(writeEnd.Get(), turn.Ok() ? "y" : "n"));
    return ::pause();
  });
  char answer = '?';
  ASSERT_EQ(::read(readEnd.Get(), &answer, 1), 1);
  ASSERT_EQ(answer, 'y');
  const auto worker = Worker();
  EXPECT_FALSE(Works(*worker));
  child.Kill();
  EXPECT_TRUE(Works(*worker));
}

TEST_F(WorkLockOf, RecordCannotBeWritten_Fails) {
  ChildProcess child([this] {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit nothing{0, 0};
    if (::setrlimit(RLIMIT_FSIZE, &nothing) != 0) return 2;
    const auto result = Worker()->Begin(Purpose::kChange);
    return !result.Ok() && result.Failure().Text() == path + ": File too large" ? 0 : 1;
  });
  EXPECT_EQ(child.Wait(), 0);
}

bool BeginsStore(WorkLock& worker) {
  auto turn = worker.Begin(Purpose::kChange);
  return turn.Ok() && std::move(turn).Take().BeginStore() == 0;
}

bool HasLostStore(WorkLock& worker) {
  const auto turn = worker.Begin(Purpose::kChange);
  EXPECT_TRUE(turn.Ok());
  return turn.Ok() && turn.Value().IsStoreLost();
}

TEST_F(WorkLockOf, StoreNeverBegun_NotLost) {
  const auto first = Worker();
  const auto second = Worker();
  ASSERT_TRUE(BeginsStore(*first));
  EXPECT_FALSE(HasLostStore(*first));
  now = now.load() + kLease;
  EXPECT_FALSE(HasLostStore(*second));
}

TEST_F(WorkLockOf, StoreBegunByAnotherSince_LostUntilBegunAgain) {
  const auto first = Worker();
  const auto second = Worker();
  ASSERT_TRUE(BeginsStore(*first));
  now = now.load() + kLease;
  ASSERT_TRUE(BeginsStore(*second));
  now = now.load() + kLease;
  EXPECT_TRUE(HasLostStore(*first));
  ASSERT_TRUE(BeginsStore(*first));
  EXPECT_FALSE(HasLostStore(*first));
}

TEST_F(WorkLockOf, WorkOfAnotherOnOurStore_NotLost) {
  const auto first = Worker();
  const auto second = Worker();
  ASSERT_TRUE(BeginsStore(*first));
  now = now.load() + kLease;
  ASSERT_TRUE(Works(*second));
  now = now.load() + kLease;
  EXPECT_FALSE(HasLostStore(*first));
}

TEST_F(WorkLockOf, BeginnerGone_StoreLostAllTheSame) {
  const auto first = Worker();
  auto second = Worker();
  ASSERT_TRUE(BeginsStore(*first));
  now = now.load() + kLease;
  ASSERT_TRUE(BeginsStore(*second));
  second.reset();
  EXPECT_TRUE(HasLostStore(*first));
}

TEST_F(WorkLockOf, RecordBrokenMeanwhile_StoreLost) {
  const auto first = Worker();
  ASSERT_TRUE(BeginsStore(*first));
  const support::UniqueFd file(::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
  EXPECT_TRUE(HasLostStore(*first));
}

/// Appends `mark` to `log` in `count` operations with no lock held between them.
int WorkInSteps(WorkLock& lock, const std::string& log, char mark, int count) {
  for (int step = 0; step < count; ++step) {
    const auto turn = lock.Begin(Purpose::kChange);
    const support::UniqueFd file(::open(log.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0600));
    if (!turn.Ok() || support::WriteAll(file.Get(), std::string(1, mark)) != 0) return 1;
    std::this_thread::yield();
  }
  return 0;
}

TEST_F(WorkLockOf, ManyProcesses_EachFinishesBeforeNextBegins) {
  constexpr int kSteps = 200;
  const std::string log = directory.Path() + "/log";
  std::vector<std::unique_ptr<ChildProcess>> children;
  for (const char mark : {'a', 'b', 'c', 'd'}) {
    children.push_back(std::make_unique<ChildProcess>([&, mark] {
      WorkLock worker(path, TimingWith(seconds(60)));
      return WorkInSteps(worker, log, mark, kSteps);
    }));
  }
  for (const auto& child : children) EXPECT_EQ(child->Wait(), 0);

  std::string order;
  ASSERT_EQ(support::ReadFile(log, 4 * kSteps, order), 0);
  ASSERT_EQ(order.size(), 4U * kSteps);
  for (std::size_t index = 0; index < order.size(); ++index) {
    EXPECT_EQ(order[index], order[index - index % kSteps]) << index;
  }
}

TEST_F(WorkLockOf, DefaultLease_OutlastsLongChecks) {
  WorkLock::Timing timing = TimingWith(milliseconds(0));
  timing.lease = WorkLock::Timing{}.lease;
  WorkLock first(path, timing);
  WorkLock second(path, timing);
  ASSERT_TRUE(Works(first));
  now = now.load() + seconds(30) - milliseconds(1);
  EXPECT_FALSE(Works(second));
  now = now.load() + milliseconds(1);
  EXPECT_TRUE(Works(second));
}

TEST_F(WorkLockOf, RealClock_TimeWithoutSuspension) {
  const auto monotonic = [] {
    return std::chrono::duration_cast<milliseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
  };
  const auto before = monotonic();
  WorkLock worker(path);
  ASSERT_TRUE(Works(worker));
  const auto after = monotonic();
  std::string record;
  ASSERT_EQ(support::ReadFile(path, 1000, record), 0);
  const milliseconds lastWork(std::stoll(record.substr(21, 20)));
  EXPECT_GE(lastWork, before);
  EXPECT_LE(lastWork, after);
}

TEST_F(WorkLockOf, RealClock_AnotherWithinDefaultLeaseRefused) {
  const WorkLock::Timing impatient{WorkLock::Timing{}.lease, milliseconds(0), milliseconds(1)};
  WorkLock first(path, impatient);
  WorkLock second(path, impatient);
  ASSERT_TRUE(Works(first));
  EXPECT_FALSE(Works(second));
}

}  // namespace
}  // namespace platform_host
