/// Files that a person named on the command line. No state; any thread. Block for as long as the
/// file system does.
#ifndef TOOLS_TSC_FILES_H
#define TOOLS_TSC_FILES_H

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/host/config/Result.h"

namespace tsc {

/// The largest container that is read: far above any real one.
inline constexpr std::size_t kMaxFileBytes = std::size_t{256} * 1024 * 1024;

/// The bytes of `path`. The error names the file; it tells a file above `limit` bytes too.
[[nodiscard]] platform_host::Result<std::string> ReadWholeFile(const std::string& path,
                                                               std::size_t limit = kMaxFileBytes);

/// Replaces `path` by a file with `bytes`, as a whole or not at all. Empty, or an error text that
/// names the file.
[[nodiscard]] std::string ReplaceWholeFile(const std::string& path, std::string_view bytes);

}  // namespace tsc

#endif
