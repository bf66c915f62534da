/// The bundles of a container's payload, decoded into what the trust store installs. No state; any
/// thread.
#ifndef TRUSTSTOREUPDATECLIENT_CERTIFICATEBUNDLES_H
#define TRUSTSTOREUPDATECLIENT_CERTIFICATEBUNDLES_H

#include <cstddef>
#include <map>
#include <string>

#include "TruststoreUpdateClient/UpdateEnums.h"
#include "json_parser/JsonParser.h"

namespace truststore_update_client {

/// PEM text of each bundle's certificates in the order of the payload, by name, names in ascending
/// order of bytes.
using CertificateBundles = std::map<std::string, std::string>;

/// A container has a handful of bundles. Each is a file that is forced to the disk, and without a
/// certificate takes seven bytes of the payload.
inline constexpr std::size_t kMaxBundles = 1024;

/// Decodes every pair of the payload (bundle name, array of base64url certificates) into `bundles`.
/// Of two bundles with one name the first stays; a bundle without certificates is kept with an
/// empty text. More than kMaxBundles pairs are refused, and so is a bundle inside the value of
/// another one: each level of nesting would have all certificates below it decoded once more.
/// Returns kInstalled (0), kNotParsed or kPayloadCertificateInvalid; the failure has been logged,
/// and `bundles` is of no use then. Does not throw but for exhausted memory.
[[nodiscard]] ResponseStatus DecodeCertificateBundles(const json_parser::KeyValuePairs& pairs,
                                                      CertificateBundles& bundles);

}  // namespace truststore_update_client

#endif
