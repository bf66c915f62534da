// What an installation costs, against the floor of the work that nobody can leave out, on the same
// containers in the same run. Each measurement is a process of its own: CPU time and peak memory
// are the kernel's numbers for it.
//
//   installation_benchmark PKI [PROGRAM]
//
// PKI is a folder made by tests/pki/make_pki.py; PROGRAM, the built daemon, is measured as a whole
// process in a bwrap sandbox. Prints one line for each size with the ratios, and the slack that is
// left of the goals.
#include <botan/data_src.h>
#include <botan/x509cert.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/HSM.h"
#include "benchmarks/InstallationFloor.h"
#include "benchmarks/MeasuredInstallation.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestContainer.h"

namespace {

namespace fs = std::filesystem;
constexpr const char* kSystemCertificates = "/etc/ssl/certs/ca-certificates.crt";
constexpr int kBundles = 5;

using benchmarks::Cost;
using benchmarks::InstallByClient;

std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<tests::Bytes> SystemCertificates() {
  std::vector<std::string> pieces;
  truststore_update_client::HSM::SplitCertificate(ReadAll(kSystemCertificates), pieces);
  std::vector<tests::Bytes> encodings;
  for (const std::string& piece : pieces) {
    Botan::DataSource_Memory source(piece);
    encodings.push_back(Botan::X509_Certificate(source).BER_encode());
  }
  if (encodings.empty()) throw std::runtime_error("no certificates: install ca-certificates");
  return encodings;
}

void WriteContainer(std::size_t certificates, const std::string& path) {
  const std::vector<tests::Bytes> system = SystemCertificates();
  std::string payload = "{";
  for (std::size_t bundle = 0, next = 0; bundle < kBundles; ++bundle) {
    std::vector<tests::Bytes> members;
    for (; next < certificates * (bundle + 1) / kBundles; ++next) {
      members.push_back(system[next % system.size()]);
    }
    payload += (bundle == 0 ? "\"BUNDLE-" : ",\"BUNDLE-") + std::to_string(bundle) +
               "\":" + tests::TestContainer::BundleArray(members);
  }
  std::ofstream(path) << tests::TestContainer().PayloadJson(payload + "}").Build();
}

int RunChild(const std::string& kind, const std::string& container, const std::string& directory) {
  if (kind == "make") {
    WriteContainer(std::stoul(directory), container);
    return 0;
  }
  setenv("TSUC_HOST_CONFIG", (directory + "/host-platform.toml").c_str(), 1);
  const auto begun = std::chrono::steady_clock::now();
  const int result = kind == "client" ? InstallByClient(container, directory)
                                      : benchmarks::InstallFloor(container, directory);
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begun;
  std::printf("%.6f\n", taken.count());  // for update_benchmark.py
  return result;
}

Cost Run(const std::vector<std::string>& command) {
  const Cost cost = benchmarks::RunAndCount(command);
  if (cost.waitStatus != 0) throw std::runtime_error("a measured process failed: " + command[0]);
  return cost;
}

// The cheapest of several runs, each on a fresh unit.
Cost Measure(const std::string& kind, const std::string& container, const std::string& program,
             int runs) {
  Cost best{1e9, 1e9, 0};
  for (int run = 0; run < runs; ++run) {
    const tests::TemporaryDirectory unit;
    benchmarks::MakeUnit(unit.Path(), "OcspDisable = true\nConnectionRetryTestMode = false\n");
    std::vector<std::string> command = {"/proc/self/exe", "--child", kind, container, unit.Path()};
    if (kind == "program") {
      command = {"bwrap",
                 "--ro-bind",
                 "/",
                 "/",
                 "--dev",
                 "/dev",
                 "--bind",
                 unit.Path(),
                 unit.Path(),
                 "--bind",
                 unit.Path() + "/run",
                 "/run",
                 "--setenv",
                 "TSUC_HOST_CONFIG",
                 unit.Path() + "/host-platform.toml",
                 program,
                 "-f",
                 container};
    }
    const Cost cost = Run(command);
    if (!fs::exists(unit.Path() + "/store/installed/BUNDLE-4.pem")) {
      throw std::runtime_error(kind + " installed nothing");
    }
    best.cpuSeconds = std::min(best.cpuSeconds, cost.cpuSeconds);
    best.peakMib = std::min(best.peakMib, cost.peakMib);
  }
  return best;
}

void Report(std::size_t certificates, int runs, const std::string& program) {
  const tests::TemporaryDirectory directory;
  const std::string container = directory.Path() + "/container";
  // In a process of its own: a child's peak memory begins with that of its parent.
  Run({"/proc/self/exe", "--child", "make", container, std::to_string(certificates)});
  const double containerMib = static_cast<double>(fs::file_size(container)) / (1024 * 1024);
  const Cost floor = Measure("floor", container, program, runs);
  const Cost client = Measure("client", container, program, runs);
  std::printf(
      "%6zu certificates, %6.2f MiB: floor %8.4f s %6.1f MiB | client %8.4f s %6.1f MiB | "
      "ratio %.3f | memory beyond 3 containers %.1f MiB",
      certificates, containerMib, floor.cpuSeconds, floor.peakMib, client.cpuSeconds,
      client.peakMib, client.cpuSeconds / floor.cpuSeconds, client.peakMib - 3 * containerMib);
  if (!program.empty()) {
    const Cost whole = Measure("program", container, program, runs);
    std::printf(" | -f %8.4f s, ratio %.3f", whole.cpuSeconds, whole.cpuSeconds / floor.cpuSeconds);
  }
  std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 5 && std::string(argv[1]) == "--child") return RunChild(argv[2], argv[3], argv[4]);
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: installation_benchmark PKI [PROGRAM]\n");
    return 2;
  }
  setenv("TSUC_TEST_PKI", argv[1], 1);
  const std::string program = argc == 3 ? argv[2] : "";
  try {
    Report(150, 9, program);
    Report(1500, 5, program);
    Report(15000, 1, program);
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "installation_benchmark: %s\n", exception.what());
    return 1;
  }
  return 0;
}
