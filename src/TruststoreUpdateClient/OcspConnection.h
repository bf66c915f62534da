/// Asks an OCSP responder about one certificate, over HTTP (RFC 6960 appendix A.1) and the unit's
/// connector. Made by HSM; called on the thread that verifies a container. No state between calls:
/// any thread.
#ifndef TRUSTSTOREUPDATECLIENT_OCSPCONNECTION_H
#define TRUSTSTOREUPDATECLIENT_OCSPCONNECTION_H

#include <botan/x509cert.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/OcspConnectionIf.h"
#include "csa_common/HttpConnectionIf.h"
#include "lumo_connector/LumoConnector.h"

namespace truststore_update_client {

/// The request goes to the address that the connector knows for the operation; the one in the
/// certificate is only logged, but a certificate without one is not asked about. What counts as a
/// good answer is told in OcspResponseCheck.h.
class OcspConnection : public OcspConnectionIf {
 public:
  using Clock = std::function<std::chrono::system_clock::time_point()>;

  explicit OcspConnection(std::shared_ptr<lumo_connector::LumoConnector> connector);

  /// Over another connection and clock, for tests.
  OcspConnection(std::shared_ptr<csa_common::HttpConnectionIf> httpConnection, Clock clock);

  /// Returns kOcspGood; kOcspNotCompleted when the request or its answer got lost, or the answer
  /// had no HTTP status; otherwise kOcspFailed, for good: the certificate is not good, or the
  /// answer cannot be used. Every failure has been logged.
  [[nodiscard]] int CheckCertificate(const std::vector<std::uint8_t>& certificate,
                                     const std::vector<std::uint8_t>& issuer,
                                     const std::string& operationTypeId,
                                     const std::string& url) override;

 private:
  void GetCertificateCommonName(const Botan::X509_Certificate& certificate, std::string& cn) const;

  // These return false, or true for a failure.
  [[nodiscard]] bool GetOcspResponder(const Botan::X509_Certificate& certificate,
                                      std::string& url) const;
  [[nodiscard]] bool CreateOcspRequest(std::string& request,
                                       const Botan::X509_Certificate& certificate,
                                       const Botan::X509_Certificate& issuer) const;

  // `text` becomes the status in words. Throws what the library throws for bytes that are no
  // answer.
  [[nodiscard]] bool CheckOcspResponse(const Botan::X509_Certificate& certificate,
                                       const Botan::X509_Certificate& issuer,
                                       const std::vector<std::uint8_t>& response,
                                       std::string& text) const;

  // The steps of CheckCertificate, with its results. They may throw.
  [[nodiscard]] int Ask(const Botan::X509_Certificate& certificate,
                        const Botan::X509_Certificate& issuer, const std::string& operationTypeId,
                        const std::string& url) const;
  [[nodiscard]] int Exchange(std::string request, const std::string& operationTypeId,
                             const std::string& url, std::string& answer) const;
  [[nodiscard]] int Judge(const Botan::X509_Certificate& certificate,
                          const Botan::X509_Certificate& issuer, const std::string& answer) const;

  const std::shared_ptr<csa_common::HttpConnectionIf> http;
  const Clock now;
};

}  // namespace truststore_update_client

#endif
