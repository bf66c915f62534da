/// The part of the base64 decoder that is written for the processor: long runs of plain base64
/// characters. Only Base64Utils calls it. No state: any thread.
#ifndef BASE64_UTILS_BLOCKDECODER_H
#define BASE64_UTILS_BLOCKDECODER_H

#include <cstddef>
#include <string_view>

namespace base64_utils {

/// Decodes characters of either alphabet from the beginning of `in` into `out` in blocks. Stops
/// before the first block that holds anything else, near the end of `in`, and at once on a
/// processor that it has no way for; whoever calls decodes the rest. Returns the number of
/// characters decoded, a multiple of 4; 3 bytes for every 4 of them stand in `out`. Neither throws
/// nor allocates. REQUIRES: `out` has room for 3 bytes for every 4 characters of `in`. Bytes behind
/// the decoded ones may be overwritten.
[[nodiscard]] std::size_t DecodeBlocks(std::string_view in, unsigned char* out) noexcept;

}  // namespace base64_utils

#endif
