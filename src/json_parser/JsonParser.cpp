#include "json_parser/JsonParser.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "csc_logging/CSCLogging.h"
#include "csc_logging/CSCSubLogger.h"
#include "json_parser/NestingCheck.h"
#include "support/FileContents.h"

// Without the links, closing a bracket searches all tokens before it: quadratic for a list of empty
// arrays.
#define JSMN_PARENT_LINKS
#define JSMN_STATIC
#include <jsmn.h>

namespace json_parser {
namespace {

template <typename Detail>
void LogError(std::string_view message, const Detail& detail) noexcept {
  try {
    const csc_logging::CSCSubLogger logger("JsonParser");
    csc_logging::CSCLogging::LogError(logger.SubLog(message) << detail);
  } catch (const std::bad_alloc&) {
    // The caller's result tells that something failed; there is no memory to say more.
  }
}

// `tokens` may be null: then they are only counted.
int RunTokenizer(const std::string& text, jsmntok_t* tokens, std::int32_t count) {
  jsmn_parser parser;
  jsmn_init(&parser);
  // With the terminating NUL inside its bounds jsmn reports a backslash at the very end as an
  // invalid escape.
  return jsmn_parse(&parser, text.c_str(), text.size() + 1, tokens,
                    static_cast<unsigned int>(count));
}

std::uint32_t Length(const jsmntok_t& token) {
  return static_cast<std::uint32_t>(token.end - token.start);
}

std::string_view TextOf(const std::string& document, const jsmntok_t& token) {
  return std::string_view(document).substr(static_cast<std::size_t>(token.start), Length(token));
}

std::string CopyOf(std::string_view value) noexcept {
  try {
    return std::string(value);
  } catch (const std::bad_alloc&) {
    LogError("Error allocating memory for a value. Number of bytes = ", value.size());
    return {};
  }
}

bool IsSimple(const jsmntok_t& token) {
  return token.type == JSMN_STRING || token.type == JSMN_PRIMITIVE;
}

// Between a key and its value stands a colon and nothing that ends a value.
bool IsKey(const std::string& document, const jsmntok_t& token, const jsmntok_t& next) {
  if (token.type != JSMN_STRING) return false;
  bool hasColon = false;
  for (int at = token.end; at < next.start; ++at) {
    const char character = document[static_cast<std::size_t>(at)];
    if (character == ',' || character == '}') return false;
    hasColon = hasColon || character == ':';
  }
  return hasColon;
}

}  // namespace

struct JsonParser::Tokens {
  std::unique_ptr<jsmntok_t[]> items;
  std::int32_t count;

  [[nodiscard]] const jsmntok_t* End() const { return items.get() + count; }

  // Calls visit(token, next) for each key and its value, in document order.
  template <typename Visit>
  void ForEachPair(const std::string& text, Visit visit) const {
    for (const jsmntok_t* token = items.get() + 1; token + 1 < End(); ++token)
      if (IsKey(text, token[0], token[1])) visit(token[0], token[1]);
  }

  // Calls visit(token) for each element of a top-level array until it returns false.
  template <typename Visit>
  void ForEachElement(Visit visit) const {
    if (count < 2 || items[0].type != JSMN_ARRAY) return;
    int lastEnd = 0;
    for (const jsmntok_t* token = items.get() + 1; token < End(); ++token) {
      if (token->start <= lastEnd) continue;  // inside the last element
      lastEnd = token->end;
      if (!visit(*token)) return;
    }
  }
};

JsonParser::JsonParser(const std::string& text) {
  Read(text, kMaxTextBytes);
}

JsonParser::JsonParser(std::string&& text, std::size_t maxTextBytes) {
  Read(std::move(text), std::min(maxTextBytes, kMaxTextBytes));
}

JsonParser::~JsonParser() = default;

template <typename Text>
void JsonParser::Read(Text&& text, std::size_t maxTextBytes) noexcept {
  const std::size_t size = text.size();
  if (size > maxTextBytes || !IsNestingAcceptable(text, kMaxNestingDepth)) {
    Fail(JSMN_ERROR_INVAL);
    return;
  }
  try {
    document = std::make_shared<const std::string>(std::forward<Text>(text));
  } catch (const std::bad_alloc&) {
    status = JSMN_ERROR_NOMEM;
    LogError("Error allocating memory for json text. Number of bytes = ", size);
    return;
  }
  Parse();
}

void JsonParser::Parse() noexcept {
  const int count = RunTokenizer(*document, nullptr, 0);
  if (count < 0) {
    Fail(count);
    return;
  }
  if (count == 0) return;
  try {
    Tokenize(count);
    if (status < 0) Fail(status);
  } catch (const std::bad_alloc&) {
    status = JSMN_ERROR_NOMEM;
    tokens.reset();
    LogError("Error allocating memory for json tokens. Number of tokens = ", count);
  }
}

void JsonParser::Tokenize(std::int32_t count) {
  // The tokens stay uninitialised until jsmn writes them: no memory is touched twice.
  std::unique_ptr<jsmntok_t[]> items(new jsmntok_t[static_cast<std::size_t>(count)]);
  status = RunTokenizer(*document, items.get(), count);
  if (status < 0) return;
  tokens.reset(new Tokens{std::move(items), count});

  // Counted first, so that the list never grows and takes no more than it needs.
  std::size_t pairCount = 0;
  tokens->ForEachPair(*document, [&](const jsmntok_t&, const jsmntok_t&) { ++pairCount; });
  auto places = std::make_shared<std::vector<KeyValuePairs::Place>>();
  places->reserve(pairCount);
  tokens->ForEachPair(*document, [&](const jsmntok_t& key, const jsmntok_t& value) {
    places->push_back({static_cast<std::uint32_t>(key.start), Length(key),
                       static_cast<std::uint32_t>(value.start), Length(value)});
  });
  pairs = KeyValuePairs(document, std::move(places));
}

void JsonParser::Fail(std::int32_t code) noexcept {
  status = code;
  LogError("Error parsing json file, jsmn error code ", code);
}

std::string JsonParser::GetValueByKey(std::string_view key) const noexcept {
  for (const KeyValuePair pair : pairs)
    if (pair.key == key) return CopyOf(pair.value);
  return {};
}

std::int64_t JsonParser::GetArraySize() noexcept {
  if (arraySize >= 0) return arraySize;
  arraySize = 0;
  if (tokens) {
    tokens->ForEachElement([this](const jsmntok_t&) {
      ++arraySize;
      return true;
    });
  }
  return arraySize;
}

std::string JsonParser::GetArrayValueByIndex(std::int32_t index) const noexcept {
  if (!tokens || index < 0) return {};
  std::string_view value;
  tokens->ForEachElement([&](const jsmntok_t& token) {
    if (index-- > 0) return true;
    value = TextOf(*document, token);
    return false;
  });
  return CopyOf(value);
}

std::string JsonParser::GetSimpleTokenByIndex(std::int32_t index) const noexcept {
  if (!tokens || index < 0) return {};
  for (const jsmntok_t* token = tokens->items.get() + 1; token < tokens->End(); ++token)
    if (IsSimple(*token) && index-- == 0) return CopyOf(TextOf(*document, *token));
  return {};
}

std::string JsonParser::ReadFileIntoString(const std::string& path) noexcept {
  try {
    std::string contents;
    if (support::ReadFile(path, kMaxTextBytes, contents) == 0) return contents;
  } catch (const std::bad_alloc&) {
    // Too long for this machine's memory is unreadable, too.
  }
  LogError("Error reading file ", path);
  return {};
}

}  // namespace json_parser
