#include "platform/host/work_lock/WorkLock.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <ctime>
#include <map>
#include <memory>
#include <string_view>
#include <thread>

#include "csc_logging/CSCLogging.h"
#include "platform/host/files/Directories.h"

namespace platform_host {
namespace {

using std::chrono::steady_clock;

/// A record is four decimal numbers of this many digits, each with one byte behind it: always the
/// same size, so that rewriting it in place needs no new block on a full disk.
constexpr std::size_t kFieldSize = 20;
constexpr std::size_t kRecordSize = 4 * (kFieldSize + 1);

/// The bytes that stand for workers begin behind every record.
constexpr std::int64_t kFirstWorker = 4096;

/// Sets a lock of `type` on the byte at `offset` without waiting. Returns 0 or an errno; EAGAIN:
/// another has it.
int SetLock(int fd, short type, std::int64_t offset) {
  struct flock range {};
  range.l_type = type;
  range.l_whence = SEEK_SET;
  range.l_start = offset;
  range.l_len = 1;
  if (::fcntl(fd, F_OFD_SETLK, &range) == 0) return 0;
  return errno == EACCES ? EAGAIN : errno;
}

bool IsLockedByAnother(int fd, std::int64_t offset) {
  struct flock range {};
  range.l_type = F_WRLCK;
  range.l_whence = SEEK_SET;
  range.l_start = offset;
  range.l_len = 1;
  return ::fcntl(fd, F_OFD_GETLK, &range) == 0 && range.l_type != F_UNLCK;
}

/// A byte that no other worker will draw. Returns 0 when the system has no randomness to give.
std::int64_t DrawWorker() {
  std::uint64_t random = 0;
  if (::getrandom(&random, sizeof random, 0) != sizeof random) return 0;
  return kFirstWorker + static_cast<std::int64_t>(random >> 2U);
}

std::optional<std::int64_t> ParseField(std::string_view record, std::size_t index) {
  const std::string_view field = record.substr(index * (kFieldSize + 1), kFieldSize);
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
  if (error != std::errc() || end != field.data() + field.size()) return std::nullopt;
  return value;
}

/// Errors that show a process which only reads that it has no part in the lock.
bool MeansNoLock(int error) {
  return error == ENOENT || error == ENOTDIR || error == EACCES || error == EPERM || error == EROFS;
}

/// The workers of this process by file. Never destroyed: threads may work until the very end.
class Workers {
 public:
  WorkLock& Get(const std::string& lockFile) EXCLUDES(mutex) {
    const support::MutexLock lock(mutex);
    auto& worker = workers[lockFile];
    if (worker == nullptr) worker = std::make_unique<WorkLock>(lockFile);
    return *worker;
  }

