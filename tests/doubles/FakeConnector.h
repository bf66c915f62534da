/// A connector whose connections a test makes up.
#ifndef TESTS_DOUBLES_FAKECONNECTOR_H
#define TESTS_DOUBLES_FAKECONNECTOR_H

#include <functional>
#include <memory>
#include <utility>

#include "ssoa_socket/StreamClientConnectorIf.h"

namespace tests {

/// Every attempt asks `establish`, on the thread that makes it.
class FakeConnector : public ssoa_socket::StreamClientConnectorIf {
 public:
  using Communicator = std::shared_ptr<ssoa_socket::StreamCommunicatorIf>;

  explicit FakeConnector(std::function<Communicator()> establishes)
      : establish(std::move(establishes)) {}

  [[nodiscard]] Communicator EstablishConnection() override { return establish(); }

 private:
  const std::function<Communicator()> establish;
};

}  // namespace tests

#endif
