// Directory scans against the plain POSIX ways of doing the same: ScanDir
// of a directory of 10,000 files against a readdir loop with fnmatch, and
// ScanDirRecursive of a tree of 20,000 files against nftw. Both sides
// collect the names they find. The trees live in a temporary directory
// removed at the end; the time ratios are printed after the runs.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fnmatch.h>
#include <ftw.h>
#include <qorc/qorc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr int kFlatFiles = 10000;
constexpr int kTreeTops = 20, kTreeSubs = 10, kTreeFiles = 100;  // 20,000 files

std::string g_dir;
std::string FlatDir() { return g_dir + "/flat"; }
std::string TreeDir() { return g_dir + "/tree"; }

void Touch(const std::string& path) {
  if (std::FILE* file = std::fopen(path.c_str(), "w")) std::fclose(file);
}

void BuildTrees() {
  std::filesystem::create_directories(FlatDir());
  char name[64];
  for (int i = 0; i < kFlatFiles; ++i) {
    std::snprintf(name, sizeof name, "/file%05d.dat", i);
    Touch(FlatDir() + name);
  }
  // Names the pattern leaves out.
  for (int i = 0; i < 100; ++i) Touch(FlatDir() + "/other" + std::to_string(i) + ".txt");
  for (int top = 0; top < kTreeTops; ++top) {
    for (int sub = 0; sub < kTreeSubs; ++sub) {
      const std::string dir = TreeDir() + "/t" + std::to_string(top) + "/s" + std::to_string(sub);
      std::filesystem::create_directories(dir);
      for (int i = 0; i < kTreeFiles; ++i) Touch(dir + "/f" + std::to_string(i) + ".dat");
    }
  }
}

void BM_ScanDir(benchmark::State& state) {
  const C_STRING dir(FlatDir().c_str()), pattern(u"*.dat");
  for (auto _ : state) {
    int count = 0;
    C_STRING* names = nullptr;
    C_FILE::ScanDir(dir, pattern, &count, &names);
    if (count != kFlatFiles) state.SkipWithError("wrong count");
    delete[] names;
  }
}
BENCHMARK(BM_ScanDir)->Unit(benchmark::kMillisecond);

void BM_ReaddirFnmatch(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<std::string> names;
    DIR* dir = opendir(FlatDir().c_str());
    while (const struct dirent* entry = readdir(dir)) {
      if (entry->d_name[0] == '.' || entry->d_type == DT_DIR) continue;
      if (fnmatch("*.dat", entry->d_name, 0) == 0) names.emplace_back(entry->d_name);
    }
    closedir(dir);
    if (names.size() != kFlatFiles) state.SkipWithError("wrong count");
    benchmark::DoNotOptimize(names.data());
  }
}
BENCHMARK(BM_ReaddirFnmatch)->Unit(benchmark::kMillisecond);

void BM_ScanDirRecursive(benchmark::State& state) {
  const C_STRING dir(TreeDir().c_str()), pattern(u"*");
  for (auto _ : state) {
    int count = 0;
    C_STRING* paths = nullptr;
    C_FILE::ScanDirRecursive(dir, pattern, &count, &paths);
    if (count != kTreeTops * kTreeSubs * kTreeFiles) state.SkipWithError("wrong count");
    delete[] paths;
  }
}
BENCHMARK(BM_ScanDirRecursive)->Unit(benchmark::kMillisecond);

std::vector<std::string>* g_found = nullptr;
int CollectFile(const char* path, const struct stat*, int type, struct FTW*) {
  if (type == FTW_F) g_found->emplace_back(path);
  return 0;
}

void BM_Nftw(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<std::string> found;
    g_found = &found;
    nftw(TreeDir().c_str(), CollectFile, 64, FTW_PHYS);
    if (found.size() != kTreeTops * kTreeSubs * kTreeFiles) state.SkipWithError("wrong count");
  }
}
BENCHMARK(BM_Nftw)->Unit(benchmark::kMillisecond);

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) seconds_[run.benchmark_name()] = run.GetAdjustedRealTime();
    ConsoleReporter::ReportRuns(runs);
  }
  // The library's time over the baseline's (below 1: faster).
  // With repetitions the medians are compared.
  void PrintRatio(const char* what, const std::string& library, const std::string& baseline) {
    auto a = seconds_.find(library + "_median"), b = seconds_.find(baseline + "_median");
    if (a == seconds_.end() || b == seconds_.end()) a = seconds_.find(library), b = seconds_.find(baseline);
    if (a == seconds_.end() || b == seconds_.end() || b->second <= 0) return;
    std::printf("%-52s %6.2fx the time\n", what, a->second / b->second);
  }

 private:
  std::map<std::string, double> seconds_;
};

}  // namespace

int main(int argc, char** argv) {
  Copen();
  std::string pattern = (std::filesystem::temp_directory_path() / "qorc-bench-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) return 1;
  g_dir = pattern;
  BuildTrees();
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nRatios (library time / baseline time; target at most 1.5):\n");
  reporter.PrintRatio("ScanDir 10,000 files / readdir + fnmatch", "BM_ScanDir", "BM_ReaddirFnmatch");
  reporter.PrintRatio("ScanDirRecursive 20,000 files / nftw", "BM_ScanDirRecursive", "BM_Nftw");
  benchmark::Shutdown();
  std::filesystem::remove_all(g_dir);
  Cclose();
  return 0;
}
