/// Names that the whole process shares: files, operation types and topics. Constant after start-up:
/// any thread.
#ifndef TRUSTSTOREUPDATECLIENT_CONSTANTS_H
#define TRUSTSTOREUPDATECLIENT_CONSTANTS_H

#include <string>

namespace truststore_update_client {

/// Where the client keeps its records of what is installed. Made by the packaging, not by the
/// client.
inline const std::string tempDir = std::string("/var/run/csc/config") + "/truststore-update-client";
inline const std::string TRUSTSTORE_HEADER_TIMESTAMP_FILENAME =
    tempDir + "/Truststore_Header_Timestamp";
inline const std::string TRUSTSTORE_HEADER_CONTAINER_ID_FILENAME =
    tempDir + "/Truststore_Container_ID";

/// Tells other applications whether this process has installed a trust store: "1" or "0".
inline const std::string UpdateNotificationFileName = "/tmp/truststoreupdate_success";

/// Types of the backend's operations and the MQTT topics.
inline const std::string ConnectionStateTransactionTypeId = "RUNA-TruststoreUpdate";
inline const std::string ContainerRequestOperationTypeId = "RUNA-TruststoreUpdate.CORequestTSC";
inline const std::string StatusReportOperationTypeId = "RUNA-TruststoreUpdate.COReportTSCStatus";
inline const std::string OcspRequestOperationTypeId = "RUNA-TruststoreOCSP.COOCSPRequest";
inline const std::string ModOcspRequestOperationTypeId = "RUNA-TruststoreOCSP.COModOCSPRequest";
inline const std::string MqttJobOperationTypeId = "RUNA-TruststoreUpdate.CTTSCJobKORB1";
inline const std::string MqttReportOperationTypeId =
    "RUNA-TruststoreReport.CTTSCReportVersionKORB1";

/// Files of development and test work. Beside GoogleTest's namespace: tests write `::testing` for
/// that one.
namespace testing {

inline const std::string configDir = "/var/run/csc/config/truststore-update-client";
inline const std::string tempDir = std::string("/var/run/csc/config") + "/truststore-update-client";

/// The container that "-f valid" installs.
inline const std::string TRUSTSTORE_CONTAINER = testing::tempDir + "/valid_tsc_2018.txt";

/// The development switches file, and the one of the switches' own tests.
inline const std::string TSUC_CONFIG_FILE_NAME = testing::tempDir + "/config.cfg";
inline const std::string TSUC_UT_CONFIG_FILE_NAME = testing::tempDir + "/UT_config.cfg";

}  // namespace testing
}  // namespace truststore_update_client

#endif
