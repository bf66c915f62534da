#include "tests/support/MosquittoBroker.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "support/UniqueFd.h"
#include "tests/support/EventLog.h"
#include "tests/support/Files.h"

namespace tests {

namespace {

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

std::string Replaced(std::string text, const std::string& word, const std::string& by) {
  for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + by.size())) {
    text.replace(at, word.size(), by);
  }
  return text;
}

}  // namespace

KeptPort::KeptPort() : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const int on = 1;
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (::setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      ::bind(socket.Get(), generic, size) != 0 ||
      ::getsockname(socket.Get(), generic, &size) != 0) {
    throw std::system_error(errno, std::generic_category(), "no free port");
  }
  number = ntohs(address.sin_port);
}

bool Accepts(std::uint16_t port) {
  const support::UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = Loopback(port);
  return ::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

MosquittoBroker::MosquittoBroker(const std::string& settings) {
  // As root it would go on as a user who may not write into this folder.
  const std::string user = ::getuid() == 0 ? "user root\n" : "";
  WriteText(Directory() + "/mosquitto.conf",
            user + "log_dest file " + Directory() +
                "/log\nlog_type all\npersistence true\nmax_queued_messages 2000\n" +
                "persistence_location " + Directory() + "/\nlistener " + std::to_string(Port()) +
                " 127.0.0.1\n" + Replaced(settings, "DIRECTORY", Directory()));
}

void MosquittoBroker::Start() {
  process = std::make_unique<Command>(
      std::vector<std::string>{"/usr/sbin/mosquitto", "-c", Directory() + "/mosquitto.conf"},
      Directory() + "/output");
  if (!Eventually([this] { return Accepts(Port()); })) {
    throw std::runtime_error("no broker: " + ReadText(Directory() + "/output"));
  }
}

bool MosquittoBroker::Publish(const std::string& topic, const std::string& payload,
                              const std::vector<std::string>& options) const {
  std::vector<std::string> words{"/usr/bin/mosquitto_pub",
                                 "-h",
                                 "127.0.0.1",
                                 "-p",
                                 std::to_string(Port()),
                                 "-q",
                                 "1",
                                 "-t",
                                 topic,
                                 "-m",
                                 payload};
  words.insert(words.end(), options.begin(), options.end());
  return Command(std::move(words), Directory() + "/published").Wait() == 0;
}

std::string MosquittoBroker::Log() const {
  return ReadText(Directory() + "/log");
}

}  // namespace tests
