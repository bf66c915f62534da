// Decoding text without white space, ours against OpenSSL's EVP_DecodeBlock in the same run. The
// last lines give the ratio for each length. Exit 1 only when one of them decodes wrongly.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "base64_utils/Base64Utils.h"
#include "benchmarks/MedianTimes.h"

namespace {

// DER bytes of a certificate, of a container with 150 of them, of one with 1,500.
constexpr std::int64_t kLengths[] = {1500, 210000, 2100000};

std::string RandomBytes(std::int64_t length) {
  std::mt19937 random(1);
  std::string bytes;
  for (std::int64_t i = 0; i < length; ++i) bytes += static_cast<char>(random() & 0xFFU);
  return bytes;
}

std::string TextOf(std::int64_t length) {
  return base64_utils::Base64Utils::Base64Encode(RandomBytes(length));
}

int DecodeByOpenSsl(const std::string& text, std::vector<unsigned char>& out) {
  out.resize(text.size() / 4 * 3);
  return EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(text.data()),
                         static_cast<int>(text.size()));
}

void CountBytes(benchmark::State& state, const std::string& text) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void Ours(benchmark::State& state) {
  const std::string text = TextOf(state.range(0));
  std::string out;
  for (auto _ : state) {
    benchmark::DoNotOptimize(base64_utils::base64_decode(text, out, 0));
    benchmark::ClobberMemory();
  }
  CountBytes(state, text);
}

void OursIntoNewVector(benchmark::State& state) {
  const std::string text = TextOf(state.range(0));
  for (auto _ : state) {
    const auto bytes = base64_utils::Base64Utils::Base64DecodeToBinaryVector(text);
    benchmark::DoNotOptimize(bytes.data());
    benchmark::ClobberMemory();
  }
  CountBytes(state, text);
}

void OursInLinesOf64(benchmark::State& state) {
  std::string text;
  const std::string plain = TextOf(state.range(0));
  for (std::size_t at = 0; at < plain.size(); at += 64) text += plain.substr(at, 64) + "\n";
  std::string out;
  for (auto _ : state) {
    benchmark::DoNotOptimize(base64_utils::base64_decode(text, out, 0));
    benchmark::ClobberMemory();
  }
  CountBytes(state, text);
}

void OpenSsl(benchmark::State& state) {
  const std::string text = TextOf(state.range(0));
  std::vector<unsigned char> out;
  for (auto _ : state) {
    benchmark::DoNotOptimize(DecodeByOpenSsl(text, out));
    benchmark::ClobberMemory();
  }
  CountBytes(state, text);
}

void AllLengths(benchmark::internal::Benchmark* benchmark) {
  for (const std::int64_t length : kLengths) benchmark->Arg(length);
  benchmark->Repetitions(5)->MinTime(0.1)->DisplayAggregatesOnly();
}

BENCHMARK(Ours)->Apply(AllLengths);
BENCHMARK(OpenSsl)->Apply(AllLengths);
BENCHMARK(OursIntoNewVector)->Apply(AllLengths);
BENCHMARK(OursInLinesOf64)->Apply(AllLengths);

bool DecodesRight(std::int64_t length) {
  const std::string bytes = RandomBytes(length);
  const std::string text = TextOf(length);
  std::string ours;
  std::vector<unsigned char> theirs;
  const bool oursIsRight =
      base64_utils::base64_decode(text, ours, 0) == text.size() && ours == bytes;
  const bool theirsIsRight = DecodeByOpenSsl(text, theirs) == static_cast<int>(length) &&
                             std::string(theirs.begin(), theirs.end()) == bytes;
  return oursIsRight && theirsIsRight;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  benchmark::Initialize(&argumentCount, arguments);
  for (const std::int64_t length : kLengths) {
    if (DecodesRight(length)) continue;
    std::fprintf(stderr, "wrong result for %lld bytes\n", static_cast<long long>(length));
    return 1;
  }
  benchmarks::MedianTimes times;
  benchmark::RunSpecifiedBenchmarks(&times);
  std::printf("RATIO of speed, ours to EVP_DecodeBlock:");
  for (const std::int64_t length : kLengths) {
    const std::string argument = "/" + std::to_string(length);
    const double ours = times.Seconds("Ours" + argument);
    const double theirs = times.Seconds("OpenSsl" + argument);
    if (ours == 0 || theirs == 0) continue;  // filtered out
    std::printf("  %.2f (%lld bytes)", theirs / ours, static_cast<long long>(length));
  }
  std::printf("\n");
  return 0;
}
