/// What the control socket shows of the connector, and how it holds the connection state. The
/// facade has one; called on the control thread.
#ifndef PLATFORM_HOST_LUMO_CONNECTOR_CONNECTORCONTROL_H
#define PLATFORM_HOST_LUMO_CONNECTOR_CONNECTORCONTROL_H

#include <functional>
#include <memory>
#include <string>

#include "lumo_connector/LumoTypes.h"
#include "platform/host/control/ControlBoard.h"
#include "platform/host/lumo_connector/TopicRequests.h"
#include "platform/host/lumo_connector/TransactionTypeStates.h"

namespace lumo_connector {

/// Offers while it lives: the command "connection" and the status parts "session", "connection" and
/// "broker". Its end waits for a call of them under way.
class ConnectorControl {
 public:
  /// What it shows; all of it outlives the object, may be asked on any thread and waits for nobody.
  struct Sources {
    TransactionTypeStates& states;
    const TopicRequests& requests;
    std::function<SessionStatus()> session;
    std::function<std::string()> brokerAddress;  ///< empty: there is no broker
  };

  /// `board` outlives the object. Throws std::bad_alloc.
  ConnectorControl(platform_host::ControlBoard& board, Sources shown);

 private:
  using Offer = std::unique_ptr<platform_host::ControlBoard::Offer>;

  [[nodiscard]] nlohmann::json Session() const;
  [[nodiscard]] nlohmann::json Connection() const;
  [[nodiscard]] nlohmann::json Broker() const;

  /// Holds the state that `request` names, or lets it follow the connection.
  void Hold(const nlohmann::json& request, const platform_host::ControlReply& reply) const;

  const Sources sources;
  const Offer session;
  const Offer connection;
  const Offer broker;
  const Offer hold;
};

}  // namespace lumo_connector

#endif
