// Compares the library's JSON reader with RapidJSON (DOM), nlohmann-json and
// simdjson (DOM, when built with it) on a token response and on a large
// mixed document, then prints how our times relate to theirs.
#include <benchmark/benchmark.h>

#include <rapidjson/document.h>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#ifdef VELMOR_BENCH_WITH_SIMDJSON
#include <simdjson.h>
#endif

#include "TimeKeepingReporter.h"
#include "json/xSBJsonParser.h"

namespace {

// What a token endpoint answers after a sign-in: long opaque tokens, a
// few numbers and short texts.
const std::string kTokenResponse =
    R"({"access_token":"eyJlbmMiOiJBMTI4Q0JDLUhTMjU2IiwiYWxnIjoiZGlyIn0..kq3Xz9LmP2wQf7bN0rTzAw.)"
    R"(fJ8kHq3ZP1sVn6W0cRy4uDtE2oGx5lKj9aMbYvNhQwIu7eTr","token_type":"bearer",)"
    R"("expires_in":3600,"refresh_token":"AB11726738123n8vQhZ2pLxK0wRt5YcJ9mFs3DgUeB7",)"
    R"("scope":"com.velmor.accounting openid profile email phone address",)"
    R"("x_refresh_token_expires_in":8726400,"id_token_present":false,)"
    R"("realm_id":"4620816365037572030","issued_at":1726738123,"user_id":null})";

class MixedDocumentWriter {
 public:
  explicit MixedDocumentWriter(std::uint32_t seed) : random_(seed) {}

  // An array of customer-like records, nested a few levels, until the text
  // holds at least `size` bytes.
  std::string write(std::size_t size) {
    std::string out = "[";
    for (int id = 0; out.size() < size; ++id) {
      if (id > 0) out += ",\n";
      record(out, id);
    }
    out += "]";
    return out;
  }

 private:
  int below(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(random_); }

  void word(std::string& out) {
    static const char* const kWords[] = {"alpha",   "Bravo", "charlie", "delta", "Echo",
                                         "foxtrot", "golf",  "hotel",   "india", "Juliett"};
    out += kWords[below(10)];
  }

  void text(std::string& out, int words, bool escapes) {
    out += '"';
    for (int i = 0; i < words; ++i) {
      if (i > 0) out += ' ';
      word(out);
      if (escapes && below(4) == 0) {
        static const char* const kEscapes[] = {"\\n", "\\\"", "\\u00e9",
                                               "\\t", "\\/",  "\\uD83D\\uDE00"};
        out += kEscapes[below(6)];
      }
    }
    out += '"';
  }

  void number(std::string& out) {
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%.17g",
                  std::uniform_real_distribution<double>(-1e6, 1e6)(random_));
    out += buffer;
  }

  void record(std::string& out, int id) {
    out += "{\"id\":" + std::to_string(id * 7919);
    out += ",\"name\":";
    text(out, 2, false);
    out += ",\"active\":";
    out += below(2) ? "true" : "false";
    out += ",\"balance\":";
    number(out);
    out += ",\"created\":" + std::to_string(1600000000 + below(100000000));
    out += ",\"manager\":null,\"tags\":[";
    for (int i = 0, n = below(5); i < n; ++i) {
      if (i > 0) out += ',';
      text(out, 1, false);
    }
    out += "],\"address\":{\"street\":";
    text(out, 3, false);
    out += ",\"city\":";
    text(out, 1, false);
    out += ",\"zip\":\"" + std::to_string(10000 + below(89999)) + "\",\"geo\":[";
    number(out);
    out += ',';
    number(out);
    out += "]},\"notes\":";
    text(out, 4 + below(12), true);
    out += ",\"history\":[";
    for (int i = 0, n = 1 + below(6); i < n; ++i) {
      if (i > 0) out += ',';
      out += "{\"at\":" + std::to_string(1600000000 + below(100000000)) + ",\"amount\":";
      number(out);
      out += ",\"ok\":";
      out += below(5) ? "true" : "false";
      out += '}';
    }
    out += "]}";
  }

  std::mt19937 random_;
};

