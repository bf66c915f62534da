/// The bundles of a container's payload, decoded into what the trust store installs. No state; any
/// thread.
#ifndef TRUSTSTOREUPDATECLIENT_CERTIFICATEBUNDLES_H
#define TRUSTSTOREUPDATECLIENT_CERTIFICATEBUNDLES_H

#include <map>
#include <string>

#include "TruststoreUpdateClient/UpdateEnums.h"
#include "json_parser/JsonParser.h"

namespace truststore_update_client {

/// PEM text of each bundle's certificates in the order of the payload, by name, names in ascending
/// order of bytes.
using CertificateBundles = std::map<std::string, std::string>;

/// Decodes every pair of the payload (bundle name, array of base64url certificates) into `bundles`.
/// Of two bundles with one name the first stays; a bundle without certificates is kept with an
/// empty text. Returns kInstalled (0), kNotParsed or kPayloadCertificateInvalid; the failure has
/// been logged, and `bundles` is of no use then. Does not throw but for exhausted memory.
[[nodiscard]] ResponseStatus DecodeCertificateBundles(const json_parser::KeyValuePairs& pairs,
                                                      CertificateBundles& bundles);

}  // namespace truststore_update_client

#endif