 private:
  support::Mutex mutex;
  std::map<std::string, std::unique_ptr<WorkLock>> workers GUARDED_BY(mutex);
};

}  // namespace

WorkLock& WorkLock::OfProcess(const std::string& lockFile) {
  static auto* const workers = new Workers;
  return workers->Get(lockFile);
}

WorkLock::WorkLock(std::string lockFile) : WorkLock(std::move(lockFile), Timing{}) {}

WorkLock::WorkLock(std::string lockFile, Timing durations)
    : path(std::move(lockFile)), timing(std::move(durations)) {}

WorkLock::Milliseconds WorkLock::MonotonicTime() {
  std::timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return std::chrono::duration_cast<Milliseconds>(std::chrono::seconds(time.tv_sec) +
                                                  std::chrono::nanoseconds(time.tv_nsec));
}

Result<WorkLock::Turn> WorkLock::Begin(Purpose purpose) {
  const auto began = steady_clock::now();
  bool told = false;
  for (;;) {
    const Attempt attempt = TryBegin(purpose);
    switch (attempt.outcome) {
      case Attempt::Outcome::kGranted:
        return Turn(this);
      case Attempt::Outcome::kNoLock:
        return Turn(nullptr);
      case Attempt::Outcome::kFailed:
        return Error::OfErrno(static_cast<int>(attempt.detail)).WithContext(path);
      case Attempt::Outcome::kBusy:
        break;
    }
    const auto waited = steady_clock::now() - began;
    const std::string holder = path + ": process " + std::to_string(attempt.detail);
    if (!told && waited >= timing.quietFor) {
      csc_logging::CSCLogging::LogInfo("libwork_lock_host: " + holder +
                                       " is at work; this one waits");
      told = true;
    }
    if (waited >= timing.patience) return Error(holder + " is still at work");
    std::this_thread::sleep_for(timing.pollInterval);
  }
}

// The mutex is held over system calls here, all of which return at once.
WorkLock::Attempt WorkLock::TryBegin(Purpose purpose) {
  const support::MutexLock lock(mutex);
  if (turns == 0) {
    const int error = OpenFile(purpose);
    if (purpose == Purpose::kRead && MeansNoLock(error)) return {Attempt::Outcome::kNoLock};
    if (error != 0) return {Attempt::Outcome::kFailed, error};
    const Attempt attempt = Claim();
    if (attempt.outcome != Attempt::Outcome::kGranted) return attempt;
  }
  ++turns;
  return {Attempt::Outcome::kGranted};
}

WorkLock::Attempt WorkLock::Claim() {
  int error = SetLock(file.Get(), F_WRLCK, 0);
  if (error != 0 && error != EAGAIN) return {Attempt::Outcome::kFailed, error};
  const auto record = ReadRecord();
  const std::int64_t holder = record ? record->process : 0;
  if (error == EAGAIN) return {Attempt::Outcome::kBusy, holder};
  if (MayWork(record)) {
    error = WriteRecord(record ? record->storeBeginner : 0);
    if (error == 0) return {Attempt::Outcome::kGranted};
  }
  static_cast<void>(SetLock(file.Get(), F_UNLCK, 0));
  if (error != 0) return {Attempt::Outcome::kFailed, error};
  return {Attempt::Outcome::kBusy, holder};
}

void WorkLock::End() {
  const support::MutexLock lock(mutex);
  if (--turns > 0) return;
  // Failing to write leaves the time of the beginning: the lease ends sooner, nothing else.
  static_cast<void>(WriteRecord(StoreBeginner()));
  static_cast<void>(SetLock(file.Get(), F_UNLCK, 0));
}

int WorkLock::BeginStore() {
  const support::MutexLock lock(mutex);
  const int error = WriteRecord(self);
  if (error == 0) hasBegunStore = true;
  return error;
}

bool WorkLock::IsStoreLost() {
  const support::MutexLock lock(mutex);
  return hasBegunStore && StoreBeginner() != self;
}

int WorkLock::OpenFile(Purpose purpose) {
  if (file.IsOpen() && IsFileInPlace()) return 0;
  int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;
  if (purpose == Purpose::kChange) {
    flags |= O_CREAT;
    const int error = MakeDirectories(path.substr(0, path.rfind('/')));
    if (error != 0) return error;
  }
  support::UniqueFd opened(::open(path.c_str(), flags, 0600));
  if (!opened.IsOpen()) return errno;
  self = DrawWorker();
  if (self == 0) return EIO;
  const int error = SetLock(opened.Get(), F_WRLCK, self);
  if (error == 0) file = std::move(opened);
  return error;
}

bool WorkLock::IsFileInPlace() const {
  struct stat opened {};
  struct stat found {};
  return ::fstat(file.Get(), &opened) == 0 && ::lstat(path.c_str(), &found) == 0 &&
         opened.st_dev == found.st_dev && opened.st_ino == found.st_ino;
}

bool WorkLock::MayWork(const std::optional<Record>& record) const {
  if (!record || record->worker == self) return true;
  const Milliseconds age = timing.now() - record->lastWork;
  // A time ahead of ours is from before the last start of the machine.
  if (age < Milliseconds(0) || age >= timing.lease) return true;
  return !IsLockedByAnother(file.Get(), record->worker);
}

std::optional<WorkLock::Record> WorkLock::ReadRecord() const {
  std::array<char, kRecordSize> bytes{};
  const ssize_t count = ::pread(file.Get(), bytes.data(), bytes.size(), 0);
  if (count != static_cast<ssize_t>(bytes.size())) return std::nullopt;
  const std::string_view text(bytes.data(), bytes.size());
  const auto worker = ParseField(text, 0);
  const auto lastWork = ParseField(text, 1);
  const auto process = ParseField(text, 2);
  const auto storeBeginner = ParseField(text, 3);
  if (!worker || !lastWork || !process || !storeBeginner) return std::nullopt;
  return Record{*worker, Milliseconds(*lastWork), *process, *storeBeginner};
}

std::int64_t WorkLock::StoreBeginner() const {
  const auto record = ReadRecord();
  return record ? record->storeBeginner : 0;
}

int WorkLock::WriteRecord(std::int64_t storeBeginner) const {
  std::string text;
  for (const std::int64_t number :
       {self, std::int64_t{timing.now().count()}, std::int64_t{::getpid()}, storeBeginner}) {
    const std::string digits = std::to_string(number);
    text += std::string(kFieldSize - digits.size(), '0') + digits + " ";
  }
  text.back() = '\n';
  const ssize_t count = ::pwrite(file.Get(), text.data(), text.size(), 0);
  if (count < 0) return errno;
  return static_cast<std::size_t>(count) == text.size() ? 0 : ENOSPC;
}

}  // namespace platform_host
