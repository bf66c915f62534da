/// Reading of small "key = value" files, as their readers see it: health supervision reads its
/// settings through this. Implementations have no state: any thread, any number at a time.
#ifndef INI_FILE_READER_INIFILEREADERIF_H
#define INI_FILE_READER_INIFILEREADERIF_H

#include <memory>
#include <string>
#include <unordered_map>

namespace ini_file_reader {

/// Values by key.
using Settings = std::unordered_map<std::string, std::string>;

/// Fills settings from a file.
class IniFileReaderIf {
 public:
  virtual ~IniFileReaderIf() = default;

  /// Gives each key of `settings` that the file at `path` holds the file's value: keys that are
  /// missing from the file keep theirs, and no key is added. Returns the number of lines read (0
  /// for an empty file), or -1 after any failure, which is logged and leaves `settings` unchanged.
  /// REQUIRES: `settings` is not null, and nobody else uses what it points to meanwhile.
  [[nodiscard]] virtual int ReadIniFile(std::string path, std::shared_ptr<Settings> settings) = 0;
};

}  // namespace ini_file_reader

#endif
