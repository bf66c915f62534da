/// Codes that components hand to each other and that the backend receives unchanged. Constant: any
/// thread.
#ifndef TRUSTSTOREUPDATECLIENT_UPDATEENUMS_H
#define TRUSTSTOREUPDATECLIENT_UPDATEENUMS_H

#include <cstdint>
#include <string>

namespace truststore_update_client {

/// Result of an update, sent to the backend as it stands. 0 to 9 bear the backend's names.
/// Container verification uses several of these numbers, and others above 9, in a meaning of its
/// own: the second group.
enum ResponseStatus : std::uint8_t {
  STATUS_CODE_SUCCESS = 0,
  STATUS_CODE_DOWNLOAD_ERROR = 1,
  STATUS_CODE_PARSE_ERROR = 2,
  STATUS_CODE_SIGN_VALIDATION_ERROR = 3,
  STATUS_CODE_DOWNGRADE_ERROR = 4,
  STATUS_CODE_CERT_DECODE_ERROR = 5,
  STATUS_CODE_TSC_ROLLBACK = 6,
  STATUS_CODE_STORAGE_ERROR = 7,
  STATUS_CODE_TIMESTAMP_ERROR = 8,
  STATUS_CODE_UNEXPECTED_ERROR = 9,

  kInstalled = 0,
  kAlreadyInstalled = 1,
  kNotParsed = 3,
  kTimestampInFuture = 4,
  kRevokedOrSignatureWrong = 5,
  kOlderThanInstalled = 6,
  kPathNotValid = 7,
  kCommonNameWrong = 9,
  kBundleNotInstalled = 10,
  kPayloadCertificateInvalid = 13,
  kStoresNotRemoved = 14,
  kRecordsNotStored = 15,
  kProcessingStopped = 16,
};

/// Why an update is started. The download request carries the number.
enum RenewalReason : std::uint8_t {
  RENEWAL_REASON_JOB = 0,           ///< the backend asked for it
  RENEWAL_REASON_UPDATEFAILED = 1,  ///< an earlier update failed
  RENEWAL_REASON_EMPTYTS = 2,       ///< nothing is installed
  RENEWAL_REASON_UNKNOWNCA = 3,     ///< a server's certificate could not be verified
};

/// The backend's names of the values 0 to 9, for log lines.
inline const std::string StatusStrings[] = {
    "STATUS_CODE_SUCCESS",         "STATUS_CODE_DOWNLOAD_ERROR",
    "STATUS_CODE_PARSE_ERROR",     "STATUS_CODE_SIGN_VALIDATION_ERROR",
    "STATUS_CODE_DOWNGRADE_ERROR", "STATUS_CODE_CERT_DECODE_ERROR",
    "STATUS_CODE_TSC_ROLLBACK",    "STATUS_CODE_STORAGE_ERROR",
    "STATUS_CODE_TIMESTAMP_ERROR", "STATUS_CODE_UNEXPECTED_ERROR"};

/// The entry of StatusStrings, or "STATUS_CODE_" and the number for the values that have no name.
[[nodiscard]] inline std::string StatusName(ResponseStatus status) {
  if (status < std::size(StatusStrings)) return StatusStrings[status];
  return "STATUS_CODE_" + std::to_string(unsigned{status});
}

}  // namespace truststore_update_client

#endif
