/// Base64 (RFC 4648) for the container's segments and certificates: one lenient decoder that reads
/// both alphabets, an encoder for each, and a validator. The client's container code calls it. No
/// state: any thread. Nothing blocks, every operation takes time linear in its input, and no input
/// makes one throw; only exhausted memory does (std::bad_alloc).
#ifndef BASE64_UTILS_BASE64UTILS_H
#define BASE64_UTILS_BASE64UTILS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace base64_utils {

/// What base64_decode returns when one character is left over: six bits are no byte, so something
/// is missing.
inline constexpr std::size_t kLeftOverCharacter = static_cast<std::size_t>(-1);

/// Returns the text of `length` bytes at `data` in the standard alphabet, padded with "=" to a
/// multiple of 4 (RFC 4648 section 4). `data` may be null when `length` is 0.
[[nodiscard]] std::string base64_encode(const unsigned char* data, std::size_t length);

/// Replaces `out` by what `in` decodes to from `position` on. Both alphabets are read, mixed ones
/// too; tab, line feed, carriage return and blank are skipped wherever they stand. The first other
/// character ends the data quietly, and what stands before it is kept. A last group of three
/// characters gives two bytes and takes one "=" after it, one of two gives one byte and takes "=="
/// after it, but never a single "=".
///
/// Returns the position after the consumed input; 0 when nothing was consumed, a `position` at or
/// beyond the end included; kLeftOverCharacter when one character was left over (`out` then holds
/// the groups before it). REQUIRES: `in` is no view of `out`.
[[nodiscard]] std::size_t base64_decode(std::string_view in, std::string& out,
                                        std::size_t position);

/// Tells whether `text` is well-formed in either alphabet (or a mixture), without white space:
/// padded to a multiple of 4 by at most two "=", or unpadded with a length that some bytes have.
/// The empty text is well-formed.
[[nodiscard]] bool base64_validate(std::string_view text);

/// The operations above for texts and byte vectors. A decoding that failed is an empty result, and
/// so is an empty text; a text with a left-over character has failed as a whole, one that ends at a
/// foreign character has not.
class Base64Utils {
 public:
  /// base64_encode of the bytes of `text`.
  [[nodiscard]] static std::string Base64Encode(std::string_view text);

  /// base64_encode of `bytes`.
  [[nodiscard]] static std::string Base64EncodeFromBinaryVector(
      const std::vector<std::uint8_t>& bytes);

  /// What `text` decodes to from its beginning, or an empty text after a failure.
  [[nodiscard]] static std::string Base64Decode(std::string_view text);

  /// Exactly base64_decode, its result included.
  [[nodiscard]] static std::size_t Base64Decode(std::string_view text, std::string& out,
                                                std::size_t position);

  /// Base64Decode as bytes.
  [[nodiscard]] static std::vector<std::uint8_t> Base64DecodeToBinaryVector(std::string_view text);

  /// Exactly base64_validate.
  [[nodiscard]] static bool Base64Validate(std::string_view text);

  /// As Base64Encode in the URL-safe alphabet (RFC 4648 section 5). The padding stays.
  [[nodiscard]] static std::string Base64UrlEncode(std::string_view text);

  /// As Base64UrlEncode, of bytes.
  [[nodiscard]] static std::string Base64UrlEncodeFromBinaryVector(
      const std::vector<std::uint8_t>& bytes);

  /// What URL-safe `text` decodes to, or an empty text after a failure. The decoder reads both
  /// alphabets, so this is Base64Decode under the name that tells what the caller expects.
  [[nodiscard]] static std::string Base64UrlDecode(std::string_view text);

  /// Base64UrlDecode as bytes.
  [[nodiscard]] static std::vector<std::uint8_t> Base64UrlDecodeToBinaryVector(
      std::string_view text);
};

}  // namespace base64_utils

#endif
