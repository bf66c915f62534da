#include "platform/host/csc_logging/DescriptorSink.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <future>
#include <thread>
#include <vector>

#include "support/FileContents.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

namespace platform_host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::EndsWith;
using ::testing::MatchesRegex;

class DescriptorSinkFile : public ::testing::Test {
 protected:
  [[nodiscard]] std::string Contents() const {
    std::string contents;
    EXPECT_EQ(support::ReadFile(path, 1 << 20, contents), 0);
    return contents;
  }

  const tests::TemporaryDirectory directory;
  const std::string path = directory.Path() + "/log";
};

TEST_F(DescriptorSinkFile, Write_LineWithTimestamp) {
  OpenFileSink(path, "TU")->Write(LogLevel::kInfo, "text");
  EXPECT_THAT(Contents(), MatchesRegex("20..-..-..T..:..:..[.]...Z info TU text\n"));
}

TEST_F(DescriptorSinkFile, ExistingFile_Appended) {
  OpenFileSink(path, "TU")->Write(LogLevel::kInfo, "one");
  OpenFileSink(path, "TU")->Write(LogLevel::kInfo, "two");
  EXPECT_THAT(Contents(), MatchesRegex(".* one\n.* two\n"));
}

TEST_F(DescriptorSinkFile, TextWithLineFeed_OneLine) {
  OpenFileSink(path, "TU")->Write(LogLevel::kInfo, "a\n<0>b");
  EXPECT_THAT(Contents(), EndsWith(" info TU a\\x0a<0>b\n"));
}

TEST_F(DescriptorSinkFile, Write_ErrnoKept) {
  const auto sink = std::make_shared<DescriptorSink>(-1, DescriptorSink::Style::kTimestamp, "TU",
                                                     milliseconds(0));
  errno = ENOSPC;
  sink->Write(LogLevel::kInfo, "into nowhere");
  EXPECT_EQ(errno, ENOSPC);
}

TEST_F(DescriptorSinkFile, MissingDirectory_NullAndErrno) {
  EXPECT_EQ(OpenFileSink(directory.Path() + "/missing/log", "TU"), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(DescriptorSinkFile, PipeWithoutReader_NullAtOnce) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(OpenFileSink(path, "TU"), nullptr);
  EXPECT_EQ(errno, ENXIO);
}

TEST_F(DescriptorSinkFile, ManyThreads_LinesNeverMix) {
  constexpr int kThreads = 4;
  constexpr int kLines = 100;
  const auto sink = OpenFileSink(path, "TU");
  std::vector<std::thread> threads;
  for (int index = 0; index < kThreads; ++index) {
    threads.emplace_back([&sink, index] {
      const std::string text(500, static_cast<char>('a' + index));
      for (int line = 0; line < kLines; ++line) sink->Write(LogLevel::kInfo, text);
    });
  }
  for (auto& thread : threads) thread.join();

  std::string rest = Contents();
  int count = 0;
  for (std::size_t end = rest.find('\n'); end != std::string::npos; end = rest.find('\n')) {
    const std::string text = rest.substr(end - 500, 500);
    EXPECT_EQ(text, std::string(500, text[0]));
    rest.erase(0, end + 1);
    ++count;
  }
  EXPECT_EQ(count, kThreads * kLines);
}

TEST_F(DescriptorSinkFile, JournalStyle_PriorityInsteadOfTimestamp) {
  const support::UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  DescriptorSink(file.Get(), DescriptorSink::Style::kJournal, "TU")
      .Write(LogLevel::kWarning, "text");
  EXPECT_EQ(Contents(), "<4>TU text\n");
}

/// A pipe that is full, as one that nobody reads is in the end.
class FullPipe : public ::testing::Test {
 protected:
  FullPipe() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    readEnd = support::UniqueFd(ends[0]);
    writeEnd = support::UniqueFd(ends[1]);
    while (::write(writeEnd.Get(), "x", 1) == 1) {
    }
    EXPECT_EQ(::fcntl(writeEnd.Get(), F_SETFL, 0), 0);
    EXPECT_EQ(::fcntl(readEnd.Get(), F_SETFL, 0), 0);
  }

  /// Reads up to the first line feed.
  [[nodiscard]] std::string ReadLine() const {
    std::string line;
    for (char byte = 0; byte != '\n' && ::read(readEnd.Get(), &byte, 1) == 1;) line += byte;
    return line.substr(line.find_last_of('x') + 1);
  }

  support::UniqueFd readEnd;
  support::UniqueFd writeEnd;
};

TEST_F(FullPipe, ReaderGone_LineLostWithoutSignal) {
  readEnd = support::UniqueFd();
  tests::ChildProcess child([this] {  // which SIGPIPE would end
    DescriptorSink sink(writeEnd.Get(), DescriptorSink::Style::kJournal, "TU");
    sink.Write(LogLevel::kInfo, "text");
    return 0;
  });
  EXPECT_EQ(child.Wait(), 0);
}

TEST_F(FullPipe, NobodyReads_LinesLostAndWriterGoesOn) {
  constexpr unsigned kDeadlineS = 60;
  tests::ChildProcess child([this] {
    ::alarm(kDeadlineS);
    DescriptorSink sink(writeEnd.Get(), DescriptorSink::Style::kJournal, "TU");
    for (int line = 0; line < 1000; ++line) sink.Write(LogLevel::kInfo, "text");
    return 0;
  });
  EXPECT_EQ(child.Wait(), 0);
}

TEST_F(FullPipe, ReadAfterLinesWereLost_LaterOnesArrive) {
  DescriptorSink sink(writeEnd.Get(), DescriptorSink::Style::kJournal, "TU", milliseconds(0));
  sink.Write(LogLevel::kInfo, "lost");
  std::string bytes(PIPE_BUF, '\0');
  ASSERT_EQ(::read(readEnd.Get(), bytes.data(), bytes.size()), PIPE_BUF);
  sink.Write(LogLevel::kInfo, "kept");
  EXPECT_EQ(ReadLine(), "<6>TU kept\n");
}

TEST_F(FullPipe, ReaderBehind_LineWaitsForIt) {
  DescriptorSink sink(writeEnd.Get(), DescriptorSink::Style::kJournal, "TU", seconds(60));
  auto reader = std::async(std::launch::async, [this] { return ReadLine(); });
  sink.Write(LogLevel::kInfo, "kept");
  EXPECT_EQ(reader.get(), "<6>TU kept\n");
}

TEST_F(DescriptorSinkFile, IsJournal_OnlyForDeviceAndInodeOfDescriptor) {
  const support::UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  struct stat status {};
  ASSERT_EQ(::fstat(file.Get(), &status), 0);
  const std::string device = std::to_string(status.st_dev);
  const std::string inode = std::to_string(status.st_ino);
  EXPECT_TRUE(IsJournal(file.Get(), (device + ":" + inode).c_str()));
  EXPECT_FALSE(IsJournal(file.Get(), (device + ":" + inode + "1").c_str()));
  EXPECT_FALSE(IsJournal(file.Get(), (device + "1:" + inode).c_str()));
  EXPECT_FALSE(IsJournal(file.Get(), ""));
  EXPECT_FALSE(IsJournal(file.Get(), nullptr));
  EXPECT_FALSE(IsJournal(-1, (device + ":" + inode).c_str()));
}

}  // namespace
}  // namespace platform_host
