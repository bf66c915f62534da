#include "TruststoreUpdateClient/DevelopmentTools.h"

#include <sys/stat.h>

#include <iomanip>
#include <iostream>
#include <sstream>
#include <utility>

#include "TruststoreUpdateClient/Constants.h"
#include "support/FileContents.h"

namespace development_tools {

const std::array<DevelopmentSwitch, 10> kDevelopmentSwitches = {{
    {"TestModeEnabled", true,
     "Testability feature: Enables the test mode (Test logging, Test files, etch)"},
    {"ConnectionRetryTestMode", false, "Enable Test Mode for Connection Retry"},
    {"OcspDisable", false, "Disable OCSP for testing with customized certificates"},
    {"no-check-replayprotection", false,
     "Do not check if the time stamp of the received container is newer than the current one"},
    {"no-check-timestampfuture", false,
     "Do not check if the time stamp of the received container does NOT lie more than one day in "
     "the future"},
    {"no-check-signcertpath", false,
     "Do not check the certification path of the signing public key given in the \"x5c\" header"},
    {"no-check-signcertcn", false,
     "Do not check if the public key used for signing has a pre-defined Common Name"},
    {"no-check-tscsignature", false, "Do not check the JSON Web Signature"},
    {"no-check-ocsp", false, "Do not care about the OCSP check result"},
    {"no-check-all", false, "disable all before-mentioned checks"},
}};

namespace {

constexpr mode_t kFileMode = 0644;
constexpr const char* kBlanks = " \t";

void PrintGreen(const std::string& message) {
  std::cout << "\033[1;32m" << message << "\033[0m\n" << std::flush;
}

void PrintRed(const std::string& message) {
  std::cout << "\033[1;31m" << message << "\033[0m\n" << std::flush;
}

std::string_view removeComment(std::string_view line) {
  return line.substr(0, line.find(';'));
}

bool onlyWhitespace(std::string_view line) {
  return line.find_first_not_of(' ') == std::string_view::npos;
}

bool validLine(std::string_view line) {
  const auto start = line.find_first_not_of(kBlanks);
  if (start == std::string_view::npos || line[start] == '=') return false;
  return line.find_first_not_of(' ', line.find('=') + 1) != std::string_view::npos;
}

std::string extractKey(std::string_view line) {
  const std::string_view beforeSeparator = line.substr(0, line.find('='));
  return std::string(beforeSeparator.substr(0, beforeSeparator.find_first_of(kBlanks)));
}

std::string extractValue(std::string_view line) {
  const std::string_view value = line.substr(line.find('=') + 1);
  const auto start = value.find_first_not_of(kBlanks);
  if (start == std::string_view::npos) return {};
  return std::string(value.substr(start, value.find_last_not_of(kBlanks) - start + 1));
}

bool IsLineOfKey(std::string_view line, const std::string& key) {
  const std::string_view content = removeComment(line);
  return content.find('=') != std::string_view::npos && extractKey(content) == key;
}

// Cuts the first line, without its line feed, off the text.
std::string_view TakeLine(std::string_view& text) {
  const auto end = text.find('\n');
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return line;
}

std::string DefaultContents() {
  std::ostringstream text;
  text << "; Please Do not put an empty line, Do not put space between values. Option -m used only "
          "for 'no-check-xxx' flags.\n;\n"
       << std::left;
  for (const auto& entry : kDevelopmentSwitches) {
    text << std::setw(28) << entry.key << "= " << std::setw(10)
         << (entry.defaultValue ? "true" : "false") << "; " << entry.comment << '\n';
  }
  text << ';' << std::string(12, ' ');
  return text.str();
}

// A replaced file keeps the permissions that its owner gave it.
mode_t ModeOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : kFileMode;
}

}  // namespace

DevelopmentTools::DevelopmentTools()
    : DevelopmentTools(truststore_update_client::testing::TSUC_CONFIG_FILE_NAME) {}

DevelopmentTools::DevelopmentTools(std::string configFile)
    : logPrefix(">>> "), configFilename(std::move(configFile)), switches{} {
  ExtractKeys();
  SetKeyValues();
}

std::string DevelopmentTools::GetConfigFilename() const {
  return configFilename;
}

bool DevelopmentTools::GetDevSwitchBool(std::string key) const {
  for (std::size_t i = 0; i < switches.size(); ++i) {
    if (key == kDevelopmentSwitches[i].key) return switches[i];
  }
  PrintRed("Unknown Development Switch: " + key);
  return false;
}

std::string DevelopmentTools::GetDevSwitchString(std::string key) const {
  PrintRed("Unknown Development Switch: " + key);
  return {};
}

