/// How operations of the host platform and of the tools fail: with a text for the person who has to
/// put it right. Plain values: each object belongs to one thread at a time.
#ifndef PLATFORM_HOST_CONFIG_RESULT_H
#define PLATFORM_HOST_CONFIG_RESULT_H

#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>

namespace platform_host {

/// Why an operation failed, without a full stop or a line feed.
class [[nodiscard]] Error {
 public:
  /// `reason` is one sentence for the log, or a part of one.
  explicit Error(std::string reason) : text(std::move(reason)) {}

  /// The system's own text for the errno `number`.
  static Error OfErrno(int number) { return Error(std::generic_category().message(number)); }

  /// The reference lives as long as this object.
  [[nodiscard]] const std::string& Text() const { return text; }

  /// The same failure told by the caller one level up: "context: text".
  Error WithContext(std::string_view context) const {
    return Error(std::string(context) + ": " + text);
  }

 private:
  std::string text;
};

/// A value or an Error.
template <typename T>
class [[nodiscard]] Result {
 public:
  /// Success. Implicit, so that operations simply return their value.
  Result(T result) : content(std::in_place_index<0>, std::move(result)) {}

  /// Failure. Implicit, so that operations simply return their error.
  Result(Error error) : content(std::in_place_index<1>, std::move(error)) {}

  /// Whether there is a value.
  [[nodiscard]] bool Ok() const { return content.index() == 0; }

  /// REQUIRES: Ok(). The reference lives as long as this object.
  [[nodiscard]] const T& Value() const& { return std::get<0>(content); }

  /// REQUIRES: Ok(). Moves the value out.
  [[nodiscard]] T Take() && { return std::get<0>(std::move(content)); }

  /// REQUIRES: !Ok(). The reference lives as long as this object.
  [[nodiscard]] const Error& Failure() const { return std::get<1>(content); }

 private:
  std::variant<T, Error> content;
};

}  // namespace platform_host

#endif
