#include "tools/tsc/ContainerId.h"

#include <algorithm>

#include "TruststoreUpdateClient/PersistentFileStorageImpl.h"

namespace tsc {

namespace tuc = truststore_update_client;

bool NeedsEscape(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char character) {
    return character == '"' || character == '\\' || static_cast<unsigned char>(character) < 0x20;
  });
}

std::vector<std::string> IdObjections(std::string_view id) {
  std::vector<std::string> objections;
  if (id.empty()) objections.emplace_back("empty");
  if (NeedsEscape(id)) objections.emplace_back("has a character that JSON must escape");
  constexpr std::size_t kMaxIdBytes = tuc::PersistentFileStorageImpl::kMaxFileBytes;
  if (id.size() > kMaxIdBytes) {
    objections.push_back("more than " + std::to_string(kMaxIdBytes) + " bytes");
  }
  return objections;
}

}  // namespace tsc
