#include "platform/host/ara_phm/SupervisionFile.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <system_error>

#include "support/FileContents.h"

namespace platform_host {
namespace {

namespace fs = std::filesystem;

using Settings = std::map<std::string, std::string>;

bool IsBlank(char byte) {
  return std::isspace(static_cast<unsigned char>(byte)) != 0;
}

bool IsBeyondAscii(char byte) {
  return (static_cast<unsigned char>(byte) & 0x80U) != 0;
}

/// A line without an equals sign is a key whose value is itself, as the process reads it. Comments
/// and section headers become keys that nobody looks for.
void AddLine(std::string_view line, Settings& settings) {
  std::string text;
  std::remove_copy_if(line.begin(), line.end(), std::back_inserter(text), IsBlank);
  const auto equals = text.find('=');
  settings.emplace(text.substr(0, equals),
                   equals == std::string::npos ? text : text.substr(equals + 1));
}

/// None for a file that the process refuses as well.
std::optional<Settings> SettingsIn(std::string_view text) {
  if (text.size() > SupervisionFile::kSizeLimit) return std::nullopt;
  if (std::any_of(text.begin(), text.end(), IsBeyondAscii)) return std::nullopt;
  Settings settings;
  while (!text.empty()) {
    const auto end = std::min(text.find('\n'), text.size());
    if (end > SupervisionFile::kLineLimit) return std::nullopt;
    AddLine(text.substr(0, end), settings);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return settings;
}

/// Returns false, and leaves `number` as it is, when there is none.
bool ReadNumber(const Settings& settings, const std::string& key, std::uint16_t& number) {
  const auto found = settings.find(key);
  if (found == settings.end()) return false;
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(found->second.c_str(), &end, 10);
  if (end == found->second.c_str() || errno == ERANGE) return false;
  number = static_cast<std::uint16_t>(value);
  return true;
}

/// The first names of supervision files in `directory`, in order.
std::set<std::string> NamesIn(const std::string& directory) {
  static constexpr std::string_view kEnding = "-phm.ini";
  std::set<std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry(directory, error); !error && entry != fs::end(entry);
       entry.increment(error)) {
    const std::string name = entry->path().filename();
    if (name.size() < kEnding.size()) continue;
    if (name.compare(name.size() - kEnding.size(), kEnding.size(), kEnding) != 0) continue;
    names.insert(name);
    if (names.size() > SupervisionFile::kCountLimit) names.erase(std::prev(names.end()));
  }
  return names;
}

}  // namespace

std::optional<SupervisionFile> SupervisionFile::Parse(std::string_view text) {
  const auto settings = SettingsIn(text);
  if (!settings) return std::nullopt;
  const auto instance = settings->find("instance-id");
  if (instance == settings->end() || instance->second.empty()) return std::nullopt;
  SupervisionFile file;
  file.instanceId = instance->second;
  const bool isWhole =
      ReadNumber(*settings, "supervision-entity-id", file.supervisionEntityId) &&
      ReadNumber(*settings, "checkpoint-id", file.checkpointId) &&
      ReadNumber(*settings, "supervision-cycle", file.supervisionCycle) &&
      ReadNumber(*settings, "expected-alive-indications", file.expectedAliveIndications);
  return isWhole ? std::optional(file) : std::nullopt;
}

std::vector<SupervisionFile> SupervisionFile::ReadAll(const std::string& directory) {
  std::vector<SupervisionFile> files;
  for (const std::string& name : NamesIn(directory)) {
    const std::string path = directory + "/" + name;
    std::error_code error;
    std::string text;
    if (!fs::is_regular_file(path, error)) continue;
    if (support::ReadFile(path, kSizeLimit, text) != 0) continue;
    if (auto file = Parse(text)) files.push_back(std::move(*file));
  }
  return files;
}

}  // namespace platform_host
