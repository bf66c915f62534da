/// Memory for a response of unknown length. For HttpConnection. Without state: any thread.
#ifndef CSA_COMMON_RECEIVEDTEXT_H
#define CSA_COMMON_RECEIVEDTEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace csa_common {

/// Room that a text is given when it outgrows kShortText: more than most responses need, and the
/// size from which the allocator gives memory a mapping of its own.
inline constexpr std::size_t kShortText = 65536;
inline constexpr std::size_t kLongText = std::size_t{32} * 1024 * 1024;

/// Appends `piece` to `text` as std::string does, but for the time: doubling copies a long text
/// again and again, each time into pages that the system has to hand out one by one, which takes
/// longer than receiving it. Room that is not used costs no memory. Throws std::bad_alloc only when
/// what is needed now cannot be had.
void AppendReceived(std::string& text, std::string_view piece);

}  // namespace csa_common

#endif
