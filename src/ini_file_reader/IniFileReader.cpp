#include "ini_file_reader/IniFileReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "csc_logging/CSCLogging.h"
#include "csc_logging/CSCSubLogger.h"
#include "ini_file_reader/IniParser.h"
#include "support/FileContents.h"
#include "support/UniqueFd.h"

namespace ini_file_reader {
namespace {

using csc_logging::CSCLogging;
using Fault = IniParser::Fault;

constexpr std::size_t kBlockBytes = 4096;

const csc_logging::CSCSubLogger& Logger() {
  static const csc_logging::CSCSubLogger logger("IniFileReader");
  return logger;
}

void LogUnreadable(const std::string& path, int error) {
  CSCLogging::LogError(Logger().SubLog("Reading file ")
                       << path << " failed: " << support::ErrorText(error));
}

const char* FaultText(Fault fault) {
  switch (fault) {
    case Fault::kLineTooLong:
      return "Incorrect format. Line too long.";
    case Fault::kNotAscii:
      return "Incorrect format. Non-ASCII character in file.";
    default:
      return "Incorrect format. File too large.";
  }
}

void LogFault(const std::string& path, Fault fault) {
  CSCLogging::LogError(Logger().SubLog(FaultText(fault)));
  CSCLogging::LogError(Logger().SubLog("Error reading file ") << path);
}

// 0 for a regular file, else the errno that tells why it is not read.
int CheckKind(int file) {
  struct stat status {};
  if (::fstat(file, &status) != 0) return errno;
  if (S_ISREG(status.st_mode)) return 0;
  return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
}

// Feeds the whole file to the parser, up to its first fault. Returns 0 or an errno.
int FeedFile(int file, IniParser& parser, Fault& fault) {
  std::array<char, kBlockBytes> block;
  for (;;) {
    const ssize_t count = ::read(file, block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    fault =
        count == 0 ? parser.Finish() : parser.Feed({block.data(), static_cast<std::size_t>(count)});
    if (count == 0 || fault != Fault::kNone) return 0;
  }
}

}  // namespace

int IniFileReader::ReadIniFile(std::string path, std::shared_ptr<Settings> settings) {
  // Opening must not wait for the other end of a pipe.
  const support::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  IniParser parser(*settings);
  Fault fault = Fault::kNone;
  int error = file.IsOpen() ? CheckKind(file.Get()) : errno;
  if (error == 0) error = FeedFile(file.Get(), parser, fault);
  if (error != 0) {
    LogUnreadable(path, error);
    return -1;
  }
  if (fault != Fault::kNone) {
    LogFault(path, fault);
    return -1;
  }
  CSCLogging::LogDebug(Logger().SubLog("Settings read from file ") << path);
  for (const auto& [key, value] : parser.Values()) (*settings)[key] = value;
  return parser.Lines();
}

}  // namespace ini_file_reader
