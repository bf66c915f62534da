/// The match of a signer's Common Name against the one name pattern of this system. No state; any
/// thread.
#ifndef TRUSTSTOREUPDATECLIENT_COMMONNAMEPATTERN_H
#define TRUSTSTOREUPDATECLIENT_COMMONNAMEPATTERN_H

#include <string>
#include <string_view>

namespace truststore_update_client {

/// What the whole Common Name of a container's signer must match: an ECMAScript regular expression.
inline const std::string TARGET_COMMON_NAME = "KALVIRON.*";

/// True when all of `commonName` matches `pattern`, which is a literal text followed by ".*": any
/// characters but line terminators (ECMA-262: line feed, carriage return, and U+2028 and U+2029,
/// here in UTF-8). A general matcher of the C++ library recurses once a character and dies on a
/// long name, which a stranger may send; this one takes one pass.
[[nodiscard]] bool MatchesPrefixPattern(std::string_view commonName, std::string_view pattern);

}  // namespace truststore_update_client

#endif
