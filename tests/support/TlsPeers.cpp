#include "tests/support/TlsPeers.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "tests/support/Files.h"
#include "tests/support/LoopbackPeer.h"
#include "tests/support/TestPki.h"

namespace tests {
namespace {

std::vector<std::string> OpensslWords(const std::string& party,
                                      const std::vector<std::string>& options) {
  std::vector<std::string> words = {"/usr/bin/openssl",
                                    "s_server",
                                    "-accept",
                                    "127.0.0.1:0",
                                    "-cert",
                                    PkiPath("tls/" + party + "/cert.pem"),
                                    "-key",
                                    PkiPath("tls/" + party + "/key.pem"),
                                    "-cert_chain",
                                    PkiPath("tls/" + party + "/cert.pem"),
                                    "-www"};
  words.insert(words.end(), options.begin(), options.end());
  return words;
}

std::uint16_t PortIn(const std::string& lines) {
  return static_cast<std::uint16_t>(std::stoul(lines.substr(lines.rfind(':') + 1)));
}

std::uint16_t FreePort() {
  return LoopbackPeer().Port();
}

/// nginx as root hands its work to another user unless told not to, who may not read the files.
std::string NginxUser() {
  return ::geteuid() == 0 ? "user root;\n" : "";
}

std::string NginxConfiguration(const std::string& directory, const std::string& party,
                               const std::string& files, std::uint16_t port,
                               std::uint16_t tlsPort) {
  std::string temporary;
  for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
    temporary += std::string(kind) + "_temp_path " + directory + "/" + kind + ";\n";
  }
  const std::string own = PkiPath("tls/" + party);
  return NginxUser() + "daemon off;\npid " + directory + "/pid;\nerror_log stderr notice;\n" +
         "worker_processes 1;\nevents {}\nhttp {\naccess_log off;\nsendfile on;\n" + temporary +
         "root " + files +
         ";\nerror_page 405 =200 $uri;\nserver { listen 127.0.0.1:" + std::to_string(port) +
         "; }\nserver { listen 127.0.0.1:" + std::to_string(tlsPort) + " ssl;\nssl_certificate " +
         own + "/cert.pem;\nssl_certificate_key " + own + "/key.pem; }\n}\n";
}

std::vector<std::string> NginxWords(const std::string& directory, const std::string& text) {
  WriteText(directory + "/nginx.conf", text);
  return {"/usr/sbin/nginx", "-p", directory, "-c", directory + "/nginx.conf"};
}

}  // namespace

ProgramOutput::ProgramOutput() {
  if (::mkfifo(Path().c_str(), 0600) != 0) {
    throw std::system_error(errno, std::generic_category(), Path());
  }
  // Also for writing, so that neither side waits for the other to open it.
  pipe = support::UniqueFd(::open(Path().c_str(), O_RDWR | O_CLOEXEC));
}

std::string ProgramOutput::WaitForLine(const std::string& text) const {
  std::string lines;
  while (WaitFor(pipe.Get(), POLLIN)) {
    char byte = 0;
    if (::read(pipe.Get(), &byte, 1) != 1) break;
    lines += byte;
    if (byte == '\n' && lines.find(text) != std::string::npos) return lines;
  }
  throw std::runtime_error("no line with \"" + text + "\" but:\n" + lines);
}

OpensslServer::OpensslServer(const std::string& party, const std::vector<std::string>& options)
    : server(OpensslWords(party, options), output.Path()),
      port(PortIn(output.WaitForLine("ACCEPT "))) {}

NginxServer::NginxServer(const std::string& party, const std::string& files)
    : port(FreePort()),
      tlsPort(FreePort()),
      server(NginxWords(directory.Path(),
                        NginxConfiguration(directory.Path(), party, files, port, tlsPort)),
             output.Path()) {
  static_cast<void>(output.WaitForLine("start worker process "));
}

NginxServer::~NginxServer() {
  server.Kill(SIGTERM);
}

}  // namespace tests
