/// The unit's trust store, as its trusted execution environment offers it: named bundles of CA
/// certificates in PEM.
#ifndef OSTRA_TEE_TRUSTSTOREUPDATEAPI_H
#define OSTRA_TEE_TRUSTSTOREUPDATEAPI_H

#include <memory>
#include <string>

namespace ostra::tee {

/// Any thread; calls are serialised inside, against other processes of the same unit too. None
/// throws. Each operation is atomic and durable: when it returns 0, its effect survives a power
/// loss; when it fails or power is lost before it returns, the bundle (or, for a removal, the
/// store) is as before or as asked, never in between.
class TrustStoreUpdateAPI {
 public:
  /// The store of this process: one object, made at the first call. Never null.
  static std::shared_ptr<TrustStoreUpdateAPI> get_instance();

  virtual ~TrustStoreUpdateAPI() = default;

  /// Reads bundle `name` into `pem`: what was installed under that name, unless it holds no
  /// certificate and the unit was provisioned with a bundle of that name, or none was installed:
  /// then the provisioned one. Returns 0, or non-zero when there is neither or it cannot be read
  /// (then `pem` is empty).
  [[nodiscard]] virtual int ReadCertificateBundle(const std::string& name, std::string& pem) = 0;

  /// Installs or replaces bundle `name`. Names are outside text: any bytes; each name is a bundle
  /// of its own. Returns 0, or non-zero when it could not be kept (the reason is in the log).
  [[nodiscard]] virtual int InstallCertificateBundle(const std::string& name,
                                                     const std::string& pem) = 0;

  /// Removes every installed bundle; provisioned ones stay. Returns 0, or non-zero when some may
  /// remain.
  [[nodiscard]] virtual int RemoveAllTrustStores() = 0;
};

}  // namespace ostra::tee

#endif
