// What a download costs through the real connector, against curl on the same endpoints in the same
// run: nginx on loopback, plain and over TLS. Each measurement is a process of its own and tells
// the time from before connecting to the end; the kernel counts its peak memory.
//
//   download_benchmark PKI
//
// PKI is a folder made by tests/pki/make_pki.py. Prints one line for each size and scheme, and
// leaves with 1 when a goal is missed.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/Constants.h"
#include "TruststoreUpdateClient/ContainerConnection.h"
#include "benchmarks/MeasuredInstallation.h"
#include "csa_common/HttpConnection.h"
#include "csa_common/HttpProtocol.h"
#include "csc_logging/CSCLogging.h"
#include "lumo_connector/LumoConnector.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestPki.h"
#include "tests/support/TlsPeers.h"

namespace {

using std::chrono::steady_clock;

constexpr std::size_t kMib = std::size_t{1024} * 1024;
constexpr int kRuns = 9;
constexpr double kLeastRatio = 0.8;

// Of a download's peak memory: so many times the body, and so many MiB for all the rest.
constexpr double kBodies = 3;
constexpr double kRestMib = 20;

const std::string& Operation() {
  return truststore_update_client::ContainerRequestOperationTypeId;
}

// What stands before the text in the answer to a request for a container: the field's tag and its
// length in groups of seven bits.
std::string AnswerHead(std::size_t size) {
  std::string head = "\x0A";
  for (std::size_t rest = size; rest > 0; rest >>= 7U) {
    head += static_cast<char>((rest & 0x7FU) | (rest > 0x7FU ? 0x80U : 0U));
  }
  return head;
}

// In pieces: a measured process's peak memory begins with that of this one.
void WriteFile(const std::string& path, const std::string& head, std::size_t mib) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << head;
  for (std::size_t written = 0; written < mib; ++written) file << std::string(kMib, 'c');
}

// Returns the number of bytes that arrived; 0 for a failure.
std::size_t Download(const std::string& kind,
                     const std::shared_ptr<lumo_connector::LumoConnector>& connector,
                     const std::string& url) {
  if (kind == "container") {
    std::string container;
    const truststore_update_client::ContainerConnection connection(connector);
    return connection.GetContainer(container, 0, "", "", "token", url) == 0 ? container.size() : 0;
  }
  csa_common::HttpProtocol protocol;
  protocol.SetOption(csa_common::HttpOption::Connection, "close");
  const csa_common::HttpConnection connection(connector);
  const bool isDone =
      connection.Get(protocol, Operation(), url) == 0 && protocol.ResponseStatusCode() == 200;
  return isDone ? protocol.ResponsePayload().size() : 0;
}

int RunChild(const std::string& kind, const std::string& configuration, const std::string& url,
             std::size_t size, const std::string& timeFile) {
  ::setenv("TSUC_HOST_CONFIG", configuration.c_str(), 1);
  csc_logging::CSCLogging::InitLogging("TU");
  const auto connector = std::make_shared<lumo_connector::LumoConnector>(nullptr);
  connector->Start();
  while (connector->GetSessionStatus() == lumo_connector::SessionStatus::kStopped) {
  }
  // curl makes its TLS library ready before its own clock starts; so do we, as a daemon that has
  // run for a while has.
  if (Download("get", connector, url.substr(0, url.rfind('/')) + "/small") == 0) return 1;
  const auto begun = steady_clock::now();
  const std::size_t arrived = Download(kind, connector, url);
  const std::chrono::duration<double> taken = steady_clock::now() - begun;
  if (arrived != size) return 1;
  tests::WriteText(timeFile, std::to_string(taken.count()));
  return 0;
}

// The times of several runs, and the largest peak memory.
struct Measured {
  std::vector<double> seconds;
  double peakMib = 0;

  void Add(const std::vector<std::string>& command, const std::string& timeFile) {
    const auto cost = benchmarks::RunAndCount(command);
    if (cost.waitStatus != 0) throw std::runtime_error("a measured process failed: " + command[1]);
    seconds.push_back(std::stod(tests::ReadText(timeFile)));
    peakMib = std::max(peakMib, cost.peakMib);
  }

  [[nodiscard]] double Median() const {
    std::vector<double> sorted = seconds;
    std::sort(sorted.begin(), sorted.end());
    return sorted[sorted.size() / 2];
  }
};

