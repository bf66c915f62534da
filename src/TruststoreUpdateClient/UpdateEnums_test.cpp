#include "TruststoreUpdateClient/UpdateEnums.h"

#include <gmock/gmock.h>

#include <ostream>
#include <vector>

namespace truststore_update_client {
namespace {

struct NamedStatus {
  unsigned value;
  const char* name;

  // How a failure names its case.
  friend void PrintTo(const NamedStatus& status, std::ostream* stream) { *stream << status.value; }
};

class StatusNameOf : public ::testing::TestWithParam<NamedStatus> {};

TEST_P(StatusNameOf, EveryValue_ItsName) {
  EXPECT_EQ(StatusName(static_cast<ResponseStatus>(GetParam().value)), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(Backend, StatusNameOf,
                         ::testing::Values(NamedStatus{0, "STATUS_CODE_SUCCESS"},
                                           NamedStatus{1, "STATUS_CODE_DOWNLOAD_ERROR"},
                                           NamedStatus{2, "STATUS_CODE_PARSE_ERROR"},
                                           NamedStatus{3, "STATUS_CODE_SIGN_VALIDATION_ERROR"},
                                           NamedStatus{4, "STATUS_CODE_DOWNGRADE_ERROR"},
                                           NamedStatus{5, "STATUS_CODE_CERT_DECODE_ERROR"},
                                           NamedStatus{6, "STATUS_CODE_TSC_ROLLBACK"},
                                           NamedStatus{7, "STATUS_CODE_STORAGE_ERROR"},
                                           NamedStatus{8, "STATUS_CODE_TIMESTAMP_ERROR"},
                                           NamedStatus{9, "STATUS_CODE_UNEXPECTED_ERROR"}));

INSTANTIATE_TEST_SUITE_P(
    BeyondTable, StatusNameOf,
    ::testing::Values(NamedStatus{10, "STATUS_CODE_10"}, NamedStatus{13, "STATUS_CODE_13"},
                      NamedStatus{14, "STATUS_CODE_14"}, NamedStatus{15, "STATUS_CODE_15"},
                      NamedStatus{16, "STATUS_CODE_16"}, NamedStatus{255, "STATUS_CODE_255"}));

TEST(StatusStringsTable, Table_HoldsTheTenNamesOnly) {
  EXPECT_EQ(std::size(StatusStrings), 10U);
}

// The backend reads these numbers: none may move when the list is edited.
TEST(ResponseStatusType, VerificationResults_FixedNumbers) {
  const std::vector<int> results = {kInstalled,
                                    kAlreadyInstalled,
                                    kNotParsed,
                                    kTimestampInFuture,
                                    kRevokedOrSignatureWrong,
                                    kOlderThanInstalled,
                                    kPathNotValid,
                                    kCommonNameWrong,
                                    kBundleNotInstalled,
                                    kPayloadCertificateInvalid,
                                    kStoresNotRemoved,
                                    kRecordsNotStored,
                                    kProcessingStopped};
  EXPECT_THAT(results, ::testing::ElementsAre(0, 1, 3, 4, 5, 6, 7, 9, 10, 13, 14, 15, 16));
}

TEST(ResponseStatusType, Size_OneByte) {
  EXPECT_EQ(sizeof(ResponseStatus), 1U);
}

}  // namespace
}  // namespace truststore_update_client
