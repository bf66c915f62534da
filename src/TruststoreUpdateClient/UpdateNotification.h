/// The marker file that tells other applications of the unit that a trust store was installed.
/// Written by the update handler, on the main thread or on that of an update.
#ifndef TRUSTSTOREUPDATECLIENT_UPDATENOTIFICATION_H
#define TRUSTSTOREUPDATECLIENT_UPDATENOTIFICATION_H

#include <string>

namespace truststore_update_client {

/// Makes `value` in decimal, without a line break, the whole content of the file at `path`, which
/// is made, as the process's umask says, when it is missing. Returns 0 or an errno. The path is in
/// a directory that everybody may write to: a link, a file with a second name and what is no
/// regular file are not touched (ELOOP, EMLINK, EINVAL).
[[nodiscard]] int WriteUpdateNotification(const std::string& path, unsigned char value);

}  // namespace truststore_update_client

#endif
