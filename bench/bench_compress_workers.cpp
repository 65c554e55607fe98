// Writing compressed files with worker threads (CfileCompressThreads): 32 MiB
// of mixed data (text-like, base64-like and random pieces) written in whole
// blocks in place, as `qor pack` does, and through a temporary file, with 1
// worker (the writing thread alone), 2 and one per processor. Wall time,
// since the work is spread over threads; the throughput is of uncompressed
// bytes. The files are checked to be the same for every worker count.
#include <benchmark/benchmark.h>
#include <qorc/qorc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <thread>

namespace {

constexpr std::size_t kDataSize = 32u << 20;
constexpr int kBlock = C_FILE::COMPRESS_BLOCK_SIZE;

std::string g_dir;
std::string g_data;
std::map<int, std::string> g_firstFile;  // per route: the file of the first run, to compare with

std::string Mixed(std::size_t size) {
  static const char* const kWords[] = {"sensor", "reading", "value", "status", "ok", "warn", "0.125", "42"};
  static const char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::mt19937 random(2026);
  std::string out;
  out.reserve(size);
  while (out.size() < size) {
    const unsigned kind = random() % 20;
    std::string piece;
    if (kind < 12) {
      while (piece.size() < 65536) {
        piece += std::to_string(random() % 100000000) + ' ' + kWords[random() % 8] + ' ' + kWords[random() % 8] + '\n';
      }
    } else if (kind < 17) {
      for (int i = 0; i < 65536; ++i) piece += kBase64[random() % 64];
    } else {
      for (int i = 0; i < 65536; ++i) piece += static_cast<char>(random());
    }
    piece.resize(65536);
    out += piece;
  }
  out.resize(size);
  return out;
}

std::string ReadFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Arguments: workers, route (0 in place in whole blocks, 1 through a temporary file).
void BM_WriteCompressedWithWorkers(benchmark::State& state) {
  const int workers = static_cast<int>(state.range(0));
  const bool inPlace = state.range(1) == 0;
  const std::string path = g_dir + "/out" + std::to_string(state.range(1));
  CfileCompressThreads = workers;
  for (auto _ : state) {
    C_FILE file(C_STRING(path.c_str()), inPlace ? C_FILE::WRITE | C_FILE::DIRECT : int{C_FILE::WRITE},
                C_FILE::COMPRESSED);
    if (inPlace) {
      for (std::size_t at = 0; at < g_data.size(); at += kBlock) file.Write(kBlock, g_data.data() + at);
    } else {
      file.Write(static_cast<int>(g_data.size()), g_data.data());
    }
  }
  CfileCompressThreads = 1;
  if (C_ERROR::Is()) {
    state.SkipWithError("the file could not be written");
    return;
  }
  const std::string bytes = ReadFileBytes(path);
  auto first = g_firstFile.emplace(static_cast<int>(state.range(1)), bytes).first;
  if (first->second != bytes) state.SkipWithError("the file differs from the one written with other workers");
  state.SetBytesProcessed(static_cast<long long>(state.iterations()) * static_cast<long long>(g_data.size()));
  state.counters["ratio %"] = 100.0 * static_cast<double>(bytes.size()) / static_cast<double>(g_data.size());
}

void WorkerCounts(benchmark::internal::Benchmark* benchmark) {
  const int processors = static_cast<int>(std::thread::hardware_concurrency());
  for (int route : {0, 1}) {
    for (int workers : {1, 2}) benchmark->Args({workers, route});
    if (processors > 2) benchmark->Args({processors, route});
  }
}

BENCHMARK(BM_WriteCompressedWithWorkers)
    ->Apply(WorkerCounts)
    ->ArgNames({"workers", "temp"})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);

}  // namespace

int main(int argc, char** argv) {
  Copen();
  std::string pattern = (std::filesystem::temp_directory_path() / "qorc-bench-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) return 1;
  g_dir = pattern;
  g_data = Mixed(kDataSize);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::filesystem::remove_all(g_dir);
  Cclose();
  return 0;
}
