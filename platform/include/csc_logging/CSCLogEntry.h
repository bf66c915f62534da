/// One log line under construction. Each object belongs to one thread at a time.
#ifndef CSC_LOGGING_CSCLOGENTRY_H
#define CSC_LOGGING_CSCLOGENTRY_H

#include <string>
#include <string_view>
#include <type_traits>

namespace csc_logging {

/// Built with `<<` from texts and integers (in decimal, eight-bit ones too), then handed to
/// CSCLogging whole.
class CSCLogEntry {
 public:
  CSCLogEntry& operator<<(std::string_view piece) {
    text.append(piece);
    return *this;
  }

  template <typename Integer, typename = std::enable_if_t<std::is_integral_v<Integer> &&
                                                          !std::is_same_v<Integer, bool> &&
                                                          !std::is_same_v<Integer, char>>>
  CSCLogEntry& operator<<(Integer number) {
    text += std::to_string(number);
    return *this;
  }

  [[nodiscard]] const std::string& Text() const { return text; }

 private:
  std::string text;
};

}  // namespace csc_logging

#endif
