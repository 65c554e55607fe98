// Files: the compressed format against raw zlib on the same blocks, random
// reads in place against one block decompression, line reading against
// getline, checksums against zlib's crc32, and the peak memory of reading a large
// compressed file in place.
// Text-like and random data of 8 MiB each; files live in a temporary
// directory removed at the end. Ratios are printed after the runs.
#include <benchmark/benchmark.h>
#include <qorc/qorc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kDataSize = 8u << 20;
constexpr int kBlock = C_FILE::COMPRESS_BLOCK_SIZE;
constexpr int kChunk = 64 * 1024;

std::string g_dir;
std::string g_data[2];  // text-like, random
const char* const kKindNames[2] = {"text", "random"};

std::string PathOf(const std::string& name) { return g_dir + "/" + name; }
C_STRING LibraryPath(const std::string& path) { return C_STRING(path.c_str()); }

std::string TextLike(std::size_t size) {
  static const char* const kWords[] = {"alpha", "beam", "column", "load",   "node",    "3.1415", "support", "x",
                                       "force", "=",    "12",     "moment", "segment", "-0.25",  "plate",   "steel"};
  std::mt19937 random(7);
  std::string out;
  while (out.size() < size) {
    out += kWords[random() % 16];
    out += random() % 9 == 0 ? '\n' : ' ';
  }
  out.resize(size);
  return out;
}

std::string Random(std::size_t size) {
  std::mt19937_64 random(11);
  std::string out(size, '\0');
  for (std::size_t i = 0; i + 8 <= size; i += 8) {
    const unsigned long long v = random();
    std::memcpy(&out[i], &v, 8);
  }
  return out;
}

void WriteCompressedFile(const std::string& path, const std::string& data) {
  C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::COMPRESSED);
  for (std::size_t at = 0; at < data.size(); at += kChunk) {
    const std::size_t n = std::min<std::size_t>(kChunk, data.size() - at);
    file.Write(static_cast<int>(n), data.data() + at);
  }
}

// The compressed blocks of the data, as zlib's compress makes them.
std::vector<std::string> CompressedBlocks(const std::string& data) {
  std::vector<std::string> blocks;
  for (std::size_t at = 0; at < data.size(); at += kBlock) {
    const std::size_t n = std::min<std::size_t>(kBlock, data.size() - at);
    uLongf packed = compressBound(n);
    std::string out(packed, '\0');
    compress(reinterpret_cast<Bytef*>(out.data()), &packed, reinterpret_cast<const Bytef*>(data.data() + at), n);
    out.resize(packed);
    blocks.push_back(out);
  }
  return blocks;
}
std::vector<std::string> g_blocks[2];

// Writing -----------------------------------------------------------------------

void BM_WriteCompressedViaTemporary(benchmark::State& state) {
  const std::string& data = g_data[state.range(0)];
  const std::string path = PathOf("write.qz");
  for (auto _ : state) WriteCompressedFile(path, data);
  state.SetBytesProcessed(static_cast<long long>(state.iterations()) * static_cast<long long>(data.size()));
  state.SetLabel(kKindNames[state.range(0)]);
}

// Raw zlib: compress each block and write the records to a file.
void BM_RawZlibCompressBlocks(benchmark::State& state) {
  const std::string& data = g_data[state.range(0)];
  const std::string path = PathOf("raw.qz");
  std::vector<unsigned char> scratch(C_FILE::COMPRESS_SCRATCH_SIZE);
  for (auto _ : state) {
    std::FILE* out = std::fopen(path.c_str(), "wb");
    std::fwrite(C_FILE::COMPRESS_MAGIC, 1, 16, out);
    for (std::size_t at = 0; at < data.size(); at += kBlock) {
      const std::size_t n = std::min<std::size_t>(kBlock, data.size() - at);
      uLongf packed = scratch.size();
      compress(scratch.data(), &packed, reinterpret_cast<const Bytef*>(data.data() + at), n);
      const unsigned header[2] = {static_cast<unsigned>(n), static_cast<unsigned>(packed)};
      std::fwrite(header, 4, 2, out);
      std::fwrite(scratch.data(), 1, packed, out);
    }
    std::fclose(out);
  }
  state.SetBytesProcessed(static_cast<long long>(state.iterations()) * static_cast<long long>(data.size()));
  state.SetLabel(kKindNames[state.range(0)]);
}

