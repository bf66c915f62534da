/// What opens the streams that a client uses. Implemented by UnixStreamClientConnector and by
/// tests; called by the TLS alert client on its listening thread.
#ifndef SSOA_SOCKET_STREAMCLIENTCONNECTORIF_H
#define SSOA_SOCKET_STREAMCLIENTCONNECTORIF_H

#include <memory>

#include "ssoa_socket/StreamCommunicatorIf.h"

namespace ssoa_socket {

class StreamClientConnectorIf {
 public:
  virtual ~StreamClientConnectorIf() = default;

  /// Makes one attempt. Returns a connected stream, or an empty pointer after a failure; trying
  /// again is the caller's to decide. Throws std::bad_alloc only.
  [[nodiscard]] virtual std::shared_ptr<StreamCommunicatorIf> EstablishConnection() = 0;
};

}  // namespace ssoa_socket

#endif
