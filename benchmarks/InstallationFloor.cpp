#include "benchmarks/InstallationFloor.h"

#define JSMN_PARENT_LINKS
#define JSMN_STATIC
#include <botan/certstor.h>
#include <botan/data_src.h>
#include <botan/pubkey.h>
#include <botan/x509path.h>
#include <jsmn.h>

#include <filesystem>
#include <map>
#include <stdexcept>
#include <vector>

#include "base64_utils/Base64Utils.h"
#include "support/FileContents.h"

namespace benchmarks {

using base64_utils::Base64Utils;

namespace {

std::vector<jsmntok_t> Tokenize(const std::string& text) {
  jsmn_parser parser;
  jsmn_init(&parser);
  const int count = jsmn_parse(&parser, text.c_str(), text.size(), nullptr, 0);
  if (count < 1) throw std::runtime_error("JSON");
  std::vector<jsmntok_t> tokens(static_cast<std::size_t>(count));
  jsmn_init(&parser);
  jsmn_parse(&parser, text.c_str(), text.size(), tokens.data(), static_cast<unsigned>(count));
  return tokens;
}

std::string Text(const std::string& json, const jsmntok_t& token) {
  return json.substr(static_cast<std::size_t>(token.start),
                     static_cast<std::size_t>(token.end - token.start));
}

std::vector<Botan::X509_Certificate> SignerChain(const std::string& header) {
  const std::vector<jsmntok_t> tokens = Tokenize(header);
  std::vector<Botan::X509_Certificate> chain;
  for (std::size_t i = 0; i + 1 < tokens.size(); ++i) {
    if (Text(header, tokens[i]) != "x5c") continue;
    for (int element = 0; element < tokens[i + 1].size; ++element) {
      const std::size_t at = i + 2 + static_cast<std::size_t>(element);
      chain.emplace_back(Base64Utils::Base64DecodeToBinaryVector(Text(header, tokens[at])));
    }
  }
  return chain;
}

void Verify(const std::string& container, const std::string& directory) {
  const auto first = container.find('.');
  const auto last = container.rfind('.');
  const auto chain = SignerChain(Base64Utils::Base64UrlDecode(container.substr(0, first)));
  std::string rootPem;
  if (support::ReadFile(directory + "/store/factory/ZORA.pem", 1 << 20, rootPem) != 0) {
    throw std::runtime_error("root");
  }
  Botan::DataSource_Memory source(rootPem);
  Botan::Certificate_Store_In_Memory store(Botan::X509_Certificate{source});
  const Botan::Path_Validation_Restrictions restrictions(false, 128);
  if (!Botan::x509_path_validate(chain, restrictions, store).successful_validation()) {
    throw std::runtime_error("path");
  }
  const auto signature = Base64Utils::Base64UrlDecodeToBinaryVector(container.substr(last + 1));
  const auto key = chain[0].load_subject_public_key();
  Botan::PK_Verifier verifier(*key, "EMSA1(SHA-256)", Botan::IEEE_1363);
  verifier.update(reinterpret_cast<const std::uint8_t*>(container.data()), last);
  if (!verifier.check_signature(signature)) throw std::runtime_error("signature");
}

std::map<std::string, std::string> DecodeBundles(const std::string& payload) {
  const std::vector<jsmntok_t> tokens = Tokenize(payload);
  std::map<std::string, std::string> bundles;
  for (std::size_t i = 1; i + 1 < tokens.size();) {
    std::string& pem = bundles[Text(payload, tokens[i])];
    const auto elements = static_cast<std::size_t>(tokens[i + 1].size);
    for (std::size_t element = i + 2; element < i + 2 + elements; ++element) {
      const Botan::X509_Certificate certificate(
          Base64Utils::Base64UrlDecodeToBinaryVector(Text(payload, tokens[element])));
      pem += certificate.PEM_encode();
    }
    i += 2 + elements;
  }
  return bundles;
}

void Write(const std::string& path, const std::string& text) {
  if (support::ReplaceFile(path, text, 0644) != 0) throw std::runtime_error(path);
}

}  // namespace

int InstallFloor(const std::string& containerFile, const std::string& directory) {
  std::string container;
  if (support::ReadFile(containerFile, std::size_t{1} << 30U, container) != 0) return 1;
  Verify(container, directory);
  const auto first = container.find('.');
  const auto last = container.rfind('.');
  const auto bundles =
      DecodeBundles(Base64Utils::Base64UrlDecode(container.substr(first + 1, last - first - 1)));
  std::filesystem::create_directories(directory + "/store/installed");
  for (const auto& [name, pem] : bundles)
    Write(directory + "/store/installed/" + name + ".pem", pem);
  Write(directory + "/id", "container-1");
  Write(directory + "/timestamp", "1767323045");
  return 0;
}

}  // namespace benchmarks
