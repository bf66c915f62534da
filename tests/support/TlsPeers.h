/// TLS servers that nobody here wrote, on loopback, with the certificates of tests/pki. Each object
/// belongs to one thread.
#ifndef TESTS_SUPPORT_TLSPEERS_H
#define TESTS_SUPPORT_TLSPEERS_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/UniqueFd.h"
#include "tests/support/Command.h"
#include "tests/support/TemporaryDirectory.h"

namespace tests {

/// A program's output as it comes.
class ProgramOutput {
 public:
  /// Throws std::system_error when the pipe cannot be made.
  ProgramOutput();

  /// What the program has to write to.
  [[nodiscard]] std::string Path() const { return directory.Path() + "/output"; }

  /// Everything up to and with the first line that holds `text`. Throws std::runtime_error, with
  /// what came instead, after the deadline.
  [[nodiscard]] std::string WaitForLine(const std::string& text) const;

 private:
  const TemporaryDirectory directory;
  support::UniqueFd pipe;
};

/// `openssl s_server`. Answers a GET with a page about the connection.
class OpensslServer {
 public:
  /// With the certificate and key of `party`, a folder of tests/pki/tls, and further `options`.
  /// Returns when it accepts connections. Throws std::exception when it does not come to that.
  explicit OpensslServer(const std::string& party, const std::vector<std::string>& options = {});

  [[nodiscard]] std::uint16_t Port() const { return port; }

 private:
  const ProgramOutput output;
  const Command server;
  const std::uint16_t port;
};

/// nginx, with one port for HTTP and one for HTTPS. Serves the files of a folder, to a
/// POST as to a GET.
class NginxServer {
 public:
  /// With the certificate and key of `party`, a folder of tests/pki/tls. Returns when it accepts
  /// connections. Throws std::exception when it does not come to that.
  NginxServer(const std::string& party, const std::string& files);

  /// Asks it to end; its processes end one after the other.
  ~NginxServer();
  NginxServer(const NginxServer&) = delete;
  NginxServer& operator=(const NginxServer&) = delete;

  [[nodiscard]] std::uint16_t Port() const { return port; }
  [[nodiscard]] std::uint16_t TlsPort() const { return tlsPort; }

 private:
  const TemporaryDirectory directory;
  const std::uint16_t port;
  const std::uint16_t tlsPort;
  const ProgramOutput output;
  Command server;
};

}  // namespace tests

#endif
