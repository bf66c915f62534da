#include "base64_utils/Base64Utils.h"

#include <array>

#include "base64_utils/BlockDecoder.h"

namespace base64_utils {
namespace {

constexpr std::string_view base64_chars =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kUrlSafeChars =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

// What a byte is to the decoder, when it is no value of 0 to 63.
constexpr std::uint8_t kSkip = 64;
constexpr std::uint8_t kPadding = 65;
constexpr std::uint8_t kInvalid = 66;

constexpr std::size_t Index(char character) {
  return static_cast<unsigned char>(character);
}

constexpr std::array<std::uint8_t, 256> MakeDecodingTable() {
  std::array<std::uint8_t, 256> table{};
  for (auto& entry : table) entry = kInvalid;
  for (std::uint8_t value = 0; value < 64; ++value) {
    table[Index(base64_chars[value])] = value;
    table[Index(kUrlSafeChars[value])] = value;
  }
  for (const char blank : {'\t', '\n', '\r', ' '}) table[Index(blank)] = kSkip;
  table[Index('=')] = kPadding;
  return table;
}

constexpr std::array<std::uint8_t, 256> BASE64_TO_BIN_URL_SAFE = MakeDecodingTable();

constexpr bool IsValue(std::uint8_t entry) {
  return entry < 64;
}

// A table for each place of a group of four holds the values shifted to where they belong, so that
// a group is four look-ups and three ORs. Whatever is no value carries a bit above the 24 of a
// group.
constexpr std::uint32_t kNoValue = 1U << 31U;
using PlaceTable = std::array<std::uint32_t, 256>;

constexpr PlaceTable MakePlaceTable(unsigned shift) {
  PlaceTable table{};
  for (std::size_t byte = 0; byte < table.size(); ++byte) {
    const std::uint8_t entry = BASE64_TO_BIN_URL_SAFE[byte];
    table[byte] = IsValue(entry) ? std::uint32_t{entry} << shift : kNoValue;
  }
  return table;
}

constexpr std::array<PlaceTable, 4> kPlaces = {MakePlaceTable(18), MakePlaceTable(12),
                                               MakePlaceTable(6), MakePlaceTable(0)};

std::uint32_t ReadGroup(const char* in) {
  return kPlaces[0][Index(in[0])] | kPlaces[1][Index(in[1])] | kPlaces[2][Index(in[2])] |
         kPlaces[3][Index(in[3])];
}

template <typename Byte>
void WriteGroup(std::uint32_t group, Byte* out) {
  out[0] = static_cast<Byte>(group >> 16U & 0xFFU);
  out[1] = static_cast<Byte>(group >> 8U & 0xFFU);
  out[2] = static_cast<Byte>(group & 0xFFU);
}

// Decodes groups as long as they stand without anything between their characters. Returns the
// number of characters read. The state is in locals: stores through a char pointer would otherwise
// force every member to be loaded again.
template <typename Byte>
std::size_t DecodeWholeGroups(std::string_view in, Byte* out) {
  std::size_t at = DecodeBlocks(in, reinterpret_cast<unsigned char*>(out));
  out += at / 4 * 3;
  for (; in.size() - at >= 4; at += 4, out += 3) {
    const std::uint32_t group = ReadGroup(in.data() + at);
    if ((group & kNoValue) != 0) break;
    WriteGroup(group, out);
  }
  return at;
}

// Decodes from `in` into `out`, which has room for three bytes for every four characters, rounded
// up. Byte is char or std::uint8_t: a caller's own buffer is filled, whatever it is made of.
template <typename Byte>
class Decoder {
 public:
  Decoder(std::string_view text, std::size_t position, Byte* buffer)
      : in(text), at(position), begin(buffer), out(buffer) {}

  // Returns what base64_decode returns.
  std::size_t Run() {
    const std::size_t start = at;
    do {
      ReadWholeGroups();
    } while (ReadGroupWithBlanks());
    if (collected == 1) return kLeftOverCharacter;
    FinishPartialGroup();
    return at == start ? 0 : at;
  }

  [[nodiscard]] std::size_t Written() const { return static_cast<std::size_t>(out - begin); }

 private:
  // REQUIRES: no value is collected.
  void ReadWholeGroups() {
    const std::size_t length = DecodeWholeGroups(in.substr(at), out);
    at += length;
    out += length / 4 * 3;
  }

  // One group by single characters; false when the data end before it is complete.
  bool ReadGroupWithBlanks() {
    for (; at < in.size(); ++at) {
      const std::uint8_t entry = BASE64_TO_BIN_URL_SAFE[Index(in[at])];
      if (entry == kSkip) continue;
      if (!IsValue(entry)) return false;
      bits = bits << 6U | entry;
      if (++collected == 4) {
        ++at;
        WriteGroup(bits, out);
        out += 3;
        bits = 0;
        collected = 0;
        return true;
      }
    }
    return false;
  }

