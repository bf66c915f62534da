#include "tools/tsc/SwitchesCommand.h"

#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "TruststoreUpdateClient/Constants.h"
#include "TruststoreUpdateClient/DevelopmentTools.h"
#include "support/FileContents.h"
#include "tools/tsc/ExitCode.h"

namespace tsc {

using development_tools::DevelopmentTools;
using development_tools::kDevelopmentSwitches;

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

int Init(const SwitchesOptions& options, const std::string& file, std::ostream& out,
         std::ostream& err) {
  if (!options.force && ::access(file.c_str(), F_OK) == 0) {
    err << "tsc switches: " << file << ": exists already; --force replaces it\n";
    return kRefused;
  }
  bool written = false;
  {
    const StandardOutputCapture reports;
    written = DevelopmentTools(file).CreateConfigFile(file);
  }
  if (!written) {
    err << "tsc switches: " << file << ": cannot be written\n";
    return kFileFailed;
  }
  out << file << ": default switches written\n";
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
  std::string reports;
  Show(ReadSwitches(file, reports), options.json, out);
  err << reports;
  return kDone;
}

}  // namespace tsc
