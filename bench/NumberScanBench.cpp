// ScanFloat and ScanInt against sscanf on the words a scene exporter writes: coordinates with four
// decimals ("-12.3456", "0.0000"), vertex and face indices ("160"). Items per second give the
// cost of one number.
#include "Parser/NumberScan.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr size_t kWords = 4096;

std::vector<std::string> MakeFloatWords() {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> coordinate(-500.0, 500.0);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  std::vector<std::string> words;
  for (size_t i = 0; i < kWords; ++i) {
    char word[64];
    switch (i % 4) {
      case 0: std::snprintf(word, sizeof word, "%.4f", coordinate(random)); break;
      case 1: std::snprintf(word, sizeof word, "%.4f", unit(random)); break;  // normals, UVs
      case 2: std::snprintf(word, sizeof word, "0.0000"); break;
      default: std::snprintf(word, sizeof word, "%.4f", static_cast<double>(random() % 256)); break;
    }
    words.emplace_back(word);
  }
  return words;
}

std::vector<std::string> MakeIntWords() {
  std::mt19937 random(11);
  std::vector<std::string> words;
  for (size_t i = 0; i < kWords; ++i) {
    const uint32_t limit = (i % 3 == 0) ? 10 : (i % 3 == 1) ? 1000 : 100000;
    words.push_back(std::to_string(random() % limit));
  }
  return words;
}

const std::vector<std::string> kFloatWords = MakeFloatWords();
const std::vector<std::string> kIntWords = MakeIntWords();

void BM_ScanFloat(benchmark::State& state) {
  for (auto _ : state) {
    for (const std::string& word : kFloatWords) {
      float value = 0.0f;
      benchmark::DoNotOptimize(ScanFloat(word, &value));
      benchmark::DoNotOptimize(value);
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kFloatWords.size()));
}
BENCHMARK(BM_ScanFloat);

void BM_SscanfFloat(benchmark::State& state) {
  for (auto _ : state) {
    for (const std::string& word : kFloatWords) {
      float value = 0.0f;
      benchmark::DoNotOptimize(std::sscanf(word.c_str(), "%f", &value));
      benchmark::DoNotOptimize(value);
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kFloatWords.size()));
}
BENCHMARK(BM_SscanfFloat);

void BM_ScanInt(benchmark::State& state) {
  for (auto _ : state) {
    for (const std::string& word : kIntWords) {
      int32_t value = 0;
      benchmark::DoNotOptimize(ScanInt(word, &value));
      benchmark::DoNotOptimize(value);
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kIntWords.size()));
}
BENCHMARK(BM_ScanInt);

void BM_SscanfInt(benchmark::State& state) {
  for (auto _ : state) {
    for (const std::string& word : kIntWords) {
      int value = 0;
      benchmark::DoNotOptimize(std::sscanf(word.c_str(), "%d", &value));
      benchmark::DoNotOptimize(value);
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kIntWords.size()));
}
BENCHMARK(BM_SscanfInt);

}  // namespace

BENCHMARK_MAIN();
