/// The component that this process is to state management: requests of the control socket go to its
/// handler, its confirmations back. createComponentClient makes it.
#ifndef PLATFORM_HOST_ARA_STM_HOSTCOMPONENTCLIENT_H
#define PLATFORM_HOST_ARA_STM_HOSTCOMPONENTCLIENT_H

#include <memory>
#include <string>
#include <thread>

#include "ara/stm/ComponentClient.h"
#include "platform/host/ara_stm/StateRequests.h"
#include "platform/host/control/ControlBoard.h"

namespace platform_host {

/// Keeps the contract of ComponentClient. A thread of its own, "AraStm", calls the handler and
/// waits while nobody demands a state.
class HostComponentClient : public ara::stm::ComponentClient {
 public:
  /// Offers the command "state" and the status part "component" on `board`, which outlives this
  /// object. `reachedThrough`, perhaps null, is let go of when all else has ended, so that whoever
  /// waits hears of the end. Throws std::exception when the thread cannot be made.
  HostComponentClient(const std::string& componentName, ara::stm::StateChangeHandler stateHandler,
                      ControlBoard& board, std::shared_ptr<const void> reachedThrough);

  /// Refuses the requests that wait, then waits for a call of the handler under way.
  ~HostComponentClient() override;

  void ConfirmState(std::uint32_t sequence, const std::string& state) noexcept override;

 private:
  void Run() noexcept;

  /// Calls the handler; what it throws is told in one error line.
  void Handle(const StateRequests::Step& demanded) noexcept;

  const std::shared_ptr<const void> connection;  ///< first: it ends after all others
  const std::string name;
  const ara::stm::StateChangeHandler handler;
  StateRequests requests;
  const std::unique_ptr<ControlBoard::Offer> part;
  const std::unique_ptr<ControlBoard::Offer> command;
  std::thread thread;  ///< last: it uses the members above
};

}  // namespace platform_host

#endif
