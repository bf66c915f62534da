#include "tools/tsc/SwitchesCommand.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "TruststoreUpdateClient/Constants.h"
#include "TruststoreUpdateClient/DevelopmentTools.h"
#include "platform/host/config/Result.h"
#include "support/FileContents.h"
#include "tools/tsc/ExitCode.h"

namespace tsc {

using development_tools::DevelopmentTools;
using development_tools::kDevelopmentSwitches;
using platform_host::Error;

namespace {

constexpr int kKeyWidth = 28;

// DevelopmentTools reports on standard output, where the tool's own answer belongs.
class StandardOutputCapture {
 public:
  StandardOutputCapture() : previous(std::cout.rdbuf(text.rdbuf())) {}
  ~StandardOutputCapture() { std::cout.rdbuf(previous); }
  StandardOutputCapture(const StandardOutputCapture&) = delete;
  StandardOutputCapture& operator=(const StandardOutputCapture&) = delete;

  std::string Text() const { return text.str(); }

 private:
  std::ostringstream text;
  std::streambuf* previous;
};

int Complain(const std::string& file, int error, std::ostream& err) {
  err << "tsc switches: " << Error::OfErrno(error).WithContext(file).Text() << '\n';
  return kFileFailed;
}

// 0 or an errno.
int WriteDefaults(const std::string& file) {
  struct stat present {};
  if (::stat(file.c_str(), &present) == 0 && !S_ISREG(present.st_mode)) {
    return S_ISDIR(present.st_mode) ? EISDIR : EINVAL;
  }
  const StandardOutputCapture reports;
  const DevelopmentTools tools(file);
  // The writer says only whether it could; the call that failed was the last one to set this.
  errno = 0;
  if (tools.CreateConfigFile(file)) return 0;
  return errno != 0 ? errno : EIO;
}

int Init(const SwitchesOptions& options, const std::string& file, std::ostream& out,
         std::ostream& err) {
  if (!options.force && ::access(file.c_str(), F_OK) == 0) {
    err << "tsc switches: " << file << ": exists already; --force replaces it\n";
    return kRefused;
  }
  const int error = WriteDefaults(file);
  if (error != 0) return Complain(file, error, err);
  if (options.json) {
    const nlohmann::ordered_json told = {{"file", file}, {"written", true}};
    out << told.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
  } else {
    out << file << ": default switches written\n";
  }
  return kDone;
}

using Values = std::vector<std::pair<std::string, bool>>;

Values ReadSwitches(const std::string& file, std::string& reports) {
  const StandardOutputCapture capture;
  const DevelopmentTools tools(file);
  Values values;
  for (const auto& entry : kDevelopmentSwitches) {
    values.emplace_back(entry.key, tools.GetDevSwitchBool(entry.key));
  }
  reports = capture.Text();
  return values;
}

void Show(const Values& values, bool json, std::ostream& out) {
  nlohmann::ordered_json told;
  for (const auto& [key, on] : values) {
    told[key] = on;
    if (!json) out << std::left << std::setw(kKeyWidth) << key << (on ? "true" : "false") << '\n';
  }
  if (json) out << told.dump(2) << '\n';
}

}  // namespace

int RunSwitches(const SwitchesOptions& options, std::ostream& out, std::ostream& err) {
  const std::string file = options.file.empty()
                               ? truststore_update_client::testing::TSUC_CONFIG_FILE_NAME
                               : options.file;
  if (options.init) return Init(options, file, out, err);
  // Who cannot look into the file must not be told that its switches are off. A missing one means
  // just that.
  std::string content;
  const int error = support::ReadFile(file, development_tools::kMaxConfigFileBytes, content);
  if (error != 0 && error != ENOENT) return Complain(file, error, err);
  std::string reports;
  Show(ReadSwitches(file, reports), options.json, out);
  err << reports;
  return kDone;
}

}  // namespace tsc
