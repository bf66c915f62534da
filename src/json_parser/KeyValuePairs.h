/// The key-value pairs of a JSON document, as JsonParser found them: the parsed form of a
/// container's header and payload. Constant after construction, so that any number of threads may
/// read one list.
#ifndef JSON_PARSER_KEYVALUEPAIRS_H
#define JSON_PARSER_KEYVALUEPAIRS_H

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace json_parser {

/// One pair as raw text of the document: the key without its quotes, the value without quotes when
/// it is a string and exactly as it stands there otherwise. Escape sequences are not decoded. Both
/// are views into the document: they live as long as any copy of the list they come from.
struct KeyValuePair {
  std::string_view key;
  std::string_view value;
};

/// A list of pairs in document order. Copies are cheap: they share the document and the places of
/// the pairs in it, and keep both alive. Nothing is copied out of the document, so a value costs no
/// memory however long and however often nested it is. No operation allocates, throws or blocks.
class KeyValuePairs {
 public:
  /// Where a pair stands in the document, in bytes.
  struct Place {
    std::uint32_t keyBegin;
    std::uint32_t keyLength;
    std::uint32_t valueBegin;
    std::uint32_t valueLength;
  };

  /// Walks a list; valid as long as the list it comes from. Gives pairs by value.
  class Iterator {
   public:
    /// Multipass as long as the list lives, but a pair is made when it is asked for: an input
    /// iterator to the standard library.
    using iterator_category = std::input_iterator_tag;
    using value_type = KeyValuePair;
    using difference_type = std::ptrdiff_t;
    using pointer = const KeyValuePair*;
    using reference = KeyValuePair;

    /// Stands at pair `firstIndex` of `walkedPairs`, or behind its last.
    Iterator(const KeyValuePairs& walkedPairs, std::size_t firstIndex)
        : pairs(&walkedPairs), index(firstIndex) {}

    /// The pair it stands at. REQUIRES: it is not the end.
    KeyValuePair operator*() const { return (*pairs)[index]; }
    /// Goes on to the next pair.
    Iterator& operator++() {
      ++index;
      return *this;
    }
    /// Goes on to the next pair and returns where it stood.
    Iterator operator++(int) { return {*pairs, index++}; }
    /// Tell whether both stand at the same place. REQUIRES: they walk the same list.
    bool operator==(const Iterator& other) const { return index == other.index; }
    bool operator!=(const Iterator& other) const { return index != other.index; }

   private:
    const KeyValuePairs* pairs;
    std::size_t index;
  };

  /// No pairs.
  KeyValuePairs() = default;

  /// The pairs at `pairPlaces` of `document`. REQUIRES: both are there, and every place lies inside
  /// the document.
  KeyValuePairs(std::shared_ptr<const std::string> document,
                std::shared_ptr<const std::vector<Place>> pairPlaces) noexcept
      : text(std::move(document)), places(std::move(pairPlaces)) {}

  /// The number of pairs.
  [[nodiscard]] std::size_t size() const noexcept { return places ? places->size() : 0; }
  /// Tells whether there is no pair.
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }

  /// The pair at `index`. REQUIRES: index < size().
  [[nodiscard]] KeyValuePair operator[](std::size_t index) const noexcept;

  /// The first pair, and the place behind the last one: for range-based loops and algorithms.
  [[nodiscard]] Iterator begin() const noexcept { return {*this, 0}; }
  [[nodiscard]] Iterator end() const noexcept { return {*this, size()}; }

 private:
  std::shared_ptr<const std::string> text;
  std::shared_ptr<const std::vector<Place>> places;
};

}  // namespace json_parser

#endif
