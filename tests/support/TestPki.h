/// The certificates and keys that tests/pki makes before the tests run, by name. Any thread; throws
/// when one is missing.
#ifndef TESTS_SUPPORT_TESTPKI_H
#define TESTS_SUPPORT_TESTPKI_H

#include <botan/x509cert.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tests {

using Bytes = std::vector<std::uint8_t>;

/// The path of `path` in the folder of the test certificates. Throws std::runtime_error when the
/// environment names none.
[[nodiscard]] std::string PkiPath(const std::string& path);

/// The bytes of the file at `path` below the folder of the test certificates.
[[nodiscard]] Bytes PkiBytes(const std::string& path);
[[nodiscard]] std::string PkiText(const std::string& path);

/// DER of each certificate of the chain in folder `chain`, leaf first.
[[nodiscard]] std::vector<Bytes> ChainBytes(const std::string& chain);

/// The same, decoded.
[[nodiscard]] std::vector<Botan::X509_Certificate> Chain(const std::string& chain);

/// The certificate in `path`, PEM or DER.
[[nodiscard]] Botan::X509_Certificate Certificate(const std::string& path);

}  // namespace tests

#endif
