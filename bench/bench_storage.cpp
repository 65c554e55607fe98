// Compound documents: a 64 MiB "Contents" written (through the file object,
// committed when it is destroyed) and read back, against plain file writes
// and reads of the same bytes in the same 1 MiB pieces. Bytes per second are
// reported for each; the peak resident growth of reading the stream, measured
// in a child process, is printed after the runs.
#include <benchmark/benchmark.h>
#include <qorc/qorc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>

namespace {

constexpr long long kStreamSize = 64LL << 20;
constexpr int kPiece = 1 << 20;

std::string g_dir;
std::string g_piece;

std::string PathOf(const std::string& name) { return g_dir + "/" + name; }
C_STRING LibraryPath(const std::string& path) { return C_STRING(path.c_str()); }

void WriteDocument(const std::string& path) {
  IStorage* storage = IStorage::Open(LibraryPath(path), true);
  if (storage == nullptr) std::abort();
  {
    C_FILE file(storage, C_FILE::UPDATE);
    for (long long done = 0; done < kStreamSize; done += kPiece) file.Write(kPiece, g_piece.data());
  }
  storage->Release();
  if (C_ERROR::Is()) std::abort();
}

long long ReadDocument(const std::string& path, char* buffer) {
  IStorage* storage = IStorage::Open(LibraryPath(path), false);
  if (storage == nullptr) std::abort();
  long long total = 0;
  {
    C_FILE file(storage, C_FILE::READ);
    file.Rewind();
    for (int got = kPiece; got == kPiece; total += got) file.Read(kPiece, buffer, &got);
    C_ERROR::ClearPending();
  }
  storage->Release();
  return total;
}

void WritePlain(const std::string& path) {
  C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::BINARY);
  for (long long done = 0; done < kStreamSize; done += kPiece) file.Write(kPiece, g_piece.data());
}

long long ReadPlain(const std::string& path, char* buffer) {
  C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::BINARY);
  long long total = 0;
  for (int got = kPiece; got == kPiece; total += got) file.Read(kPiece, buffer, &got);
  C_ERROR::ClearPending();
  return total;
}

void BM_WriteContents(benchmark::State& state) {
  for (auto _ : state) WriteDocument(PathOf("write.ole"));
  state.SetBytesProcessed(state.iterations() * kStreamSize);
}
BENCHMARK(BM_WriteContents)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_WritePlainFile(benchmark::State& state) {
  for (auto _ : state) WritePlain(PathOf("write.bin"));
  state.SetBytesProcessed(state.iterations() * kStreamSize);
}
BENCHMARK(BM_WritePlainFile)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ReadContents(benchmark::State& state) {
  WriteDocument(PathOf("read.ole"));
  std::string buffer(kPiece, '\0');
  for (auto _ : state) benchmark::DoNotOptimize(ReadDocument(PathOf("read.ole"), buffer.data()));
  state.SetBytesProcessed(state.iterations() * kStreamSize);
}
BENCHMARK(BM_ReadContents)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ReadPlainFile(benchmark::State& state) {
  WritePlain(PathOf("read.bin"));
  std::string buffer(kPiece, '\0');
  for (auto _ : state) benchmark::DoNotOptimize(ReadPlain(PathOf("read.bin"), buffer.data()));
  state.SetBytesProcessed(state.iterations() * kStreamSize);
}
BENCHMARK(BM_ReadPlainFile)->Unit(benchmark::kMillisecond)->UseRealTime();

// Peak resident growth of a child that only reads, in KiB.
long PeakGrowthOfReading(long long (*read)(const std::string&, char*), const std::string& path) {
  int ends[2];
  if (pipe(ends) != 0) return -1;
  const pid_t pid = fork();
  if (pid == 0) {
    struct rusage before, after;
    getrusage(RUSAGE_SELF, &before);
    std::string buffer(kPiece, '\0');
    read(path, buffer.data());
    getrusage(RUSAGE_SELF, &after);
    const long grown = after.ru_maxrss - before.ru_maxrss;
    _exit(write(ends[1], &grown, sizeof grown) == sizeof grown ? 0 : 1);
  }
  close(ends[1]);
  long grown = -1;
  if (::read(ends[0], &grown, sizeof grown) != sizeof grown) grown = -1;
  close(ends[0]);
  waitpid(pid, nullptr, 0);
  return grown;
}

}  // namespace

int main(int argc, char** argv) {
  Copen();
  std::string pattern = (std::filesystem::temp_directory_path() / "qorc-bench-storage-XXXXXX").string();
  g_dir = mkdtemp(pattern.data());
  std::mt19937 random(5);
  g_piece.resize(kPiece);
  for (char& c : g_piece) c = static_cast<char>(random());

  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();

  WriteDocument(PathOf("peak.ole"));
  WritePlain(PathOf("peak.bin"));
  std::printf("peak resident growth reading 64 MiB: Contents %ld KiB, plain file %ld KiB\n",
              PeakGrowthOfReading(ReadDocument, PathOf("peak.ole")),
              PeakGrowthOfReading(ReadPlain, PathOf("peak.bin")));
  std::filesystem::remove_all(g_dir);
  Cclose();
  return 0;
}