// Reading ---------------------------------------------------------------------------

void ReadAll(benchmark::State& state, int mode) {
  const std::string& data = g_data[state.range(0)];
  const std::string path = PathOf(std::string("read-") + kKindNames[state.range(0)] + ".qz");
  std::vector<char> buffer(kChunk);
  for (auto _ : state) {
    C_FILE file(LibraryPath(path), mode, C_FILE::COMPRESSED);
    long long total = 0;
    for (;;) {
      int got = 0;
      file.Read(kChunk, buffer.data(), &got);
      total += got;
      if (C_ERROR::Is()) break;
    }
    C_ERROR::ClearPending();
    if (total != static_cast<long long>(data.size())) state.SkipWithError("short read");
  }
  state.SetBytesProcessed(static_cast<long long>(state.iterations()) * static_cast<long long>(data.size()));
  state.SetLabel(kKindNames[state.range(0)]);
}

void BM_ReadCompressedViaTemporary(benchmark::State& state) { ReadAll(state, C_FILE::READ); }
void BM_ReadCompressedDirect(benchmark::State& state) { ReadAll(state, C_FILE::READ | C_FILE::DIRECT); }

// Raw zlib: read the records of the same file and uncompress each block.
void BM_RawZlibUncompressFile(benchmark::State& state) {
  const std::string& data = g_data[state.range(0)];
  const std::string path = PathOf(std::string("read-") + kKindNames[state.range(0)] + ".qz");
  std::vector<unsigned char> scratch(C_FILE::COMPRESS_SCRATCH_SIZE);
  std::vector<unsigned char> block(kBlock);
  for (auto _ : state) {
    std::FILE* in = std::fopen(path.c_str(), "rb");
    char magic[16];
    if (std::fread(magic, 1, 16, in) != 16) state.SkipWithError("no magic");
    unsigned header[2];
    long long total = 0;
    while (std::fread(header, 4, 2, in) == 2) {
      if (std::fread(scratch.data(), 1, header[1], in) != header[1]) break;
      uLongf length = block.size();
      uncompress(block.data(), &length, scratch.data(), header[1]);
      total += static_cast<long long>(length);
    }
    std::fclose(in);
    benchmark::DoNotOptimize(total);
  }
  state.SetBytesProcessed(static_cast<long long>(state.iterations()) * static_cast<long long>(data.size()));
  state.SetLabel(kKindNames[state.range(0)]);
}

// Raw zlib: uncompress the blocks held in memory (no file at all).
void BM_RawZlibUncompressMemory(benchmark::State& state) {
  const std::vector<std::string>& blocks = g_blocks[state.range(0)];
  std::vector<unsigned char> block(kBlock);
  for (auto _ : state) {
    for (const std::string& packed : blocks) {
      uLongf length = block.size();
      uncompress(block.data(), &length, reinterpret_cast<const Bytef*>(packed.data()), packed.size());
    }
    benchmark::DoNotOptimize(block.data());
  }
  state.SetBytesProcessed(static_cast<long long>(state.iterations()) * static_cast<long long>(kDataSize));
  state.SetLabel(kKindNames[state.range(0)]);
}

// Random reads in place ---------------------------------------------------------------