// A server with answers of several sizes, and a configuration for each scheme.
class Bench {
 public:
  Bench() : server("good", directory.Path()) {
    tests::WriteText(Path("small"), "x");
    for (const char* scheme : {"http", "https"}) {
      tests::WriteText(Configuration(scheme),
                       "[logging]\nlevel = \"warning\"\n[limits]\nresponse_bytes = 1073741824\n"
                       "[service.\"" +
                           Operation() + "\"]\nurl = \"" + scheme + "://localhost\"\nca_file = \"" +
                           tests::PkiPath("tls/ca.pem") + "\"\n");
    }
  }

  // Returns whether the goals are met.
  bool Report(const std::string& scheme, std::size_t mib) const {
    const std::size_t size = mib * kMib;
    WriteFile(Path("body"), "", mib);
    WriteFile(Path("answer"), AnswerHead(size), mib);
    Measured curl;
    Measured kept;
    Measured client;
    Measured container;
    for (int run = 0; run < kRuns; ++run) {
      curl.Add(Curl(scheme, "/dev/null"), Path("time"));
      kept.Add(Curl(scheme, Path("kept")), Path("time"));
      client.Add(Client("get", scheme, "/body", size), Path("time"));
      container.Add(Client("container", scheme, "/answer", size), Path("time"));
    }
    return Print(scheme, mib, {curl, kept, client, container});
  }

 private:
  [[nodiscard]] std::string Path(const std::string& name) const {
    return directory.Path() + "/" + name;
  }
  [[nodiscard]] std::string Configuration(const std::string& scheme) const {
    return Path(scheme + ".toml");
  }
  [[nodiscard]] std::string Url(const std::string& scheme, const std::string& path) const {
    const auto port = scheme == "https" ? server.TlsPort() : server.Port();
    return scheme + "://localhost:" + std::to_string(port) + path;
  }

  [[nodiscard]] std::vector<std::string> Curl(const std::string& scheme,
                                              const std::string& output) const {
    return {"/bin/sh",
            "-c",
            "exec curl \"$@\" > \"$0\"",
            Path("time"),
            "--silent",
            "--fail",
            "--cacert",
            tests::PkiPath("tls/ca.pem"),
            "--output",
            output,
            "--write-out",
            "%{time_total}",
            Url(scheme, "/body")};
  }

  [[nodiscard]] std::vector<std::string> Client(const std::string& kind, const std::string& scheme,
                                                const std::string& path, std::size_t size) const {
    return {"/proc/self/exe",     "--child",   kind, Configuration(scheme), Url(scheme, path),
            std::to_string(size), Path("time")};
  }

  static bool Print(const std::string& scheme, std::size_t mib,
                    const std::vector<Measured>& measured) {
    const auto bytes = static_cast<double>(mib * kMib) / 1e6;
    const auto speed = [bytes](const Measured& one) { return bytes / one.Median(); };
    const Measured& client = measured[2];
    const Measured& container = measured[3];
    const double ratio = speed(client) / speed(measured[1]);
    const double allowedMib = kBodies * static_cast<double>(mib) + kRestMib;
    std::printf(
        "%2zu MiB %-5s: curl %5.0f MB/s, keeping it %5.0f | client %5.0f, ratio %.2f (%.2f) | "
        "container %5.0f | peak MiB %5.1f, container %5.1f, allowed %5.1f\n",
        mib, scheme.c_str(), speed(measured[0]), speed(measured[1]), speed(client), ratio,
        speed(client) / speed(measured[0]), speed(container), client.peakMib, container.peakMib,
        allowedMib);
    return ratio >= kLeastRatio && std::max(client.peakMib, container.peakMib) <= allowedMib;
  }

  const tests::TemporaryDirectory directory;
  const tests::NginxServer server;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc == 7 && std::string(argv[1]) == "--child") {
    return RunChild(argv[2], argv[3], argv[4], std::stoul(argv[5]), argv[6]);
  }
  if (argc != 2) {
    std::fprintf(stderr, "usage: download_benchmark PKI\n");
    return 2;
  }
  ::setenv("TSUC_TEST_PKI", std::filesystem::absolute(argv[1]).c_str(), 1);
  try {
    const Bench bench;
    bool isMet = true;
    for (const char* scheme : {"http", "https"}) {
      for (const std::size_t mib : {1U, 10U, 64U}) isMet = bench.Report(scheme, mib) && isMet;
    }
    return isMet ? 0 : 1;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "download_benchmark: %s\n", exception.what());
    return 1;
  }
}
