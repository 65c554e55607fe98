// The small-object allocator against glibc malloc and mimalloc, and C_STRING
// character appends against std::u16string.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <qorc/qorc.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

// mimalloc is loaded privately: linked normally it would replace malloc for
// the whole process, and the glibc figures would measure it too.
struct Mimalloc {
  void* (*alloc)(std::size_t) = nullptr;
  void (*release)(void*) = nullptr;
  Mimalloc() {
    void* library = dlopen("libmimalloc.so.2", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return;
    alloc = reinterpret_cast<void* (*)(std::size_t)>(dlsym(library, "mi_malloc"));
    release = reinterpret_cast<void (*)(void*)>(dlsym(library, "mi_free"));
  }
};
const Mimalloc& Mi() {
  static Mimalloc mi;
  return mi;
}

struct Cema {
  static void* Alloc(std::size_t n) { return CemaAlloc(static_cast<unsigned int>(n)); }
  static void Free(void* p) { CemaFree(p); }
};
struct Glibc {
  static void* Alloc(std::size_t n) { return std::malloc(n); }
  static void Free(void* p) { std::free(p); }
};
struct MiMalloc {
  static void* Alloc(std::size_t n) { return Mi().alloc(n); }
  static void Free(void* p) { Mi().release(p); }
};

template <typename A>
bool Available(benchmark::State& state) {
  if constexpr (std::is_same_v<A, MiMalloc>) {
    if (Mi().alloc == nullptr) {
      state.SkipWithError("libmimalloc.so.2 not found");
      return false;
    }
  }
  return true;
}

// One block allocated and released at once, as a short-lived object is.
template <typename A>
void AllocFreePair(benchmark::State& state) {
  if (!Available<A>(state)) return;
  const std::size_t size = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    void* p = A::Alloc(size);
    benchmark::DoNotOptimize(p);
    A::Free(p);
  }
  state.SetItemsProcessed(state.iterations());
}

// The same while other blocks of the size stay alive, as in a running host:
// the page never empties, so it is not handed back to the pool each time.
template <typename A>
void AllocFreePairWarm(benchmark::State& state) {
  if (!Available<A>(state)) return;
  const std::size_t size = static_cast<std::size_t>(state.range(0));
  void* alive = A::Alloc(size);
  for (auto _ : state) {
    void* p = A::Alloc(size);
    benchmark::DoNotOptimize(p);
    A::Free(p);
  }
  A::Free(alive);
  state.SetItemsProcessed(state.iterations());
}

// Many small objects of mixed sizes alive together, then released.
template <typename A>
void AllocFreeBatch(benchmark::State& state) {
  if (!Available<A>(state)) return;
  constexpr int kCount = 4096;
  std::vector<void*> blocks(kCount);
  for (auto _ : state) {
    for (int i = 0; i < kCount; ++i) {
      blocks[i] = A::Alloc(16 + (i % 8) * 8);
      benchmark::DoNotOptimize(blocks[i]);
    }
    for (int i = 0; i < kCount; ++i) A::Free(blocks[i]);
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}

BENCHMARK(AllocFreePair<Cema>)->Name("alloc_free_pair/cema")->Arg(16)->Arg(64)->Arg(256);
BENCHMARK(AllocFreePair<Glibc>)->Name("alloc_free_pair/glibc")->Arg(16)->Arg(64)->Arg(256);
BENCHMARK(AllocFreePair<MiMalloc>)->Name("alloc_free_pair/mimalloc")->Arg(16)->Arg(64)->Arg(256);
BENCHMARK(AllocFreePairWarm<Cema>)->Name("alloc_free_pair_warm/cema")->Arg(16)->Arg(64)->Arg(256);
BENCHMARK(AllocFreePairWarm<Glibc>)->Name("alloc_free_pair_warm/glibc")->Arg(16)->Arg(64)->Arg(256);
BENCHMARK(AllocFreePairWarm<MiMalloc>)->Name("alloc_free_pair_warm/mimalloc")->Arg(16)->Arg(64)->Arg(256);
BENCHMARK(AllocFreeBatch<Cema>)->Name("alloc_free_batch/cema");
BENCHMARK(AllocFreeBatch<Glibc>)->Name("alloc_free_batch/glibc");
BENCHMARK(AllocFreeBatch<MiMalloc>)->Name("alloc_free_batch/mimalloc");

constexpr int kAppendCount = 4000;

void AppendCharsCString(benchmark::State& state) {
  for (auto _ : state) {
    C_STRING s;
    for (int i = 0; i < kAppendCount; ++i) s += static_cast<char16_t>(u'a' + (i & 15));
    benchmark::DoNotOptimize(s.GetWCHAR());
  }
  state.SetItemsProcessed(state.iterations() * kAppendCount);
}

void AppendCharsStd(benchmark::State& state) {
  for (auto _ : state) {
    std::u16string s;
    for (int i = 0; i < kAppendCount; ++i) s += static_cast<char16_t>(u'a' + (i & 15));
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations() * kAppendCount);
}

// The same appends into a string whose buffer is already large enough.
void AppendCharsReusedCString(benchmark::State& state) {
  C_STRING s;
  s.Grow(kAppendCount + 1);
  for (auto _ : state) {
    s.Clear();
    for (int i = 0; i < kAppendCount; ++i) s += static_cast<char16_t>(u'a' + (i & 15));
    benchmark::DoNotOptimize(s.GetWCHAR());
  }
  state.SetItemsProcessed(state.iterations() * kAppendCount);
}

void AppendCharsReusedStd(benchmark::State& state) {
  std::u16string s;
  s.reserve(kAppendCount + 1);
  for (auto _ : state) {
    s.clear();
    for (int i = 0; i < kAppendCount; ++i) s += static_cast<char16_t>(u'a' + (i & 15));
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations() * kAppendCount);
}

BENCHMARK(AppendCharsCString)->Name("append_chars/C_STRING");
BENCHMARK(AppendCharsStd)->Name("append_chars/u16string");
BENCHMARK(AppendCharsReusedCString)->Name("append_chars_reused/C_STRING");
BENCHMARK(AppendCharsReusedStd)->Name("append_chars_reused/u16string");

// Searching a character and a word near the end of a 4000-character text.
struct SearchText {
  C_STRING text;
  std::u16string standard;
  SearchText() {
    for (int i = 0; i < kAppendCount; ++i) standard += static_cast<char16_t>(u'a' + (i % 23));
    standard += u"needle!";
    text = standard.c_str();
  }
};
const SearchText& Haystack() {
  static SearchText haystack;
  return haystack;
}

void SearchCString(benchmark::State& state) {
  const C_STRING word(u"needle");
  for (auto _ : state) {
    benchmark::DoNotOptimize(Haystack().text.Search(C_CHAR(u'!')));
    benchmark::DoNotOptimize(Haystack().text.Search(word));
  }
}

void SearchStd(benchmark::State& state) {
  const std::u16string word(u"needle");
  for (auto _ : state) {
    benchmark::DoNotOptimize(Haystack().standard.find(u'!'));
    benchmark::DoNotOptimize(Haystack().standard.find(word));
  }
}

BENCHMARK(SearchCString)->Name("search_char_and_word/C_STRING");
BENCHMARK(SearchStd)->Name("search_char_and_word/u16string");

}  // namespace

int main(int argc, char** argv) {
  Copen();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  Cclose();
  return 0;
}
