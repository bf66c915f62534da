// Reading JSON (the parser made and all pairs asked for) in texts of 1 to 8 MiB: containers,
// and what an attacker would send instead. The table at the end shows for each shape that the time
// per MiB does not grow, and what a process needs at most for 4 MiB.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "benchmarks/MedianTimes.h"
#include "json_parser/JsonParser.h"
#include "platform/host/csc_logging/CapturedLog.h"

namespace {

constexpr std::int64_t kMebibytes[] = {1, 2, 4, 8};

// A text is `before`, as many `piece` as fit, `after`; `tail` then fills the second half of the
// room instead.
struct Shape {
  const char* name;
  const char* before;
  const char* piece;
  const char* after;
  const char* tail;
};

const Shape kShapes[] = {
    {"bundles", "{\"ZORA\":[\"\"",
     ",\"MIIDBzCCAe8CFBSkHQGAv0NoQ4cN5n0x1uJ0wYqMMA0GCSqGSIb3DQEBCwUAMEAx\"", "]}", ""},
    {"pairs", "{", "\"\":1,", "\"\":1}", ""},
    {"keys without values", "{", "\"\":", "1}", ""},
    {"empty arrays", "[", "[],", "[]]", ""},
    {"most tokens", "[", "[1]", "]", ""},
    {"a chain of colons", "[", "a:", "a]", ""},
    {"16 deep", "[[[[[[[[[[[[[[[", "[1]", "]]]]]]]]]]]]]]]", ""},
    {"16 deep, a chain in each", "[[[[[[[[[[[[[[[", "a:[],", "a]]]]]]]]]]]]]]]", ""},
    {"surplus brackets behind a chain", "[", "a:", "a]:", "]"},
    {"unclosed brackets", "", "[", "", ""},
    {"unclosed objects in a list", "[", "{},", "", ""},
    {"mixed brackets", "[", "[}", "]", ""},
    {"escapes", "\"", "\\\"", "\"", ""},
    {"white space before a colon", "{\"a\"", " ", ":1}", ""},
    {"colons", "", ":", "", ""},
    {"quotes", "", "\"", "", ""},
};

std::string TextOf(const Shape& shape, std::int64_t mebibytes) {
  const auto size = static_cast<std::size_t>(mebibytes) << 20U;
  const std::string piece = shape.piece;
  const std::string after = shape.after;
  const std::string tail = shape.tail;
  const std::size_t room = tail.empty() ? size : size / 2;
  std::string text = shape.before;
  text.reserve(size);
  while (text.size() + piece.size() + after.size() <= room) text += piece;
  text += after;
  while (!tail.empty() && text.size() < size) text += tail;
  return text;
}

std::size_t ReadText(const std::string& text) {
  return json_parser::JsonParser(text).GetValuesForAllKeys().size();
}

void Read(benchmark::State& state) {
  platform_host::CapturedLog log;
  const std::string text = TextOf(kShapes[state.range(0)], state.range(1));
  for (auto _ : state) {
    benchmark::DoNotOptimize(ReadText(text));
    log.Clear();
  }
  state.SetLabel(kShapes[state.range(0)].name);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void AllShapes(benchmark::internal::Benchmark* benchmark) {
  for (std::size_t shape = 0; shape < std::size(kShapes); ++shape)
    for (const std::int64_t mebibytes : kMebibytes)
      benchmark->Args({static_cast<std::int64_t>(shape), mebibytes});
  benchmark->Repetitions(3)->MinTime(0.05)->DisplayAggregatesOnly();
}

BENCHMARK(Read)->Apply(AllShapes);

// A process of its own reads 4 MiB of `shape`; returns its peak of resident memory in MiB, or -1.
double PeakMebibytes(const Shape& shape) {
  const pid_t child = ::fork();
  if (child == 0) {
    const platform_host::CapturedLog log;
    const std::string text = TextOf(shape, 4);
    ::_exit(ReadText(text) == SIZE_MAX ? 1 : 0);
  }
  int status = 0;
  rusage usage{};
  if (child < 0 || ::wait4(child, &status, 0, &usage) != child || status != 0) return -1;
  return static_cast<double>(usage.ru_maxrss) / 1024;
}

double MillisecondsPerMebibyte(const benchmarks::MedianTimes& times, std::size_t shape,
                               std::int64_t mebibytes) {
  const std::string name = "Read/" + std::to_string(shape) + "/" + std::to_string(mebibytes);
  return times.Seconds(name) * 1000 / static_cast<double>(mebibytes);
}

}  // namespace

int main(int argumentCount, char** arguments) {
  benchmark::Initialize(&argumentCount, arguments);
  // First, while this process has nothing that a child would inherit.
  double peaks[std::size(kShapes)];
  for (std::size_t i = 0; i < std::size(kShapes); ++i) peaks[i] = PeakMebibytes(kShapes[i]);

  benchmarks::MedianTimes times;
  benchmark::RunSpecifiedBenchmarks(&times);
  std::printf("%-34s %8s %8s %8s %8s %12s %12s %10s\n", "ms per MiB in a text of", "1 MiB", "2 MiB",
              "4 MiB", "8 MiB", "RATIO 4:1", "RATIO 8:4", "peak MiB");
  for (std::size_t i = 0; i < std::size(kShapes); ++i) {
    const double one = MillisecondsPerMebibyte(times, i, 1);
    const double two = MillisecondsPerMebibyte(times, i, 2);
    const double four = MillisecondsPerMebibyte(times, i, 4);
    const double eight = MillisecondsPerMebibyte(times, i, 8);
    if (one == 0 || two == 0 || four == 0 || eight == 0) continue;  // filtered out
    std::printf("%-34s %8.2f %8.2f %8.2f %8.2f %12.2f %12.2f %10.1f\n", kShapes[i].name, one, two,
                four, eight, four / one, eight / four, peaks[i]);
  }
  return 0;
}