void BM_DirectRandomRead4K(benchmark::State& state) {
  const std::string path = PathOf(std::string("read-") + kKindNames[state.range(0)] + ".qz");
  C_FILE file(LibraryPath(path), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
  file.SetPosit(0);  // builds the block table once
  std::mt19937 random(3);
  std::vector<char> buffer(4096);
  for (auto _ : state) {
    // A position in another block than the current one, as a random read
    // in a large file almost always is.
    const long long block = static_cast<long long>(random() % (kDataSize / kBlock));
    const long long position = block * kBlock + static_cast<long long>(random() % (kBlock - 4096));
    file.SetPosit(position);
    file.Read(4096, buffer.data());
    if (C_ERROR::Is()) state.SkipWithError("read failed");
  }
  state.SetLabel(kKindNames[state.range(0)]);
}

void BM_RawZlibOneBlockMemory(benchmark::State& state) {
  const std::vector<std::string>& blocks = g_blocks[state.range(0)];
  std::mt19937 random(3);
  std::vector<unsigned char> block(kBlock);
  for (auto _ : state) {
    const std::string& packed = blocks[random() % blocks.size()];
    uLongf length = block.size();
    uncompress(block.data(), &length, reinterpret_cast<const Bytef*>(packed.data()), packed.size());
    benchmark::DoNotOptimize(block.data());
  }
  state.SetLabel(kKindNames[state.range(0)]);
}

// One record read from the file with pread, then uncompressed.
void BM_RawZlibOneBlockFile(benchmark::State& state) {
  const std::vector<std::string>& blocks = g_blocks[state.range(0)];
  const std::string path = PathOf(std::string("read-") + kKindNames[state.range(0)] + ".qz");
  std::vector<long long> offsets;
  long long at = 16;
  for (const std::string& packed : blocks) {
    offsets.push_back(at);
    at += 8 + static_cast<long long>(packed.size());
  }
  std::FILE* in = std::fopen(path.c_str(), "rb");
  const int fd = fileno(in);
  std::mt19937 random(3);
  std::vector<unsigned char> scratch(C_FILE::COMPRESS_SCRATCH_SIZE);
  std::vector<unsigned char> block(kBlock);
  for (auto _ : state) {
    const std::size_t i = random() % blocks.size();
    unsigned header[2];
    if (pread(fd, header, 8, offsets[i]) != 8 ||
        pread(fd, scratch.data(), header[1], offsets[i] + 8) != static_cast<ssize_t>(header[1])) {
      state.SkipWithError("pread");
    }
    uLongf length = block.size();
    uncompress(block.data(), &length, scratch.data(), header[1]);
    benchmark::DoNotOptimize(block.data());
  }
  std::fclose(in);
  state.SetLabel(kKindNames[state.range(0)]);
}

// Lines ----------------------------------------------------------------------------------

void ReadLinesOf(benchmark::State& state, const std::string& path, C_FILE::TYPE type) {
  long long lines = 0;
  for (auto _ : state) {
    C_FILE file(LibraryPath(path), C_FILE::READ, type);
    C_STRING line;
    for (;;) {
      file.Read(&line);
      if (C_ERROR::Is()) break;
      ++lines;
    }
    C_ERROR::ClearPending();
  }
  state.SetBytesProcessed(static_cast<long long>(state.iterations()) *
                          static_cast<long long>(std::filesystem::file_size(path)));
  benchmark::DoNotOptimize(lines);
}

void GetlineOf(benchmark::State& state, const std::string& path) {
  char* buffer = nullptr;
  std::size_t capacity = 0;
  long long lines = 0;
  for (auto _ : state) {
    std::FILE* in = std::fopen(path.c_str(), "rb");
    while (getline(&buffer, &capacity, in) >= 0) ++lines;
    std::fclose(in);
  }
  std::free(buffer);
  state.SetBytesProcessed(static_cast<long long>(state.iterations()) *
                          static_cast<long long>(std::filesystem::file_size(path)));
  benchmark::DoNotOptimize(lines);
}

void BM_ReadLinesCodedText(benchmark::State& state) { ReadLinesOf(state, PathOf("lines.txt"), C_FILE::TEXT); }
void BM_ReadLinesUnicode(benchmark::State& state) { ReadLinesOf(state, PathOf("lines-u.txt"), C_FILE::UNICODE); }
void BM_GetlineText(benchmark::State& state) { GetlineOf(state, PathOf("lines.txt")); }
void BM_GetlineUnicode(benchmark::State& state) { GetlineOf(state, PathOf("lines-u.txt")); }

// Checksums of a large buffer -------------------------------------------------------------

constexpr std::size_t kChecksumSize = 16u << 20;

void BM_CchecksumCRC16M(benchmark::State& state) {
  const std::string data = g_data[1] + g_data[1];
  for (auto _ : state) benchmark::DoNotOptimize(CchecksumCRC(static_cast<int>(kChecksumSize), data.data()));
  state.SetBytesProcessed(static_cast<long long>(state.iterations()) * static_cast<long long>(kChecksumSize));
}

void BM_ZlibCrc32_16M(benchmark::State& state) {
  const std::string data = g_data[1] + g_data[1];
  for (auto _ : state) {
    benchmark::DoNotOptimize(crc32(0, reinterpret_cast<const Bytef*>(data.data()), static_cast<uInt>(kChecksumSize)));
  }
  state.SetBytesProcessed(static_cast<long long>(state.iterations()) * static_cast<long long>(kChecksumSize));
}

BENCHMARK(BM_WriteCompressedViaTemporary)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RawZlibCompressBlocks)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadCompressedViaTemporary)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadCompressedDirect)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RawZlibUncompressFile)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RawZlibUncompressMemory)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DirectRandomRead4K)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RawZlibOneBlockMemory)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RawZlibOneBlockFile)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ReadLinesCodedText)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GetlineText)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadLinesUnicode)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GetlineUnicode)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CchecksumCRC16M)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ZlibCrc32_16M)->Unit(benchmark::kMicrosecond);

