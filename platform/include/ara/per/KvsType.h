/// A value of the key-value storage. Each object belongs to one thread at a time.
#ifndef ARA_PER_KVSTYPE_H
#define ARA_PER_KVSTYPE_H

#include <cstdint>
#include <utility>
#include <variant>
#include <vector>

namespace ara::per {

/// Holds one value of a type that the storage keeps beside it.
class KvsType {
 public:
  explicit KvsType(std::vector<std::uint8_t> buffer) : value(std::move(buffer)) {}
  explicit KvsType(std::uint16_t number) : value(number) {}

  /// The bytes, or null when this is a number.
  [[nodiscard]] const std::vector<std::uint8_t>* GetBinary() const {
    return std::get_if<std::vector<std::uint8_t>>(&value);
  }

  /// The number, or null when this is binary.
  [[nodiscard]] const std::uint16_t* GetUnsignedShort() const {
    return std::get_if<std::uint16_t>(&value);
  }

 private:
  std::variant<std::vector<std::uint8_t>, std::uint16_t> value;
};

}  // namespace ara::per

#endif
