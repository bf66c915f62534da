#include "platform/host/ostra_tee/BundleList.h"

#include <filesystem>
#include <optional>
#include <set>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "platform/host/files/FileName.h"
#include "platform/host/ostra_tee/TrustStoreDirectory.h"
#include "support/FileContents.h"

namespace platform_host {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kEnding = ".pem";

/// The bundle that a file of the trust store is; none for temporary and foreign files.
std::optional<std::string> BundleOf(const std::string& fileName) {
  if (fileName.size() < kEnding.size()) return std::nullopt;
  const auto stem = fileName.size() - kEnding.size();
  if (fileName.compare(stem, kEnding.size(), kEnding) != 0) return std::nullopt;
  return NameOfFile(std::string_view(fileName).substr(0, stem));
}

void AddNames(const std::string& layer, std::set<std::string>& names) {
  std::error_code error;
  for (fs::directory_iterator entry(layer, error); !error && entry != fs::end(entry);
       entry.increment(error)) {
    if (auto name = BundleOf(entry->path().filename())) names.insert(std::move(*name));
    if (names.size() > ListedBundle::kCountLimit) {
      throw std::runtime_error("more than " + std::to_string(ListedBundle::kCountLimit) +
                               " bundles");
    }
  }
}

/// How many certificates the bundle has in this layer; none when it cannot be read there.
std::optional<std::size_t> CertificatesIn(const std::string& layer, const std::string& name) {
  const std::string path = layer + "/" + FileNameOf(name) + std::string(kEnding);
  std::error_code error;
  std::string pem;
  // Whoever asks must not wait for the writer of a pipe.
  if (!fs::is_regular_file(path, error)) return std::nullopt;
  if (support::ReadFile(path, TrustStoreDirectory::kBundleLimit, pem) != 0) return std::nullopt;
  return CountCertificates(pem);
}

}  // namespace

std::size_t CountCertificates(std::string_view pem) {
  static constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
  static constexpr std::string_view kEnd = "-----END CERTIFICATE-----";
  std::size_t count = 0;
  for (auto at = pem.find(kBegin); at != std::string_view::npos; at = pem.find(kBegin, at)) {
    at = pem.find(kEnd, at);
    if (at == std::string_view::npos) break;
    ++count;
  }
  return count;
}

std::vector<ListedBundle> ListedBundle::AllIn(const std::string& directory) {
  const std::string installed = directory + "/installed";
  const std::string factory = directory + "/factory";
  std::set<std::string> names;
  AddNames(installed, names);
  AddNames(factory, names);
  std::vector<ListedBundle> bundles;
  for (const std::string& name : names) {
    const auto newest = CertificatesIn(installed, name);
    // Without a certificate it does not hide the one that the unit was provisioned with.
    const auto original = newest.value_or(0) > 0 ? std::nullopt : CertificatesIn(factory, name);
    if (original) {
      bundles.push_back({name, false, *original});
    } else if (newest) {
      bundles.push_back({name, true, *newest});
    }
  }
  return bundles;
}

}  // namespace platform_host
