/// From names that come from outside to file names and back. For the trust store and the
/// persistency. Pure: any thread.
#ifndef PLATFORM_HOST_FILES_FILENAME_H
#define PLATFORM_HOST_FILES_FILENAME_H

#include <optional>
#include <string>
#include <string_view>

namespace platform_host {

/// `name` with every byte but letters, digits, '_', '-' and '.' behind the first byte written as
/// "%XX"; "%" for the empty name. Different names give different results, none of which is empty,
/// holds a slash or begins with a dot, so that no name can leave its directory or take another's
/// file. May be too long for a file name: the system tells then.
[[nodiscard]] std::string FileNameOf(std::string_view name);

/// The name whose FileNameOf is `fileName`; none when there is no such name.
[[nodiscard]] std::optional<std::string> NameOfFile(std::string_view fileName);

}  // namespace platform_host

#endif
