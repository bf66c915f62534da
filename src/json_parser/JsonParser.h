/// JSON text as flat views: every key-value pair, look-up by key, the elements of a top-level
/// array. The client reads the container's header and payload with it. Each parser belongs to one
/// thread at a time.
///
/// The text comes from outside. It is tokenized by jsmn in its lenient mode: what is no JSON may
/// pass as some list of tokens, but always in time and memory linear in its length. Nothing throws.
#ifndef JSON_PARSER_JSONPARSER_H
#define JSON_PARSER_JSONPARSER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "json_parser/KeyValuePairs.h"

namespace json_parser {

/// Objects and arrays that may be open at once. Containers need 2; jsmn's time is quadratic in it.
inline constexpr int kMaxNestingDepth = 16;

/// Longest text in bytes. A container of 100,000 certificates is within it, the tokenizer's 32-bit
/// offsets far above it.
inline constexpr std::size_t kMaxTextBytes = 256U << 20U;

/// Tokenizes a text once and answers every query from the tokens. Values are raw text: a string
/// without its quotes, all else exactly as it stands in the document, and no escape sequence is
/// decoded. After a failed parse every query gives its empty result. A query whose result memory
/// does not suffice for logs an error and gives an empty result.
class JsonParser {
 public:
  /// Tokenizes a copy of `text`.
  explicit JsonParser(const std::string& text);

  /// Tokenizes `text` itself, so that a long document is in memory once. Texts above `maxTextBytes`
  /// (at most kMaxTextBytes) are refused.
  explicit JsonParser(std::string&& text, std::size_t maxTextBytes = kMaxTextBytes);

  ~JsonParser();
  JsonParser(const JsonParser&) = delete;
  JsonParser& operator=(const JsonParser&) = delete;

  /// The number of tokens, 0 for a text without any; or why there is no document, which has been
  /// logged: -1 memory did not suffice, -2 an invalid character, nesting above kMaxNestingDepth, a
  /// closing bracket without an opening one or a text above the limit, -3 the document is
  /// incomplete. Callers treat whatever is below 1 as no usable document.
  [[nodiscard]] std::int32_t GetParserStatus() const noexcept { return status; }

  /// Every key-value pair of the document at any depth, in document order, duplicates included. A
  /// value that is an object is followed by its own pairs. The list outlives the parser.
  [[nodiscard]] KeyValuePairs GetValuesForAllKeys() const noexcept { return pairs; }

  /// The value of the first pair whose key is exactly `key`, or an empty text.
  [[nodiscard]] std::string GetValueByKey(std::string_view key) const noexcept;

  /// The number of elements of a top-level array, 0 when the document is none. Counted at the first
  /// call.
  [[nodiscard]] std::int64_t GetArraySize() noexcept;

  /// The raw text of element `index`, from 0, of a top-level array; an empty text when the document
  /// is none or has no such element. Takes time linear in the elements before it.
  [[nodiscard]] std::string GetArrayValueByIndex(std::int32_t index) const noexcept;

  /// The text of the string or unquoted value that is number `index`, from 0, of all of them, keys
  /// and the nested ones included, the first token of the document excluded; an empty text when
  /// there is none.
  [[nodiscard]] std::string GetSimpleTokenByIndex(std::int32_t index) const noexcept;

  /// The content of the file at `path`. When it cannot be read or is longer than kMaxTextBytes,
  /// logs an error and returns an empty text. Blocks for as long as the file system does.
  [[nodiscard]] static std::string ReadFileIntoString(const std::string& path) noexcept;

 private:
  struct Tokens;

  template <typename Text>
  void Read(Text&& text, std::size_t maxTextBytes) noexcept;
  void Parse() noexcept;
  void Tokenize(std::int32_t count);
  void Fail(std::int32_t code) noexcept;

  std::shared_ptr<const std::string> document;
  std::unique_ptr<Tokens> tokens;
  std::int32_t status = 0;
  std::int64_t arraySize = -1;
  KeyValuePairs pairs;
};

}  // namespace json_parser

#endif
