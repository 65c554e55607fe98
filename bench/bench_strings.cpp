// Speed of wildcard matching, search and replacement, each measured beside
// its usual standard counterpart on the same data: glibc's fnmatch for the
// wildcards, std::u16string for search and replacement.
#include <benchmark/benchmark.h>
#include <fnmatch.h>
#include <qorc/qorc.h>

#include <string>
#include <vector>

namespace {

// File names and patterns of the kind hosts match: mostly plain names and
// suffix patterns, some with a star in the middle and single-character marks.
struct WildcardCase {
  std::vector<std::string> names;
  std::vector<std::string> patterns;
  std::vector<C_STRING> wideNames;
  std::vector<C_STRING> widePatterns;
};

const WildcardCase& Wildcards() {
  static const WildcardCase data = [] {
    WildcardCase c;
    const char* stems[] = {
        "report", "Report_final",    "data-2024-01-17", "measurement_0042", "a",
        "readme", "thumbnail.cache", "settings.backup", "x1y2z3",           "very_long_file_name_for_a_drawing"};
    const char* suffixes[] = {".txt", ".dat", ".qcz", ".bak", ".txt.bak", "", ".log", ".csv"};
    for (const char* stem : stems) {
      for (const char* suffix : suffixes) c.names.push_back(std::string(stem) + suffix);
    }
    c.patterns = {"*.txt",  "*.dat",   "report*", "*_*.csv",           "data-\?\?\?\?-\?\?-\?\?.dat",
                  "*",      "?eadme*", "*.ba?",   "measurement_*.log", "very*drawing.qcz",
                  "*2024*", "x?y?z?"};
    for (const std::string& name : c.names) c.wideNames.emplace_back(name.c_str());
    for (const std::string& pattern : c.patterns) c.widePatterns.emplace_back(pattern.c_str());
    return c;
  }();
  return data;
}

void BM_MatchWildCard(benchmark::State& state) {
  const WildcardCase& c = Wildcards();
  int matches = 0;
  for (auto _ : state) {
    for (const C_STRING& pattern : c.widePatterns) {
      for (const C_STRING& name : c.wideNames) matches += name.MatchWildCard(pattern) ? 1 : 0;
    }
    benchmark::DoNotOptimize(matches);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long long>(c.names.size() * c.patterns.size()));
}
BENCHMARK(BM_MatchWildCard);

void BM_fnmatch(benchmark::State& state) {
  const WildcardCase& c = Wildcards();
  int matches = 0;
  for (auto _ : state) {
    for (const std::string& pattern : c.patterns) {
      for (const std::string& name : c.names) matches += fnmatch(pattern.c_str(), name.c_str(), FNM_NOESCAPE) == 0;
    }
    benchmark::DoNotOptimize(matches);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long long>(c.names.size() * c.patterns.size()));
}
BENCHMARK(BM_fnmatch);

// A text of about 60000 characters of words, the sought word and mark near its end.
std::u16string LongText() {
  static const std::u16string text = [] {
    std::u16string t;
    const char16_t* words[] = {u"alpha ", u"beta ", u"gamma ", u"delta ", u"epsilon ", u"zeta ", u"eta "};
    for (int i = 0; t.size() < 60000; ++i) t += words[(i * 5 + i / 3) % 7];
    t.replace(t.size() - 200, 6, u"needle");
    t[t.size() - 100] = u'#';
    return t;
  }();
  return text;
}

void BM_SearchChar(benchmark::State& state) {
  const C_STRING text(LongText().c_str());
  for (auto _ : state) benchmark::DoNotOptimize(text.Search(C_CHAR(u'#'), 0));
  state.SetBytesProcessed(state.iterations() * text.GetNumber() * 2);
}
BENCHMARK(BM_SearchChar);

void BM_u16string_find_char(benchmark::State& state) {
  const std::u16string text = LongText();
  for (auto _ : state) benchmark::DoNotOptimize(text.find(u'#', 0));
  state.SetBytesProcessed(state.iterations() * static_cast<long long>(text.size()) * 2);
}
BENCHMARK(BM_u16string_find_char);

void BM_SearchText(benchmark::State& state) {
  const C_STRING text(LongText().c_str());
  const C_STRING needle(u"needle");
  for (auto _ : state) benchmark::DoNotOptimize(text.Search(needle, 0));
  state.SetBytesProcessed(state.iterations() * text.GetNumber() * 2);
}
BENCHMARK(BM_SearchText);

void BM_u16string_find_text(benchmark::State& state) {
  const std::u16string text = LongText();
  const std::u16string needle = u"needle";
  for (auto _ : state) benchmark::DoNotOptimize(text.find(needle, 0));
  state.SetBytesProcessed(state.iterations() * static_cast<long long>(text.size()) * 2);
}
BENCHMARK(BM_u16string_find_text);

// Replacement of every occurrence: shrinking ("delta " by "d "), keeping the
// length, and growing ("eta " by "ETA-ETA "). The timing covers a fresh copy
// of the text on both sides, and leaves the result in that copy.
struct ReplaceCase {
  const char16_t* from;
  const char16_t* to;
};
constexpr ReplaceCase kReplaceCases[] = {{u"delta ", u"d "}, {u"beta", u"BETA"}, {u"eta ", u"ETA-ETA "}};

void BM_Replace(benchmark::State& state) {
  const ReplaceCase& c = kReplaceCases[state.range(0)];
  const C_STRING original(LongText().substr(0, 30000).c_str());
  const C_STRING from(c.from);
  const C_STRING to(c.to);
  for (auto _ : state) {
    C_STRING text(original);
    text.Replace(from, to);
    benchmark::DoNotOptimize(text.GetWCHAR());
  }
}
BENCHMARK(BM_Replace)->DenseRange(0, 2);

void BM_u16string_replace(benchmark::State& state) {
  const ReplaceCase& c = kReplaceCases[state.range(0)];
  const std::u16string original = LongText().substr(0, 30000);
  const std::u16string from(c.from);
  const std::u16string to(c.to);
  // The efficient standard idiom: the pieces and replacements are appended
  // to a new string, so that no tail is moved more than once.
  for (auto _ : state) {
    std::u16string text(original);
    std::u16string result;
    result.reserve(text.size() + text.size() / 2);
    std::size_t done = 0;
    for (std::size_t at = text.find(from); at != std::u16string::npos; at = text.find(from, done)) {
      result.append(text, done, at - done);
      result += to;
      done = at + from.size();
    }
    result.append(text, done, std::u16string::npos);
    text.swap(result);
    benchmark::DoNotOptimize(text.data());
  }
}
BENCHMARK(BM_u16string_replace)->DenseRange(0, 2);

}  // namespace

int main(int argc, char** argv) {
  Copen();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  Cclose();
  return 0;
}
