/// The unit's two requests to its backend: a new trust store container, and the report of how an
/// update went. Each is one HTTP POST with a protobuf body (proto/) and a bearer token (RFC 6750
/// section 2.1).
///
/// Made by the update handler; called on the thread of the update and on that of the status report,
/// also at the same time. Each call makes its own connection.
#ifndef TRUSTSTOREUPDATECLIENT_CONTAINERCONNECTION_H
#define TRUSTSTOREUPDATECLIENT_CONTAINERCONNECTION_H

#include <memory>
#include <string>

#include "TruststoreUpdateClient/UpdateEnums.h"
#include "lumo_connector/LumoConnector.h"

namespace truststore_update_client {

/// Results of ContainerConnection::GetContainer; SendUpdateStatus knows the first two.
inline constexpr unsigned int kExchangeSuccess = 0;
inline constexpr unsigned int kExchangeFailed = 1;
inline constexpr unsigned int kNoNewContainer = 2;

/// Nothing is tried twice here, and nothing throws: a failure has been logged, one of the stream or
/// the URL by the connection below. `token` and `url` are what the connector gave for the
/// operation. Calls block for one exchange, whose bounds on bytes and time are the connector's.
class ContainerConnection {
 public:
  explicit ContainerConnection(std::shared_ptr<lumo_connector::LumoConnector> lumoConnector);
  virtual ~ContainerConnection() = default;
  ContainerConnection(const ContainerConnection&) = delete;
  ContainerConnection& operator=(const ContainerConnection&) = delete;

  /// Asks for a container because of `renewalReason` (a RenewalReason of the message),
  /// `operationTypeId` being the operation whose peer could not be verified, if any, and
  /// `containerId` what is installed. Returns kExchangeSuccess with the container's text, which may
  /// be empty; kNoNewContainer; or kExchangeFailed. `container` is empty after both of those.
  [[nodiscard]] virtual unsigned int GetContainer(
      std::string& container, unsigned char renewalReason, const std::string& operationTypeId,
      const std::string& containerId, const std::string& token, const std::string& url) const;

  /// Reports the result of an update to container `containerId`. Returns kExchangeSuccess when the
  /// backend took the report, otherwise kExchangeFailed.
  [[nodiscard]] virtual unsigned int SendUpdateStatus(ResponseStatus status,
                                                      const std::string& containerId,
                                                      const std::string& token,
                                                      const std::string& url) const;

  /// These replace `body` by a request, and `container` by what a response holds (empty when it
  /// holds none). They return false; true with a log line when the message cannot be built or read,
  /// which leaves a `container` empty. They throw std::bad_alloc only.
  [[nodiscard]] bool CreateContainerDownloadRequest(std::string& body, unsigned char renewalReason,
                                                    const std::string& operationTypeId,
                                                    const std::string& containerId) const;
  [[nodiscard]] bool ParseContainerDownloadResponse(std::string& container,
                                                    const std::string& body) const;
  [[nodiscard]] bool CreateStatusUpdateRequest(std::string& body, ResponseStatus status,
                                               const std::string& containerId) const;

 private:
  std::shared_ptr<lumo_connector::LumoConnector> connector;
};

}  // namespace truststore_update_client

#endif
