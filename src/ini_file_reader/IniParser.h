/// The text of a settings file, line by line: bytes in, values out. IniFileReader feeds it. Each
/// object belongs to one thread.
///
/// Lines end with a line feed; the last one may lack it. Every white space of a line is removed,
/// wherever it stands. Then a line is a comment ("#..."), a section header ("[...]", which means
/// nothing), empty, or a pair: split at its first "=". A line without one is key and value at once.
/// A key's first value counts.
#ifndef INI_FILE_READER_INIPARSER_H
#define INI_FILE_READER_INIPARSER_H

#include <cstddef>
#include <string>
#include <string_view>

#include "ini_file_reader/IniFileReaderIf.h"

namespace ini_file_reader {

/// The longest line that is read, its end not counted.
inline constexpr std::size_t kMaxLineLength = 1000;

/// The largest file that is read.
inline constexpr std::size_t kMaxFileBytes = std::size_t{1024} * 1024;

/// Takes a file's bytes in pieces of any size and keeps the values of the keys it was asked for.
class IniParser {
 public:
  /// What is wrong with a file. The first fault in its order counts; of one line the first of this
  /// order.
  enum class Fault {
    kNone,
    kLineTooLong,
    kNotAscii,  ///< a byte with the high bit set
    kTooLarge,
  };

  /// Keeps values of the keys of `wantedKeys` only, which outlives this object and does not change.
  explicit IniParser(const Settings& wantedKeys) : wanted(wantedKeys) {}

  /// Takes the next bytes. A line above kMaxLineLength is refused at the byte that is one too many,
  /// so that no line takes memory beyond that.
  /// REQUIRES: no fault so far.
  [[nodiscard]] Fault Feed(std::string_view bytes);

  /// Takes the end of the file.
  /// REQUIRES: no fault so far.
  [[nodiscard]] Fault Finish();

  /// The number of lines so far.
  [[nodiscard]] int Lines() const { return lines; }

  /// The values so far of the keys that were asked for.
  [[nodiscard]] const Settings& Values() const { return values; }

 private:
  Fault EndLine();
  void TakeContent(std::string_view content);

  const Settings& wanted;
  Settings values;
  std::string line;  ///< so far, its end not seen
  std::size_t taken = 0;
  int lines = 0;
};

}  // namespace ini_file_reader

#endif
