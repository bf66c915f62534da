/// Walks the quoted texts of a JSON array of strings, as raw text: escapes are left as they stand.
/// An object belongs to one thread at a time.
#ifndef TRUSTSTOREUPDATECLIENT_QUOTEDTEXTS_H
#define TRUSTSTOREUPDATECLIENT_QUOTEDTEXTS_H

#include <string_view>

namespace truststore_update_client {

/// Takes double quotes in pairs, from the first to the last, and looks at nothing between the
/// pairs.
class QuotedTexts {
 public:
  /// `arrayText` outlives the object and the texts that it gives.
  explicit QuotedTexts(std::string_view arrayText) : rest(arrayText) {}

  /// Sets `text` to what stands between the next two quotes. False when there is no further opening
  /// quote, or none that is closed: IsUnterminated tells which.
  [[nodiscard]] bool Next(std::string_view& text) {
    const auto opening = rest.find('"');
    if (opening == std::string_view::npos) return false;
    const auto closing = rest.find('"', opening + 1);
    unterminated = closing == std::string_view::npos;
    if (unterminated) return false;
    text = rest.substr(opening + 1, closing - opening - 1);
    rest.remove_prefix(closing + 1);
    return true;
  }

  /// True when the last quote opened a text that nothing closes.
  [[nodiscard]] bool IsUnterminated() const { return unterminated; }

 private:
  std::string_view rest;
  bool unterminated = false;
};

}  // namespace truststore_update_client

#endif
