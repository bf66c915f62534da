/// Writes a container's text (docs/container-format.md). No state; any thread.
#ifndef TOOLS_TSC_CONTAINERWRITER_H
#define TOOLS_TSC_CONTAINERWRITER_H

#include <botan/pk_keys.h>
#include <botan/x509cert.h>

#include <map>
#include <string>
#include <vector>

namespace tsc {

/// What a container says before it is written. Texts go in as they stand, right or wrong.
struct ContainerDraft {
  std::string algorithm = "ES256";
  std::string timestamp;
  std::string id;
  std::vector<Botan::X509_Certificate> chain;  ///< leaf first
  std::map<std::string, std::vector<Botan::X509_Certificate>> bundles;
};

/// The header's JSON text. What is no UTF-8 is replaced by U+FFFD.
[[nodiscard]] std::string HeaderText(const ContainerDraft& draft);

/// The payload's JSON text, bundles in ascending order of their names.
[[nodiscard]] std::string PayloadText(const ContainerDraft& draft);

/// The whole container, signed with `key` (ECDSA on any curve with SHA-256, r and s concatenated).
/// Throws what the library throws for a key of another kind.
[[nodiscard]] std::string WriteContainer(const ContainerDraft& draft,
                                         const Botan::Private_Key& key);

}  // namespace tsc

#endif
