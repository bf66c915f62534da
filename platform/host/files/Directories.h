/// Directories made on demand. For the trust store and the persistency. Any thread, any process at
/// once.
#ifndef PLATFORM_HOST_FILES_DIRECTORIES_H
#define PLATFORM_HOST_FILES_DIRECTORIES_H

#include <string>

namespace platform_host {

/// Makes `path`, which is absolute, and what is missing of the directories above it, with mode 0755
/// whatever the umask; each survives a power loss. Links to directories are followed. Returns 0 or
/// an errno: ENOTDIR when something else is in the way. What was made before a failure stays.
[[nodiscard]] int MakeDirectories(const std::string& path);

}  // namespace platform_host

#endif
