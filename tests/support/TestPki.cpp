#include "tests/support/TestPki.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tests {

std::string PkiPath(const std::string& path) {
  const char* folder = std::getenv("TSUC_TEST_PKI");
  if (folder == nullptr) throw std::runtime_error("TSUC_TEST_PKI is not set: run by ctest");
  return std::string(folder) + "/" + path;
}

std::string PkiText(const std::string& path) {
  std::ifstream file(PkiPath(path), std::ios::binary);
  if (!file) throw std::runtime_error("no test certificate file " + PkiPath(path));
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Bytes PkiBytes(const std::string& path) {
  const std::string text = PkiText(path);
  return {text.begin(), text.end()};
}

std::vector<Bytes> ChainBytes(const std::string& chain) {
  std::vector<Bytes> encodings;
  for (;;) {
    const std::string path = chain + "/chain/" + std::to_string(encodings.size()) + ".der";
    if (!encodings.empty() && !std::filesystem::exists(PkiPath(path))) return encodings;
    encodings.push_back(PkiBytes(path));
  }
}

std::vector<Botan::X509_Certificate> Chain(const std::string& chain) {
  std::vector<Botan::X509_Certificate> certificates;
  for (const Bytes& encoding : ChainBytes(chain)) certificates.emplace_back(encoding);
  return certificates;
}

Botan::X509_Certificate Certificate(const std::string& path) {
  return Botan::X509_Certificate(PkiBytes(path));
}

}  // namespace tests