const std::string& mixedDocument() {
  static const std::string document = MixedDocumentWriter(42).write(1 << 20);
  return document;
}

void readWithVelmor(benchmark::State& state, const std::string& input) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(input.data());
  for (auto _ : state) {
    velmor::xSBJsonParser parser;
    auto value = parser.objectWithData(bytes, input.size());
    if (!value) state.SkipWithError("our reader refused the input");
    benchmark::DoNotOptimize(value);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * input.size()));
}

void readWithRapidJson(benchmark::State& state, const std::string& input) {
  for (auto _ : state) {
    rapidjson::Document document;
    document.Parse(input.data(), input.size());
    if (document.HasParseError()) state.SkipWithError("RapidJSON refused the input");
    benchmark::DoNotOptimize(document);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * input.size()));
}

void readWithNlohmann(benchmark::State& state, const std::string& input) {
  for (auto _ : state) {
    auto document = nlohmann::json::parse(input.begin(), input.end());
    benchmark::DoNotOptimize(document);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * input.size()));
}

#ifdef VELMOR_BENCH_WITH_SIMDJSON
// simdjson as it is meant to be used: one parser kept across documents (it
// reuses its buffers) and input already padded, which the application
// arranges once. Its DOM is a flat tape, not a tree of allocated values.
void readWithSimdjson(benchmark::State& state, const std::string& input) {
  const simdjson::padded_string padded(input);
  simdjson::dom::parser parser;
  for (auto _ : state) {
    simdjson::dom::element document;
    if (parser.parse(padded).get(document) != simdjson::SUCCESS) {
      state.SkipWithError("simdjson refused the input");
    }
    benchmark::DoNotOptimize(document);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * input.size()));
}
#endif

struct Input {
  const char* name;
  const std::string& text;
};

}  // namespace

int main(int argc, char** argv) {
  const Input inputs[] = {{"token-response", kTokenResponse}, {"mixed-1MB", mixedDocument()}};
  for (const Input& input : inputs) {
    const std::string& text = input.text;
    std::string name = input.name;
    benchmark::RegisterBenchmark((name + "/velmor").c_str(), readWithVelmor, text)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark((name + "/rapidjson").c_str(), readWithRapidJson, text)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark((name + "/nlohmann").c_str(), readWithNlohmann, text)
        ->Unit(benchmark::kMicrosecond);
#ifdef VELMOR_BENCH_WITH_SIMDJSON
    benchmark::RegisterBenchmark((name + "/simdjson").c_str(), readWithSimdjson, text)
        ->Unit(benchmark::kMicrosecond);
#endif
  }

  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  velmor::TimeKeepingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  for (const Input& input : inputs) {
    std::string name = input.name;
    auto ours = reporter.time(name + "/velmor");
    auto rapid = reporter.time(name + "/rapidjson");
    auto nlohmann = reporter.time(name + "/nlohmann");
    if (!ours || !rapid || !nlohmann) continue;
    // CPU time is the steadier measure when other processes share the
    // machine; on an idle machine the two agree.
    std::printf(
        "ratio %s (%zu bytes): ours/RapidJSON %.2f, ours/nlohmann %.2f (real time); "
        "%.2f, %.2f (CPU time)\n",
        input.name, input.text.size(), ours->real / rapid->real, ours->real / nlohmann->real,
        ours->cpu / rapid->cpu, ours->cpu / nlohmann->cpu);
    if (auto simd = reporter.time(name + "/simdjson")) {
      std::printf("ratio %s (%zu bytes): ours/simdjson %.2f (real time); %.2f (CPU time)\n",
                  input.name, input.text.size(), ours->real / simd->real, ours->cpu / simd->cpu);
    }
  }
  return 0;
}
