/// Reads settings from regular files. No state: any thread, any number at a time.
#ifndef INI_FILE_READER_INIFILEREADER_H
#define INI_FILE_READER_INIFILEREADER_H

#include <memory>
#include <string>

#include "ini_file_reader/IniFileReaderIf.h"

namespace ini_file_reader {

/// Reads a file block by block, with a fixed amount of memory however large it is. The rules of its
/// lines and its bounds are IniParser's. What is no regular file is refused like a file that cannot
/// be opened, so that a pipe without a writer stops nobody; blocks for the disk only.
class IniFileReader : public IniFileReaderIf {
 public:
  [[nodiscard]] int ReadIniFile(std::string path, std::shared_ptr<Settings> settings) override;
};

}  // namespace ini_file_reader

#endif
