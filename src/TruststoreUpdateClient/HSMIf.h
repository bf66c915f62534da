/// The one place where the client touches the unit's trust store and the records of what is
/// installed. Implemented by HSM, by the tool that verifies a container without a unit, and by
/// tests.
#ifndef TRUSTSTOREUPDATECLIENT_HSMIF_H
#define TRUSTSTOREUPDATECLIENT_HSMIF_H

#include <botan/x509cert.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace truststore_update_client {

/// Unless said otherwise an operation returns false (or 0) on success and true (non-zero) on
/// failure, has logged every failure, throws nothing, and is called on the thread that verifies and
/// installs. Certificate chains are leaf first.
class HSMIf {
 public:
  virtual ~HSMIf() = default;

  /// The id of the installed container: empty when none is installed.
  [[nodiscard]] virtual bool GetInstalledContainerId(std::string& id) = 0;

  /// Records the id so that it survives a power loss.
  [[nodiscard]] virtual bool SetInstalledContainerId(const std::string& id) = 0;

  /// Records the timestamp (seconds since the epoch) so that it survives a power loss.
  [[nodiscard]] virtual bool SetInstalledContainerTimestamp(std::uint32_t timestamp) = 0;

  /// The timestamp of the installed container in seconds since the epoch; 0 when none is installed
  /// or the record is damaged. When the storage fails, so that nobody can say what is installed,
  /// the greatest timestamp: no container passes as newer then.
  [[nodiscard]] virtual std::uint32_t GetInstalledContainerTimestamp() = 0;

  /// Clears both records, then removes every installed bundle. All steps run; fails when any of
  /// them failed.
  [[nodiscard]] virtual bool RemoveAllTrustStores() = 0;

  /// Installs one bundle of PEM certificates under `name`, which is outside text.
  [[nodiscard]] virtual bool InstallCertificateBundle(const std::string& name,
                                                      const std::string& pem) = 0;

  /// Verifies an ECDSA signature with SHA-256 over `data` with the key of `certificate`.
  /// `signature` is the concatenation of r and s as in RFC 7518 section 3.4.
  [[nodiscard]] virtual bool Signature_Verify(const Botan::X509_Certificate& certificate,
                                              std::string_view data,
                                              std::string_view signature) = 0;

  /// Checks that `chain` leads to a root certificate that the trust store holds and is listed in
  /// issuing order.
  [[nodiscard]] virtual bool X5CPathValidation(
      const std::vector<Botan::X509_Certificate>& chain) const = 0;

  /// Checks that no certificate of `chain` has been revoked. A responder that cannot be reached is
  /// asked again, without limit, until it answers or retries are disabled: this may block for days.
  [[nodiscard]] virtual int X5COcspValidation(
      const std::vector<Botan::X509_Certificate>& chain) = 0;

  /// Tells whether revocation checks may be tried again; the last call counts. True: one under way
  /// is the last, and a wait for the next ends at once. False ends no wait. Any thread.
  virtual void DisableUpdateRetries(bool disable) = 0;
};

}  // namespace truststore_update_client

#endif
