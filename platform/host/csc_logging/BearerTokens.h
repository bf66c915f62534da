/// Keeps access tokens out of what the log writes. Pure functions: any thread. They throw
/// std::bad_alloc only.
#ifndef PLATFORM_HOST_CSC_LOGGING_BEARERTOKENS_H
#define PLATFORM_HOST_CSC_LOGGING_BEARERTOKENS_H

#include <string>
#include <string_view>

namespace platform_host {

/// Stands in place of each token.
inline constexpr std::string_view kHiddenToken = "***";

/// `text` with kHiddenToken in place of every access token in it: what follows the word "Bearer",
/// in upper or lower case (RFC 9110 section 11.1), and its blanks, up to the next blank or control
/// character. That is more than RFC 6750 section 2.1 lets a token be made of: a unit may be
/// configured with any visible characters, and a part of a token is not to be shown either. Where
/// nothing follows, nothing is changed. Returns `text` itself when there is no token, else a view
/// of `storage`, which then holds the changed text; in linear time, without memory in the first
/// case.
[[nodiscard]] std::string_view HideBearerTokens(std::string_view text, std::string& storage);

}  // namespace platform_host

#endif