// Collects the times to print the ratios after the usual report.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      seconds_[run.benchmark_name()] = run.GetAdjustedRealTime();
      cpuSeconds_[run.benchmark_name()] = run.GetAdjustedCPUTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }
  // How fast `library` runs relative to `baseline` (above 1: faster), by
  // wall-clock time and by the process's CPU time; on a machine shared with
  // other work the second is the steadier.
  void PrintRatio(const char* what, const std::string& library, const std::string& baseline) {
    const auto a = seconds_.find(library), b = seconds_.find(baseline);
    const auto c = cpuSeconds_.find(library), d = cpuSeconds_.find(baseline);
    if (a == seconds_.end() || b == seconds_.end() || a->second <= 0 || c->second <= 0) return;
    std::printf("%-58s %6.2fx  (cpu %6.2fx)\n", what, b->second / a->second, d->second / c->second);
  }

 private:
  std::map<std::string, double> seconds_;
  std::map<std::string, double> cpuSeconds_;
};

// Reads the whole file in place, then a position in its middle, and prints
// the peak resident memory of this (fresh) process in KiB.
int ReadDirectAndReportPeak(const char* path) {
  Copen();
  {
    C_FILE file(LibraryPath(path), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
    std::vector<char> buffer(kChunk);
    long long total = 0;
    for (;;) {
      int got = 0;
      file.Read(kChunk, buffer.data(), &got);
      total += got;
      if (C_ERROR::Is()) break;
    }
    C_ERROR::ClearPending();
    file.SetPosit(total / 2);
    file.Read(kChunk, buffer.data());
  }
  struct rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  std::printf("%ld\n", usage.ru_maxrss);
  Cclose();
  return 0;
}

// The peak memory of a fresh process (this program started again) that
// reads the file in place.
long PeakMemoryOfDirectRead(const std::string& path) {
  const std::string command = std::filesystem::read_symlink("/proc/self/exe").string() + " --read-direct-peak " + path;
  std::FILE* child = popen(command.c_str(), "r");
  long kib = -1;
  if (child == nullptr) return kib;
  if (std::fscanf(child, "%ld", &kib) != 1) kib = -1;
  pclose(child);
  return kib;
}

void ReportPeakMemory() {
  // 8 MiB and 288 MiB of random data: the files are as large as the data.
  const std::string small = PathOf("peak-small.qz"), large = PathOf("peak-large.qz");
  WriteCompressedFile(small, g_data[1]);
  {
    C_FILE file(LibraryPath(large), C_FILE::WRITE | C_FILE::DIRECT, C_FILE::COMPRESSED);
    for (int i = 0; i < 36; ++i) {
      for (std::size_t at = 0; at < g_data[1].size(); at += 4096) file.Write(4096, g_data[1].data() + at);
    }
  }
  const long smallKib = PeakMemoryOfDirectRead(small);
  const long largeKib = PeakMemoryOfDirectRead(large);
  std::printf("Peak resident memory of a process reading a file in place (DIRECT):\n");
  std::printf("  %8.1f MiB file: %ld KiB\n", std::filesystem::file_size(small) / 1048576.0, smallKib);
  std::printf("  %8.1f MiB file: %ld KiB (difference %ld KiB)\n\n", std::filesystem::file_size(large) / 1048576.0,
              largeKib, largeKib - smallKib);
  std::filesystem::remove(large);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--read-direct-peak") == 0) return ReadDirectAndReportPeak(argv[2]);
  Copen();
  std::string pattern = (std::filesystem::temp_directory_path() / "qorc-bench-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) return 1;
  g_dir = pattern;
  // The temporary files of the compressed format go there too: names taken
  // by other programs in the shared temporary directory cannot get in the way.
  setenv("TMPDIR", g_dir.c_str(), 1);
  g_data[0] = TextLike(kDataSize);
  g_data[1] = Random(kDataSize);
  for (int kind = 0; kind < 2; ++kind) {
    WriteCompressedFile(PathOf(std::string("read-") + kKindNames[kind] + ".qz"), g_data[kind]);
    g_blocks[kind] = CompressedBlocks(g_data[kind]);
  }
  {
    C_FILE text(LibraryPath(PathOf("lines.txt")), C_FILE::WRITE, C_FILE::TEXT);
    text.Write(static_cast<int>(kDataSize), g_data[0].data());
    C_FILE unicode(LibraryPath(PathOf("lines-u.txt")), C_FILE::WRITE, C_FILE::UNICODE);
    const C_STRING line(u"segment 12 force = -0.25 moment 3.1415 plate \u00E9\u20AC");
    for (std::size_t bytes = 0; bytes < kDataSize; bytes += 2 * (line.GetNumber() + 2)) {
      unicode.Write(line);
      unicode.WriteEOL();
    }
  }
  ReportPeakMemory();

  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nRatios (library speed / baseline speed):\n");
  for (int kind = 0; kind < 2; ++kind) {
    const std::string arg = std::string("/") + std::to_string(kind);
    const std::string name = kKindNames[kind];
    reporter.PrintRatio((name + ": write via temporary / zlib compress+write").c_str(),
                        "BM_WriteCompressedViaTemporary" + arg, "BM_RawZlibCompressBlocks" + arg);
    reporter.PrintRatio((name + ": read via temporary / zlib read+uncompress").c_str(),
                        "BM_ReadCompressedViaTemporary" + arg, "BM_RawZlibUncompressFile" + arg);
    reporter.PrintRatio((name + ": read direct / zlib read+uncompress").c_str(), "BM_ReadCompressedDirect" + arg,
                        "BM_RawZlibUncompressFile" + arg);
    reporter.PrintRatio((name + ": read direct / zlib uncompress in memory").c_str(), "BM_ReadCompressedDirect" + arg,
                        "BM_RawZlibUncompressMemory" + arg);
    reporter.PrintRatio((name + ": random 4K direct / one block uncompress").c_str(), "BM_DirectRandomRead4K" + arg,
                        "BM_RawZlibOneBlockMemory" + arg);
    reporter.PrintRatio((name + ": random 4K direct / one block pread+uncompress").c_str(),
                        "BM_DirectRandomRead4K" + arg, "BM_RawZlibOneBlockFile" + arg);
  }
  reporter.PrintRatio("lines: coded TEXT / getline", "BM_ReadLinesCodedText", "BM_GetlineText");
  reporter.PrintRatio("lines: UNICODE / getline", "BM_ReadLinesUnicode", "BM_GetlineUnicode");
  reporter.PrintRatio("CchecksumCRC / zlib crc32 (16 MiB)", "BM_CchecksumCRC16M", "BM_ZlibCrc32_16M");
  benchmark::Shutdown();
  std::filesystem::remove_all(g_dir);
  Cclose();
  return 0;
}
