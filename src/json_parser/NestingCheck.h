/// What JsonParser asks of a text before the tokenizer sees it. No state: any thread.
#ifndef JSON_PARSER_NESTINGCHECK_H
#define JSON_PARSER_NESTINGCHECK_H

#include <string_view>

namespace json_parser {

/// Tells whether no more than `maxDepth` objects and arrays of `text` are ever open at once, and no
/// bracket closes when none is open. Takes one pass without memory, does not throw, and passes no
/// judgement on anything else: what it accepts may be no JSON at all.
///
/// It stands between hostile texts and jsmn, whose time is quadratic in the depth and, where it
/// tolerates a closing bracket too many, in the length. It therefore sees strings, escapes and
/// unquoted values exactly as jsmn in its non-strict mode does: an unquoted value swallows quotes
/// and opening brackets up to its end, and the first NUL character ends the text.
[[nodiscard]] bool IsNestingAcceptable(std::string_view text, int maxDepth) noexcept;

}  // namespace json_parser

#endif
