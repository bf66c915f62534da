/// Where this platform meets the world outside the process. Constant: any thread.
///
///   factory/NAME.pem  the bundles that the unit was provisioned with
///   peers/OPERATION   a Unix socket: the peer of that operation of the backend
///   states            a pipe: each line is a state that state management demands
///   jobs              a pipe: each line is a message of the broker, in hexadecimal digits
///
/// Whatever is missing is not there: no root, no peer, no demands, no messages.
#ifndef TESTS_OTHER_PLATFORM_SURROUNDINGS_H
#define TESTS_OTHER_PLATFORM_SURROUNDINGS_H

#include <string>

namespace other_platform {

inline const std::string kFolder = "/var/lib/other-platform";
inline const std::string kFactoryFolder = kFolder + "/factory";
inline const std::string kStatesPipe = kFolder + "/states";
inline const std::string kJobsPipe = kFolder + "/jobs";

/// The socket of the peer of an operation.
[[nodiscard]] inline std::string PeerOf(const std::string& operationTypeId) {
  return kFolder + "/peers/" + operationTypeId;
}

}  // namespace other_platform

#endif
