#include "ara/stm/ComponentClient.h"

#include <atomic>
#include <exception>
#include <stdexcept>
#include <utility>

#include "platform/host/ara_stm/HostComponentClient.h"
#include "platform/host/config/HostConfig.h"
#include "platform/host/control/ControlServer.h"

namespace ara::stm {
namespace {

using platform_host::ControlBoard;
using platform_host::ControlServer;
using platform_host::HostComponentClient;
using platform_host::HostConfig;

/// The place of the one component client of this process, held while it lives.
class Place {
 public:
  /// Throws std::runtime_error when it is taken.
  Place() {
    if (isTaken.exchange(true)) throw std::runtime_error("there is a component client already");
  }
  ~Place() { isTaken = false; }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

 private:
  static inline std::atomic<bool> isTaken{false};
};

/// Throws std::runtime_error when there can be none.
std::unique_ptr<ControlServer> StartServer(ControlBoard& board) {
  const auto& config = HostConfig::OfProcess();
  if (!config.Ok()) throw std::runtime_error(config.Failure().Text());
  auto server = ControlServer::Start(config.Value().controlSocket, board);
  if (!server.Ok()) throw std::runtime_error(server.Failure().Text());
  return std::move(server).Take();
}

/// What state management reaches the component through; one at a time.
struct Connection {
  const Place place;
  const std::unique_ptr<ControlServer> server = StartServer(ControlBoard::OfProcess());
};

ComponentClientResult Failed(const char* reason) noexcept {
  try {
    return {nullptr, reason};
  } catch (const std::exception&) {
    return {nullptr, "out of memory"};  // short enough to need none
  }
}

}  // namespace

ComponentClientResult createComponentClient(const std::string& name,
                                            StateChangeHandler handler) noexcept {
  try {
    if (!handler) return Failed("there is no handler");
    auto connection = std::make_shared<const Connection>();
    return {std::make_unique<HostComponentClient>(name, std::move(handler),
                                                  ControlBoard::OfProcess(), std::move(connection)),
            ""};
  } catch (const std::exception& error) {
    return Failed(error.what());
  }
}

}  // namespace ara::stm