  void FinishPartialGroup() {
    if (collected == 3) {
      *out++ = static_cast<Byte>(bits >> 10U & 0xFFU);
      *out++ = static_cast<Byte>(bits >> 2U & 0xFFU);
      if (in.substr(at, 1) == "=") at += 1;
    } else if (collected == 2) {
      *out++ = static_cast<Byte>(bits >> 4U & 0xFFU);
      if (in.substr(at, 2) == "==") at += 2;
    }
  }

  std::string_view in;
  std::size_t at;
  Byte* begin;
  Byte* out;
  std::uint32_t bits = 0;
  unsigned collected = 0;
};

template <typename Container>
std::size_t DecodeInto(std::string_view in, Container& out, std::size_t position) {
  out.clear();
  if (position >= in.size()) return 0;
  out.resize((in.size() - position + 3) / 4 * 3);
  Decoder decoder(in, position, out.data());
  const std::size_t result = decoder.Run();
  out.resize(decoder.Written());
  return result;
}

template <typename Container>
Container DecodeOrEmpty(std::string_view text) {
  Container decoded;
  const std::size_t result = DecodeInto(text, decoded, 0);
  if (result == 0 || result == kLeftOverCharacter) decoded.clear();
  return decoded;
}

std::string Encode(const unsigned char* data, std::size_t length, std::string_view alphabet) {
  std::string text((length + 2) / 3 * 4, '=');
  char* out = text.data();
  for (; length >= 3; length -= 3, data += 3) {
    *out++ = alphabet[data[0] >> 2U];
    *out++ = alphabet[(data[0] & 0x03U) << 4U | data[1] >> 4U];
    *out++ = alphabet[(data[1] & 0x0FU) << 2U | data[2] >> 6U];
    *out++ = alphabet[data[2] & 0x3FU];
  }
  if (length > 0) {
    const unsigned second = length == 2 ? data[1] : 0U;
    *out++ = alphabet[data[0] >> 2U];
    *out++ = alphabet[(data[0] & 0x03U) << 4U | second >> 4U];
    if (length == 2) *out++ = alphabet[(second & 0x0FU) << 2U];
  }
  return text;
}

const unsigned char* BytesOf(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

std::string base64_encode(const unsigned char* data, std::size_t length) {
  return Encode(data, length, base64_chars);
}

std::size_t base64_decode(std::string_view in, std::string& out, std::size_t position) {
  return DecodeInto(in, out, position);
}

bool base64_validate(std::string_view text) {
  if (text.size() % 4 == 1) return false;
  if (text.size() % 4 == 0) {
    for (int padding = 0; padding < 2 && !text.empty() && text.back() == '='; ++padding)
      text.remove_suffix(1);
  }
  for (const char character : text)
    if (!IsValue(BASE64_TO_BIN_URL_SAFE[Index(character)])) return false;
  return true;
}

std::string Base64Utils::Base64Encode(std::string_view text) {
  return base64_encode(BytesOf(text), text.size());
}

std::string Base64Utils::Base64EncodeFromBinaryVector(const std::vector<std::uint8_t>& bytes) {
  return base64_encode(bytes.data(), bytes.size());
}

std::string Base64Utils::Base64Decode(std::string_view text) {
  return DecodeOrEmpty<std::string>(text);
}

std::size_t Base64Utils::Base64Decode(std::string_view text, std::string& out,
                                      std::size_t position) {
  return base64_decode(text, out, position);
}

std::vector<std::uint8_t> Base64Utils::Base64DecodeToBinaryVector(std::string_view text) {
  return DecodeOrEmpty<std::vector<std::uint8_t>>(text);
}

bool Base64Utils::Base64Validate(std::string_view text) {
  return base64_validate(text);
}

std::string Base64Utils::Base64UrlEncode(std::string_view text) {
  return Encode(BytesOf(text), text.size(), kUrlSafeChars);
}

std::string Base64Utils::Base64UrlEncodeFromBinaryVector(const std::vector<std::uint8_t>& bytes) {
  return Encode(bytes.data(), bytes.size(), kUrlSafeChars);
}

std::string Base64Utils::Base64UrlDecode(std::string_view text) {
  return Base64Decode(text);
}

std::vector<std::uint8_t> Base64Utils::Base64UrlDecodeToBinaryVector(std::string_view text) {
  return Base64DecodeToBinaryVector(text);
}

}  // namespace base64_utils
