/// The health supervision files, "NAME-phm.ini": what health management expects of a process. The
/// process reads its own and sends what it tells; supervision reads them to compare. No state: any
/// thread.
#ifndef PLATFORM_HOST_ARA_PHM_SUPERVISIONFILE_H
#define PLATFORM_HOST_ARA_PHM_SUPERVISIONFILE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform_host {

/// What one file tells. Plain values.
struct SupervisionFile {
  /// Largest file that is read, and its longest line without the line feed; of a file beyond,
  /// nothing is used.
  static constexpr std::size_t kSizeLimit = 65536;
  static constexpr std::size_t kLineLimit = 1000;

  /// Files of a directory that are read: the first so many by name.
  static constexpr std::size_t kCountLimit = 64;

  std::string instanceId;
  std::uint16_t supervisionEntityId = 0;
  std::uint16_t checkpointId = 0;
  std::uint16_t supervisionCycle = 0;  ///< tenths of a second
  std::uint16_t expectedAliveIndications = 0;

  /// Reads `text`: lines of KEY=VALUE in ASCII; blanks anywhere, comments from '#' at a line's
  /// beginning, and section headers do not count; of a repeated key the first value holds. Numbers
  /// are decimal, cut to 16 bits. None when a key is missing or empty, or a value is no number.
  static std::optional<SupervisionFile> Parse(std::string_view text);

  /// What the files of `directory` tell, by their names; files that cannot be read or used, and
  /// what is no regular file, are passed over. Blocks for reading.
  static std::vector<SupervisionFile> ReadAll(const std::string& directory);
};

}  // namespace platform_host

#endif
