#include "tests/doubles/ScriptedServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <stdexcept>
#include <utility>

namespace tests {

ScriptedServer::ScriptedServer(PeerScript peerScript)
    : script(std::move(peerScript)), listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(listener.Get(), generic, size) != 0 ||
      ::getsockname(listener.Get(), generic, &size) != 0 ||
      (script && ::listen(listener.Get(), SOMAXCONN) != 0)) {
    throw std::runtime_error("no port on loopback");
  }
  port = ntohs(address.sin_port);
  if (script) accepting = StartThread("ScriptedServer", [this] { Accept(); });
}

ScriptedServer::~ScriptedServer() {
  // Ends the accept under way.
  ::shutdown(listener.Get(), SHUT_RDWR);
  if (accepting.joinable()) accepting.join();
}

void ScriptedServer::Accept() {
  for (;;) {
    support::UniqueFd client(::accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!client.IsOpen()) return;
    peers.emplace_back(std::move(client), script);
  }
}

}  // namespace tests
