/// The development switches: what testers turn on or off on a unit, from a file that production
/// units do not have.
///
/// Messages go to standard output, not to the log, so that a tester at a terminal sees them.
/// Constant after construction but for SetKeyValues and ExtractKeys; an object that nobody changes
/// may be read from any thread.
#ifndef TRUSTSTOREUPDATECLIENT_DEVELOPMENTTOOLS_H
#define TRUSTSTOREUPDATECLIENT_DEVELOPMENTTOOLS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace development_tools {

/// One development switch: its key, its value in a fresh file, and what the file says about it.
struct DevelopmentSwitch {
  const char* key;
  bool defaultValue;
  const char* comment;
};

/// The switches, in the order of the file.
extern const std::array<DevelopmentSwitch, 10> kDevelopmentSwitches;

/// The largest switches file that is read.
inline constexpr std::size_t kMaxConfigFileBytes = std::size_t{1024} * 1024;

/// The largest file of a test run that is read back.
inline constexpr std::size_t kMaxTestFileBytes = std::size_t{128} * 1024 * 1024;

/// Reads the switches file once, at construction, and writes it for the command line. No failure
/// stops the client: a missing or malformed file leaves the affected switches off, which is how a
/// production unit runs.
class DevelopmentTools {
 public:
  /// Reads the unit's switches file.
  DevelopmentTools();

  /// Reads the switches file at `configFile` instead.
  explicit DevelopmentTools(std::string configFile);

  /// The file that this object has read.
  [[nodiscard]] std::string GetConfigFilename() const;

  /// The switch of this key. An unknown key is reported and answered with false.
  [[nodiscard]] bool GetDevSwitchBool(std::string key) const;

  /// There are no switches of these types: the key is reported as unknown, the answer is empty or
  /// 0.
  [[nodiscard]] std::string GetDevSwitchString(std::string key) const;
  [[nodiscard]] int GetDevSwitchInt(std::string key) const;

  /// Sets each switch from the contents that were read: on exactly when its value is "true".
  void SetKeyValues();

  /// Writes a switches file with every default to `name`. True when it is complete on disk.
  bool CreateConfigFile(std::string name) const;

  /// Replaces the line of `key` in `file` by "key = value". The file is replaced as a whole or not
  /// at all, and never made. True when the line was found and the file written.
  bool ModifyConfigFile(const std::string& key, const std::string& value,
                        const std::string& file) const;

  /// Copies a switches file. True when the copy is complete on disk.
  bool CopyConfigFile(const std::string& from, const std::string& to) const;

  /// Writes what a test run wants to keep; `what` names it in the report.
  void SaveFile(const std::string& what, const std::string& path, const std::string& text) const;
  void SaveBinaryFile(const std::string& what, const std::string& path,
                      const std::vector<std::uint8_t>& bytes) const;

  /// Reads a file that a test run kept; empty after a failure.
  [[nodiscard]] std::string LoadFile(const std::string& what, const std::string& path) const;

 private:
  void ExtractKeys();
  void parseLine(std::string_view line, std::size_t lineNumber);
  void extractContents(std::string_view line);
  [[nodiscard]] bool keyExists(const std::string& key) const;
  void exitWithError(const std::string& message) const;
  void Report(const std::string& message) const;

  std::string logPrefix;
  std::map<std::string, std::string> contents;
  std::string configFilename;
  std::array<bool, kDevelopmentSwitches.size()> switches;
};

}  // namespace development_tools

#endif
