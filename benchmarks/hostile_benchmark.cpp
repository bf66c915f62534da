// The worst containers of up to 4 MiB that we know: what each costs the client that it is handed
// to. Each measurement is a process of its own: CPU time and peak memory are the kernel's numbers.
//
//   hostile_benchmark PKI [SHAPE]
//
// PKI is a folder made by tests/pki/make_pki.py; SHAPE measures that one only. Prints a line for
// each shape and the worst of each column, and ends with 1 when one is beyond a bound. Shapes whose
// name begins with "signer" need no key; the others are signed by a signer that the unit trusts.
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "TruststoreUpdateClient/CertificateBundles.h"
#include "base64_utils/Base64Utils.h"
#include "benchmarks/MeasuredInstallation.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestContainer.h"

namespace {

using base64_utils::Base64Utils;
using benchmarks::Cost;
using tests::TestContainer;

constexpr double kMaxCpuSeconds = 5;
constexpr double kMaxPeakMib = 128;
constexpr std::size_t kMaxContainerBytes = 4U * 1024 * 1024;
// The payload is encoded once, the header and the signature need some room.
constexpr std::size_t kPayloadBytes = kMaxContainerBytes / 4 * 3 - 8 * 1024;
// No measurement takes longer, whatever a shape has found.
constexpr rlim_t kPatienceSeconds = 20;
constexpr int kNesting = 15;
constexpr std::size_t kUnbounded = ~std::size_t{0};

const char* const kChecks = "OcspDisable = true\n";
const char* const kNoChecks = "OcspDisable = true\nno-check-all = true\n";

struct Shape {
  std::string name;
  const char* switches;
  std::function<std::string()> make;
};

std::string SignedBy(const std::string& chain) {
  return TestContainer().X5c(TestContainer::X5cArray(tests::ChainBytes("costly/" + chain))).Build();
}

std::string Payload(const std::string& json) {
  return TestContainer().PayloadJson(json).Build();
}

std::string Encoded(const std::string& certificate) {
  return Base64Utils::Base64UrlEncodeFromBinaryVector(
      tests::PkiBytes("costly/payload/" + certificate + ".der"));
}

// As many copies of one certificate as `bytes` hold.
std::string Array(const std::string& certificate, std::size_t bytes) {
  const std::string element = "\"" + Encoded(certificate) + "\"";
  std::string text = "[" + element;
  while (text.size() + element.size() + 2 <= bytes) text += "," + element;
  return text + "]";
}

std::string OneBundle(const std::string& certificate) {
  return Payload("{\"A\":" + Array(certificate, kPayloadBytes - 8) + "}");
}

// Every bundle's name is a certificate, so that each level is a bundle of all that it encloses.
std::string NestedBundles(const std::string& certificate) {
  const std::string name = "\"" + Encoded("smallest") + "\":";
  std::string text;
  for (int level = 0; level < kNesting; ++level) text += "{" + name;
  text += Array(certificate, kPayloadBytes - text.size() - kNesting);
  return Payload(text + std::string(kNesting, '}'));
}

// As many bundles as the payload holds, but `most` of them, each with certificates of about
// `bytes` or, where that is too little for one, with none.
std::string Bundles(std::size_t bytes, std::size_t most) {
  const std::string value = bytes < Encoded("smallest").size() ? "1" : Array("smallest", bytes);
  std::string text = "{";
  for (std::size_t number = 0; number < most && text.size() + value.size() + 16 < kPayloadBytes;
       ++number) {
    char name[24];
    std::snprintf(name, sizeof name, "%zx", number);
    text.append(number > 0 ? ",\"" : "\"").append(name).append("\":").append(value);
  }
  return Payload(text + "}");
}

std::string LongName(char character) {
  return Payload("{\"" + std::string(kPayloadBytes - 8, character) + "\":[]}");
}

std::string LongHeaderValue(const char* key) {
  const std::string value = "\"" + std::string(240 * 1024, '\1') + "\"";
  TestContainer container;
  return key == std::string("alg") ? container.Algorithm(value).Build()
                                   : container.Id(value).Build();
}

std::vector<Shape> Shapes() {
  std::vector<Shape> shapes;
  for (const char* chain : {"mceliece", "smooth-curve", "dns-constraints", "directory-constraints",
                            "rsa-8192", "rsa-8192-self-issued", "rsa-8192-pairs"}) {
    shapes.push_back({std::string("signer ") + chain, kChecks, [=] { return SignedBy(chain); }});
  }
  shapes.push_back({"signer algorithm long", kChecks, [] { return LongHeaderValue("alg"); }});
  for (const char* certificate : {"alternative-names", "policies", "extensions", "constraints",
                                  "attributes", "empty-set-name", "empty-text-name", "smallest"}) {
    const std::string name = certificate;
    shapes.push_back({"payload " + name, kChecks, [=] { return OneBundle(name); }});
  }
  shapes.push_back({"payload nested", kChecks, [] { return NestedBundles("smallest"); }});
  shapes.push_back({"payload bundles", kChecks, [] { return Bundles(1, kUnbounded); }});
  const std::size_t most = truststore_update_client::kMaxBundles;
  shapes.push_back({"payload bundles at the bound", kChecks,
                    [=] { return Bundles(kPayloadBytes / most - 16, most); }});
  shapes.push_back({"payload name of controls", kChecks, [] { return LongName('\1'); }});
  shapes.push_back({"payload name of letters", kNoChecks, [] { return LongName('a'); }});
  shapes.push_back({"id long", kChecks, [] { return LongHeaderValue("ContainerId"); }});
  return shapes;
}

const Shape& Find(const std::vector<Shape>& shapes, const std::string& name) {
  const auto found = std::find_if(shapes.begin(), shapes.end(),
                                  [&](const Shape& shape) { return shape.name == name; });
  if (found == shapes.end()) throw std::runtime_error("no shape " + name);
  return *found;
}

void Write(const Shape& shape, const std::string& path) {
  const std::string container = shape.make();
  if (container.size() > kMaxContainerBytes) throw std::runtime_error(shape.name + " is too long");
  std::ofstream(path) << container;
}

int RunChild(const std::string& kind, const std::string& shape, const std::string& directory) {
  const std::string container = directory + "/container";
  if (kind == "make") {
    Write(Find(Shapes(), shape), container);
    return 0;
  }
  const rlimit patience{kPatienceSeconds, kPatienceSeconds};
  if (setrlimit(RLIMIT_CPU, &patience) != 0) return 1;
  const int status = benchmarks::InstallByClient(container, directory);
  std::ofstream(directory + "/status") << status;
  return 0;
}

// In processes of their own: a child's peak memory begins with that of its parent.
Cost Measure(const Shape& shape) {
  const tests::TemporaryDirectory unit;
  benchmarks::MakeUnit(unit.Path(), shape.switches);
  const Cost made =
      benchmarks::RunAndCount({"/proc/self/exe", "--child", "make", shape.name, unit.Path()});
  if (made.waitStatus != 0) throw std::runtime_error("cannot make " + shape.name);
  const Cost cost =
      benchmarks::RunAndCount({"/proc/self/exe", "--child", "install", shape.name, unit.Path()});
  std::string status = "none";
  std::ifstream(unit.Path() + "/status") >> status;
  std::printf("%-40s status %4s  %8.3f s  %7.1f MiB\n", shape.name.c_str(), status.c_str(),
              cost.cpuSeconds, cost.peakMib);
  std::fflush(stdout);
  return cost;
}

int Report(const std::string& only) {
  Cost worst;
  bool broken = false;
  for (const Shape& shape : Shapes()) {
    if (!only.empty() && shape.name != only) continue;
    const Cost cost = Measure(shape);
    worst.cpuSeconds = std::max(worst.cpuSeconds, cost.cpuSeconds);
    worst.peakMib = std::max(worst.peakMib, cost.peakMib);
    broken = broken || cost.waitStatus != 0;
  }
  std::printf("worst: %.3f s of %.0f s, %.1f MiB of %.0f MiB\n", worst.cpuSeconds, kMaxCpuSeconds,
              worst.peakMib, kMaxPeakMib);
  broken = broken || worst.cpuSeconds > kMaxCpuSeconds || worst.peakMib > kMaxPeakMib;
  return broken ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc == 5 && std::string(argv[1]) == "--child") return RunChild(argv[2], argv[3], argv[4]);
    if (argc < 2 || argc > 3) {
      std::fprintf(stderr, "usage: hostile_benchmark PKI [SHAPE]\n");
      return 2;
    }
    setenv("TSUC_TEST_PKI", argv[1], 1);
    return Report(argc == 3 ? argv[2] : "");
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "hostile_benchmark: %s\n", exception.what());
    return 1;
  }
}
