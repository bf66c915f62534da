#include "base64_utils/BlockDecoder.h"

#if defined(__x86_64__)

#include <tmmintrin.h>

#include <cstring>

namespace base64_utils {
namespace {

// A block of 16 characters gives 12 bytes but stores 16: those of 24 characters have to have room.
constexpr std::size_t kBlock = 16;
constexpr std::size_t kLeastRoom = 24;

// A character is judged and translated by its two hexadecimal digits. The first puts it into a
// class; the second tells the classes that it is foreign to. A character of the alphabets has no
// bit in both.
//   0x01: 2x, of which + - /    0x04: 4x and 6x, all but x0      0x10: 7x, of which p to z
//   0x02: 3x, of which 0 to 9   0x08: 5x, of which P to Z and _  0x20: every other first digit
constexpr unsigned char kClass[16] = {0x20, 0x20, 0x01, 0x02, 0x04, 0x08, 0x04, 0x10,
                                      0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20, 0x20};
constexpr unsigned char kForeign[16] = {0x25, 0x21, 0x21, 0x21, 0x21, 0x21, 0x21, 0x21,
                                        0x21, 0x21, 0x23, 0x3A, 0x3B, 0x3A, 0x3B, 0x32};

// What makes a value of a character, by its first digit; three characters differ from their row and
// have their own places behind the rows.
constexpr signed char kOffset[16] = {0,        0,        62 - '+', 52 - '0', -'A',     -'A',
                                     26 - 'a', 26 - 'a', 62 - '-', 63 - '/', 63 - '_', 0,
                                     0,        0,        0,        0};
constexpr char kMinusPlace = 8 - 2;
constexpr char kSlashPlace = 9 - 2;
constexpr char kUnderscorePlace = 10 - 5;

// The three bytes of every group in a little-endian 32-bit number, the highest first; -1 gives
// zeros.
constexpr signed char kBytes[16] = {2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1};

template <typename Source>
__m128i Load(const Source* source) {
  __m128i vector;
  std::memcpy(&vector, source, sizeof vector);
  return vector;
}

// Tells where `chars` hold `character`: there the bytes of `place`, zero elsewhere.
__m128i PlaceIf(__m128i chars, char character, char place) {
  return _mm_and_si128(_mm_cmpeq_epi8(chars, _mm_set1_epi8(character)), _mm_set1_epi8(place));
}

__attribute__((target("ssse3"))) std::size_t DecodeWithShuffles(std::string_view in,
                                                                unsigned char* out) {
  const __m128i classes = Load(kClass);
  const __m128i foreign = Load(kForeign);
  const __m128i offsets = Load(kOffset);
  const __m128i bytes = Load(kBytes);
  const __m128i digit = _mm_set1_epi8(0x0F);
  std::size_t at = 0;
  for (; in.size() - at >= kLeastRoom; at += kBlock, out += kBlock / 4 * 3) {
    const __m128i chars = Load(in.data() + at);
    const __m128i first = _mm_and_si128(_mm_srli_epi32(chars, 4), digit);
    const __m128i wrong = _mm_and_si128(_mm_shuffle_epi8(classes, first),
                                        _mm_shuffle_epi8(foreign, _mm_and_si128(chars, digit)));
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(wrong, _mm_setzero_si128())) != 0xFFFF) break;

    __m128i place = _mm_add_epi8(first, PlaceIf(chars, '-', kMinusPlace));
    place = _mm_add_epi8(place, PlaceIf(chars, '/', kSlashPlace));
    place = _mm_add_epi8(place, PlaceIf(chars, '_', kUnderscorePlace));
    const __m128i values = _mm_add_epi8(chars, _mm_shuffle_epi8(offsets, place));

    // Values to pairs of 12 bits, pairs to groups of 24.
    const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(0x01400140));
    const __m128i groups = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));
    const __m128i decoded = _mm_shuffle_epi8(groups, bytes);
    std::memcpy(out, &decoded, sizeof decoded);
  }
  return at;
}

}  // namespace

std::size_t DecodeBlocks(std::string_view in, unsigned char* out) noexcept {
  return __builtin_cpu_supports("ssse3") ? DecodeWithShuffles(in, out) : 0;
}

}  // namespace base64_utils

#elif defined(__aarch64__)

#include <arm_neon.h>

#include <array>

namespace base64_utils {
namespace {

constexpr std::size_t kBlock = 64;
constexpr unsigned char kNoValue = 0x80;

// The values of the ASCII characters, in two halves: as much as one look-up reaches.
constexpr std::array<unsigned char, 128> MakeValues() {
  std::array<unsigned char, 128> values{};
  for (auto& value : values) value = kNoValue;
  unsigned char next = 0;
  for (unsigned char c = 'A'; c <= 'Z'; ++c) values[c] = next++;
  for (unsigned char c = 'a'; c <= 'z'; ++c) values[c] = next++;
  for (unsigned char c = '0'; c <= '9'; ++c) values[c] = next++;
  values['+'] = values['-'] = 62;
  values['/'] = values['_'] = 63;
  return values;
}

constexpr std::array<unsigned char, 128> kValues = MakeValues();

// A look-up beyond its half gives 0, so one of the two speaks. What is not ASCII keeps its own high
// bit.
uint8x16_t ValuesOf(uint8x16_t chars, const uint8x16x4_t& low, const uint8x16x4_t& high) {
  const uint8x16_t inLow = vqtbl4q_u8(low, chars);
  const uint8x16_t inHigh = vqtbl4q_u8(high, veorq_u8(chars, vdupq_n_u8(0x40)));
  return vorrq_u8(vorrq_u8(inLow, inHigh), vandq_u8(chars, vdupq_n_u8(kNoValue)));
}

}  // namespace

std::size_t DecodeBlocks(std::string_view in, unsigned char* out) noexcept {
  const uint8x16x4_t low = vld1q_u8_x4(kValues.data());
  const uint8x16x4_t high = vld1q_u8_x4(kValues.data() + 64);
  std::size_t at = 0;
  for (; in.size() - at >= kBlock; at += kBlock, out += kBlock / 4 * 3) {
    // The load deals the characters out to four vectors, one for each place of a group; the store
    // collects three.
    const uint8x16x4_t chars = vld4q_u8(reinterpret_cast<const unsigned char*>(in.data()) + at);
    const uint8x16_t a = ValuesOf(chars.val[0], low, high);
    const uint8x16_t b = ValuesOf(chars.val[1], low, high);
    const uint8x16_t c = ValuesOf(chars.val[2], low, high);
    const uint8x16_t d = ValuesOf(chars.val[3], low, high);
    if (vmaxvq_u8(vorrq_u8(vorrq_u8(a, b), vorrq_u8(c, d))) >= kNoValue) break;
    uint8x16x3_t decoded;
    decoded.val[0] = vorrq_u8(vshlq_n_u8(a, 2), vshrq_n_u8(b, 4));
    decoded.val[1] = vorrq_u8(vshlq_n_u8(b, 4), vshrq_n_u8(c, 2));
    decoded.val[2] = vorrq_u8(vshlq_n_u8(c, 6), d);
    vst3q_u8(out, decoded);
  }
  return at;
}

}  // namespace base64_utils

#else

namespace base64_utils {

std::size_t DecodeBlocks(std::string_view, unsigned char*) noexcept {
  return 0;
}

}  // namespace base64_utils

#endif
