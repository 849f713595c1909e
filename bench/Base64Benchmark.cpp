// Throughput of the Base64 codec on a 1 MB block, the size of a large
// stored record or request body.
#include <benchmark/benchmark.h>

#include <random>
#include <string>

#include "velmor/Base64.h"

namespace velmor {
namespace {

constexpr std::size_t kBlockLength = 1 << 20;

Data randomBlock() {
  std::mt19937 random(42);
  Data bytes(kBlockLength);
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

void BM_Encode(benchmark::State& state) {
  const Data bytes = randomBlock();
  for (auto _ : state) {
    benchmark::DoNotOptimize(Base64::encodeBase64WithData(bytes));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_Encode);

// Bytes processed count the decoded output, so both directions are
// measured against the same 1 MB.
void BM_Decode(benchmark::State& state) {
  const Data bytes = randomBlock();
  const std::string text = *Base64::encodeBase64WithData(bytes);
  for (auto _ : state) {
    benchmark::DoNotOptimize(Base64::decodeBase64WithString(text));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_Decode);

// Text broken into 76-character lines, as mail and PEM carry it: the
// decoder leaves its fast path at every break.
void BM_DecodeLines(benchmark::State& state) {
  const Data bytes = randomBlock();
  const std::string encoded = *Base64::encodeBase64WithData(bytes);
  std::string text;
  for (std::size_t at = 0; at < encoded.size(); at += 76) {
    text.append(encoded, at, 76).append("\r\n");
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(Base64::decodeBase64WithString(text));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_DecodeLines);

}  // namespace
}  // namespace velmor

BENCHMARK_MAIN();
