/// A process's connection to platform health management.
#ifndef ARA_PHM_PHM_CLIENT_H
#define ARA_PHM_PHM_CLIENT_H

#include <string>

namespace ara::phm {

/// Immutable: any thread. Objects made of it keep what they need and may outlive it.
class Phm_client {
 public:
  /// `instanceId` names the supervised process as health management's configuration does. Throws
  /// std::exception when health management cannot be reached.
  explicit Phm_client(const std::string& instanceId);

  [[nodiscard]] const std::string& InstanceId() const { return instance; }

 private:
  std::string instance;
};

}  // namespace ara::phm

#endif
