#include "platform/host/csc_logging/DltContexts.h"

namespace platform_host {
namespace {

/// Whether `name` is one of `names`, which have a blank between two.
bool Names(std::string_view names, std::string_view name) {
  while (!names.empty()) {
    const std::size_t end = names.find(' ');
    if (names.substr(0, end) == name) return true;
    names.remove_prefix(end == std::string_view::npos ? names.size() : end + 1);
  }
  return false;
}

}  // namespace

std::size_t DltContextOf(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) return 0;
  const std::string_view name = text.substr(0, colon);
  for (std::size_t index = 0; index < kDltContexts.size(); ++index) {
    if (Names(kDltContexts.at(index).components, name)) return index;
  }
  return 0;
}

}  // namespace platform_host
