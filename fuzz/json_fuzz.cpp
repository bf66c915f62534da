// Every query of the JSON reader on one text: views stay inside the document and in its order, the
// queries agree with each other, a failed parse answers nothing. What an independent library calls
// JSON is read, and nothing that the tokenizer sees as nested too deep gets to it.

// The tokenizer is built as the reader builds it.
#define JSMN_PARENT_LINKS
#define JSMN_STATIC
#include <jsmn.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Require.h"
#include "json_parser/JsonParser.h"
#include "json_parser/NestingCheck.h"
#include "platform/host/csc_logging/CapturedLog.h"

namespace {

using json_parser::JsonParser;
using json_parser::KeyValuePair;
using json_parser::KeyValuePairs;

// Values contain each other, keys do not: only those advance. Pairs of one document are compared by
// address.
void CheckPairs(const JsonParser& parser, const KeyValuePairs& pairs) {
  const std::less<> before;
  const char* last = nullptr;
  for (const KeyValuePair& pair : pairs) {
    const char* const keyEnd = pair.key.data() + pair.key.size();
    fuzz::Require(last == nullptr || before(last, pair.key.data()), "keys in document order");
    fuzz::Require(before(keyEnd, pair.value.data()), "a value stands behind its key");
    fuzz::Require(*keyEnd == '"' && pair.key.data()[-1] == '"', "a key is a string");
    last = keyEnd;
  }
  if (pairs.empty()) return;
  fuzz::Require(parser.GetValueByKey(pairs[0].key) == pairs[0].value,
                "the first key finds the first value");
}

// The least and the greatest address that the views of `pairs` reach stand inside a text of
// `length`.
void CheckExtent(const KeyValuePairs& pairs, std::size_t length) {
  if (pairs.empty()) return;
  const char* const first = pairs[0].key.data();
  for (const KeyValuePair& pair : pairs)
    fuzz::Require(static_cast<std::size_t>(pair.value.data() + pair.value.size() - first) < length,
                  "values end inside the document");
}

void CheckArray(JsonParser& parser, const std::string& text) {
  const std::int64_t size = parser.GetArraySize();
  fuzz::Require(size >= 0 && size == parser.GetArraySize(), "a size, and the same again");
  std::size_t from = 0;
  for (std::int64_t i = 0; i < size && i < 64; ++i) {
    const std::string element = parser.GetArrayValueByIndex(static_cast<std::int32_t>(i));
    from = text.find(element, from);
    fuzz::Require(from != std::string::npos, "elements are texts of the document, in order");
  }
  for (const std::int64_t index :
       {size, std::int64_t{-1}, std::int64_t{std::numeric_limits<std::int32_t>::max()}})
    fuzz::Require(parser.GetArrayValueByIndex(static_cast<std::int32_t>(index)).empty(),
                  "none out of range");
}

void CheckSimpleTokens(const JsonParser& parser, const std::string& text) {
  std::size_t from = 0;
  for (std::int32_t i = 0; i < 64; ++i) {
    const std::string token = parser.GetSimpleTokenByIndex(i);
    from = text.find(token, from);
    fuzz::Require(from != std::string::npos, "tokens are texts of the document, in order");
  }
  fuzz::Require(parser.GetSimpleTokenByIndex(-1).empty(), "none before the first");
  fuzz::Require(parser.GetSimpleTokenByIndex(parser.GetParserStatus() + 1).empty(),
                "none behind the last");
}

// Returns how many brackets jsmn holds open at once, in whatever it reads of `text`.
std::size_t DepthForTokenizer(const std::string& text) {
  std::vector<jsmntok_t> tokens(text.size() + 1);
  jsmn_parser parser;
  jsmn_init(&parser);
  jsmn_parse(&parser, text.c_str(), text.size() + 1, tokens.data(),
             static_cast<unsigned int>(tokens.size()));
  std::vector<int> openEnds;
  std::size_t deepest = 0;
  for (std::size_t i = 0; i < parser.toknext; ++i) {
    if (tokens[i].type != JSMN_OBJECT && tokens[i].type != JSMN_ARRAY) continue;
    const auto hasEnded = [&](int end) { return end != -1 && end <= tokens[i].start; };
    while (!openEnds.empty() && hasEnded(openEnds.back())) openEnds.pop_back();
    openEnds.push_back(tokens[i].end);
    deepest = std::max(deepest, openEnds.size());
  }
  return deepest;
}

void CheckNesting(const std::string& text) {
  const std::size_t depth = DepthForTokenizer(text);
  for (const int limit : {0, 1, 2, 3, json_parser::kMaxNestingDepth})
    if (depth > static_cast<std::size_t>(limit))
      fuzz::Require(!json_parser::IsNestingAcceptable(text, limit),
                    "nothing too deep reaches the tokenizer");
}

void CheckJson(const std::string& text, std::int32_t status) {
  using nlohmann::json;
  int deepest = 0;
  const auto note = [&](int depth, json::parse_event_t event, json&) {
    if (event == json::parse_event_t::object_start || event == json::parse_event_t::array_start)
      deepest = std::max(deepest, depth + 1);
    return true;
  };
  // A byte order mark is nothing that RFC 8259 section 8.1 lets a sender write; that library skips
  // it.
  const bool isJson =
      !json::parse(text, note, false).is_discarded() && text.compare(0, 1, "\xEF") != 0;
  if (isJson)
    fuzz::Require(status == -2 ? deepest > json_parser::kMaxNestingDepth : status > 0,
                  "JSON is read");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const platform_host::CapturedLog log;
  const std::string text(reinterpret_cast<const char*>(data), size);
  JsonParser parser(text);
  const std::int32_t status = parser.GetParserStatus();
  const KeyValuePairs pairs = parser.GetValuesForAllKeys();
  fuzz::Require(status >= -3 && status != -1, "a status that is documented");
  fuzz::Require((status < 0) == (log.Lines().size() == 1), "a failure is one line");
  fuzz::Require(status > 0 || (pairs.empty() && parser.GetArraySize() == 0),
                "no document, no answers");
  fuzz::Require(
      json_parser::IsNestingAcceptable(text, json_parser::kMaxNestingDepth) || status == -2,
      "refused nesting is not tokenized");
  CheckPairs(parser, pairs);
  CheckExtent(pairs, size);
  CheckArray(parser, text);
  CheckSimpleTokens(parser, text);
  CheckNesting(text);
  CheckJson(text, status);
  return 0;
}