int DevelopmentTools::GetDevSwitchInt(std::string key) const {
  PrintRed("Unknown Development Switch " + key);
  return 0;
}

void DevelopmentTools::SetKeyValues() {
  for (std::size_t i = 0; i < switches.size(); ++i) {
    const auto entry = contents.find(kDevelopmentSwitches[i].key);
    switches[i] = entry != contents.end() && entry->second == "true";
  }
}

bool DevelopmentTools::CreateConfigFile(std::string name) const {
  if (support::ReplaceFile(name, DefaultContents(), kFileMode) != 0) {
    PrintRed("Error creating the configuration file!");
    return false;
  }
  PrintGreen("Configuration File '" + name + "' created successfully");
  return true;
}

bool DevelopmentTools::ModifyConfigFile(const std::string& key, const std::string& value,
                                        const std::string& file) const {
  std::string text;
  if (support::ReadFile(file, kMaxConfigFileBytes, text) != 0) text.clear();
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = TakeLine(rest);
    if (!IsLineOfKey(line, key)) continue;
    const std::string wanted = key + " = " + value;
    // Where the line stands already the file need not be one that this user may write.
    const bool stands = line == wanted;
    text.replace(static_cast<std::size_t>(line.data() - text.data()), line.size(), wanted);
    const int error = stands ? 0 : support::ReplaceFile(file, text, ModeOf(file));
    if (error != 0) {
      PrintRed("Option '" + key + "' could not be written: " + support::ErrorText(error));
      return false;
    }
    PrintGreen("Option '" + key + "' value changed to '" + value + "'");
    return true;
  }
  PrintRed("Option '" + key + "' not found!");
  return false;
}

bool DevelopmentTools::CopyConfigFile(const std::string& from, const std::string& to) const {
  std::string text;
  if (support::ReadFile(from, kMaxConfigFileBytes, text) != 0 ||
      support::ReplaceFile(to, text, ModeOf(from)) != 0) {
    PrintRed("Error copying the configuration file!");
    return false;
  }
  PrintGreen("Configuration File copied successfully");
  return true;
}

void DevelopmentTools::SaveFile(const std::string& what, const std::string& path,
                                const std::string& text) const {
  const bool written = support::ReplaceFile(path, text, kFileMode) == 0;
  Report((written ? "Testlog: " + what + " written to '"
                  : "Testlog: Error writing " + what + " to '") +
         path + "'");
}

void DevelopmentTools::SaveBinaryFile(const std::string& what, const std::string& path,
                                      const std::vector<std::uint8_t>& bytes) const {
  SaveFile(what, path, std::string(bytes.begin(), bytes.end()));
}

std::string DevelopmentTools::LoadFile(const std::string& what, const std::string& path) const {
  std::string text;
  if (support::ReadFile(path, kMaxTestFileBytes, text) != 0) {
    Report("Error reading " + what + " from '" + path + "'");
  } else {
    Report(what + " read from '" + path + "'");
  }
  return text;
}

void DevelopmentTools::ExtractKeys() {
  std::string text;
  const int error = support::ReadFile(configFilename, kMaxConfigFileBytes, text);
  if (error == EFBIG) return exitWithError("File is too big: " + configFilename);
  if (error != 0) return Report("No configuration file found: " + configFilename);
  std::size_t lineNumber = 0;
  for (std::string_view rest = text; !rest.empty();) parseLine(TakeLine(rest), ++lineNumber);
}

void DevelopmentTools::parseLine(std::string_view line, std::size_t lineNumber) {
  const std::string_view content = removeComment(line);
  if (onlyWhitespace(content)) return;
  if (content.find('=') == std::string_view::npos) {
    exitWithError("Couldn't find separator on line: " + std::to_string(lineNumber));
  } else if (!validLine(content)) {
    exitWithError("Bad format for line: " + std::to_string(lineNumber));
  } else {
    extractContents(content);
  }
}

void DevelopmentTools::extractContents(std::string_view line) {
  const std::string key = extractKey(line);
  if (keyExists(key)) {
    exitWithError("Can only have unique key names!");
  } else {
    contents.emplace(key, extractValue(line));
  }
}

bool DevelopmentTools::keyExists(const std::string& key) const {
  return contents.count(key) != 0;
}

// The name is historical: reading goes on, and only the affected line is lost.
void DevelopmentTools::exitWithError(const std::string& message) const {
  Report("Development switches error: " + message);
}

void DevelopmentTools::Report(const std::string& message) const {
  std::cout << logPrefix << message << '\n' << std::flush;
}

}  // namespace development_tools
