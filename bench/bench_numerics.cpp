// Numerics: RSA key generation against Crypto++'s own key generation of the
// same size, and CRC-32 throughput against memory bandwidth (memcpy of the
// same buffer).
#include <benchmark/benchmark.h>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <qorc/qorc.h>

#include <cstring>
#include <vector>

namespace {

void BM_CrsaGenerateKeys(benchmark::State& state) {
  const int bits = static_cast<int>(state.range(0));
  for (auto _ : state) {
    unsigned char* publicKey = nullptr;
    unsigned char* privateKey = nullptr;
    int keySize = 0;
    CrsaGenerateKeys(bits, &publicKey, &privateKey, &keySize, 0);
    if (C_ERROR::Is()) state.SkipWithError("key generation failed");
    benchmark::DoNotOptimize(publicKey);
    delete[] publicKey;
    delete[] privateKey;
  }
}
BENCHMARK(BM_CrsaGenerateKeys)->Arg(512)->Arg(1024)->Unit(benchmark::kMillisecond)->MinTime(5.0);

void BM_CryptoppInvertibleRSAFunction(benchmark::State& state) {
  const unsigned int bits = static_cast<unsigned int>(state.range(0));
  CryptoPP::AutoSeededRandomPool rng;
  for (auto _ : state) {
    CryptoPP::InvertibleRSAFunction key;
    key.GenerateRandomWithKeySize(rng, bits);
    benchmark::DoNotOptimize(key.GetModulus().BitCount());
  }
}
BENCHMARK(BM_CryptoppInvertibleRSAFunction)->Arg(512)->Arg(1024)->Unit(benchmark::kMillisecond)->MinTime(5.0);

std::vector<unsigned char> Buffer(size_t size) {
  std::vector<unsigned char> buffer(size);
  for (size_t i = 0; i < size; ++i) buffer[i] = static_cast<unsigned char>(i * 131 + (i >> 9));
  return buffer;
}

void BM_CchecksumCRC(benchmark::State& state) {
  const std::vector<unsigned char> buffer = Buffer(static_cast<size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(CchecksumCRC(static_cast<int>(buffer.size()), buffer.data()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_CchecksumCRC)->Arg(64 << 10)->Arg(16 << 20);

void BM_CchecksumAdler(benchmark::State& state) {
  const std::vector<unsigned char> buffer = Buffer(static_cast<size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(CchecksumAdler(static_cast<int>(buffer.size()), buffer.data()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_CchecksumAdler)->Arg(64 << 10)->Arg(16 << 20);

void BM_Memcpy(benchmark::State& state) {
  const std::vector<unsigned char> buffer = Buffer(static_cast<size_t>(state.range(0)));
  std::vector<unsigned char> copy(buffer.size());
  for (auto _ : state) {
    std::memcpy(copy.data(), buffer.data(), buffer.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Memcpy)->Arg(64 << 10)->Arg(16 << 20);

void BM_CmathIntSqrt(benchmark::State& state) {
  unsigned int n = 0x9E3779B9u;
  for (auto _ : state) {
    benchmark::DoNotOptimize(CmathIntSqrt(n));
    n = n * 1664525u + 1013904223u;
  }
}
BENCHMARK(BM_CmathIntSqrt);

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
