// Compressed files written with worker threads (CfileCompressThreads above
// 1): the same bytes as without them for any writes and flushes, the same
// failures, and no thread left once the file is closed.
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <random>
#include <thread>
#include <tuple>
#include <vector>

#include "file/block_compressor.h"
#include "file/file_test_util.h"
#include "support/os_support.h"

namespace {

constexpr int kBlock = C_FILE::COMPRESS_BLOCK_SIZE;

// Sets the switch for one test and puts it back.
class WorkerCount {
 public:
  explicit WorkerCount(int count) : saved_(CfileCompressThreads) { CfileCompressThreads = count; }
  ~WorkerCount() { CfileCompressThreads = saved_; }

 private:
  int saved_;
};

// As ProcessThreadCount, after a thread started and ended first makes runtimes that start a thread of their
// own with the first one (as ThreadSanitizer does) count it already.
int BaselineThreadCount() {
  std::thread([] {}).join();
  return ProcessThreadCount();
}

std::string TextLike(std::size_t size, unsigned seed) {
  static const char* const words[] = {"sensor ", "reading ", "value ", "status ", "ok\n", "warn\n", "0.125 ", "42 "};
  std::mt19937 random(seed);
  std::string out;
  while (out.size() < size) out += words[random() % 8];
  out.resize(size);
  return out;
}

// The steps of a writer: writes of random sizes (a few bytes to beyond two
// blocks), and flushes (0) between some of them.
std::vector<std::size_t> RandomSteps(std::size_t total, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<std::size_t> steps;
  for (std::size_t done = 0; done < total;) {
    const unsigned kind = random() % 10;
    std::size_t count = kind < 4 ? random() % 100 + 1 : (kind < 8 ? random() % kBlock + 1 : random() % (3 * kBlock));
    count = std::max<std::size_t>(1, std::min(count, total - done));
    steps.push_back(count);
    done += count;
    if (random() % 5 == 0) steps.push_back(0);
  }
  return steps;
}

struct Written {
  std::string bytes;
  std::vector<long long> sizes;  // GetSize after each flush (in place only)
};

// The file that `steps` over `data` make with `workers` workers.
Written WriteSteps(const std::string& path, int mode, const std::string& data, const std::vector<std::size_t>& steps,
                   int workers) {
  Written result;
  {
    WorkerCount count(workers);
    C_FILE file(LibraryPath(path), mode, C_FILE::COMPRESSED);
    std::size_t at = 0;
    for (const std::size_t step : steps) {
      if (step == 0) file.Flush();
      if (step == 0 && (mode & C_FILE::DIRECT) != 0) result.sizes.push_back(file.GetSize());
      if (step != 0) file.Write(static_cast<int>(step), data.data() + at);
      at += step;
      EXPECT_FALSE(C_ERROR::Is());
    }
  }
  EXPECT_FALSE(C_ERROR::Is());
  result.bytes = ReadBytes(path);
  return result;
}

// The blocks of a compressed file, each decoded on its own by zlib.
std::string DecodeBlocksWithZlib(const std::string& file) {
  EXPECT_EQ(file.compare(0, 16, C_FILE::COMPRESS_MAGIC), 0);
  std::string out;
  std::size_t at = 16;
  while (at + 8 <= file.size()) {
    unsigned stored = 0, packed = 0;
    std::memcpy(&stored, file.data() + at, 4);
    std::memcpy(&packed, file.data() + at + 4, 4);
    EXPECT_GE(stored, 1u);
    EXPECT_LE(stored, static_cast<unsigned>(kBlock));
    if (at + 8 + packed > file.size()) break;
    std::string block(stored, '\0');
    uLongf length = stored;
    EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(block.data()), &length,
                         reinterpret_cast<const Bytef*>(file.data() + at + 8), packed),
              Z_OK);
    EXPECT_EQ(length, stored);
    out += block;
    at += 8 + packed;
  }
  EXPECT_EQ(at, file.size());
  return out;
}

using CompressWorkers = FileTest;

TEST_F(CompressWorkers, AnyWritesAndFlushesGiveTheSameFileWithAnyNumberOfWorkers) {
  // Two workers keep every block slot busy and the writer waiting; eight take
  // the file's blocks with slots to spare.
  const std::string data = RandomBytes(9 * kBlock + 4321, 21);
  const std::vector<std::size_t> steps = RandomSteps(data.size(), 1);
  for (int route : {int{C_FILE::WRITE}, C_FILE::WRITE | C_FILE::DIRECT}) {
    const bool inPlace = (route & C_FILE::DIRECT) != 0;
    SCOPED_TRACE(inPlace ? "in place" : "through a temporary file");
    const Written alone = WriteSteps(path, route, data, steps, 1);
    // Through a temporary file every byte comes back; in place, writes that
    // cross the end of the block buffer keep their old losses, alike for
    // every number of workers.
    const std::string decoded = DecodeBlocksWithZlib(alone.bytes);
    EXPECT_TRUE(inPlace || decoded == data);
    for (int workers : {2, 8}) {
      SCOPED_TRACE(std::to_string(workers) + " workers");
      const Written parallel = WriteSteps(path, route, data, steps, workers);
      EXPECT_EQ(parallel.bytes.size(), alone.bytes.size());
      EXPECT_TRUE(parallel.bytes == alone.bytes);
      EXPECT_EQ(parallel.sizes, alone.sizes);
    }
  }
}

TEST_F(CompressWorkers, WorkersStartWithTheFirstBlocksAndEndWithTheFile) {
  const int before = BaselineThreadCount();
  if (before < 0) GTEST_SKIP() << "no list of the process's threads here";
  const std::string data = RandomBytes(12 * kBlock, 5);
  {
    WorkerCount count(1);
    C_FILE file(LibraryPath(path), C_FILE::WRITE | C_FILE::DIRECT, C_FILE::COMPRESSED);
    for (int i = 0; i < 3; ++i) file.Write(kBlock, data.data() + i * kBlock);
    EXPECT_EQ(ProcessThreadCount(), before) << "one worker: the writing thread compresses";
  }
  {
    WorkerCount count(3);
    C_FILE file(LibraryPath(path), C_FILE::WRITE | C_FILE::DIRECT, C_FILE::COMPRESSED);
    // Flushes with nothing in flight compress at once: no worker yet.
    file.Write(100, data.data());
    file.Flush();
    file.Write(100, data.data());
    file.Flush();
    EXPECT_EQ(ProcessThreadCount(), before);
    for (int i = 0; i < 12; ++i) file.Write(kBlock, data.data() + i * kBlock);
    EXPECT_EQ(ProcessThreadCount(), before + 3);
    // A file that is closed ends its workers.
  }
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(ProcessThreadCount(), before);
  {
    // Through a temporary file the workers live while the file closes.
    WorkerCount count(2);
    C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::COMPRESSED);
    file.Write(static_cast<int>(data.size()), data.data());
    EXPECT_EQ(ProcessThreadCount(), before);
  }
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(ProcessThreadCount(), before);
  EXPECT_TRUE(DecodeBlocksWithZlib(ReadBytes(path)) == data);
}

// Writes to a full disk until a call fails, then closes: the error pending
// at the end, its extra text, and whether the failure showed before closing.
std::tuple<const C_ERROR*, std::u16string, bool> WriteToFullDisk(int mode, const std::string& data, int workers) {
  WorkerCount count(workers);
  bool beforeClosing = false;
  {
    C_FILE file(LibraryPath(kFullDevice), mode, C_FILE::COMPRESSED);
    EXPECT_FALSE(C_ERROR::Is());
    for (std::size_t at = 0; at < data.size() && !C_ERROR::Is(); at += 1000) {
      file.Write(static_cast<int>(std::min<std::size_t>(1000, data.size() - at)), data.data() + at);
    }
    if (!C_ERROR::Is()) file.Flush();
    beforeClosing = C_ERROR::Is();
  }
  const auto failure = std::make_tuple(C_ERROR::GetPending(), Text(C_ERROR::GetPendingExtra()), beforeClosing);
  C_ERROR::ClearPending();
  return failure;
}

TEST_F(CompressWorkers, AFullDiskGivesTheSameErrorAndLeavesNoWorker) {
  if (QORC_ON_WINDOWS(!RunningUnderWine())) GTEST_SKIP() << "Windows has no always-full device (Wine has Z:\\dev\\full)";
  const int before = BaselineThreadCount();
  const std::string data = RandomBytes(10 * kBlock, 9);
  for (int mode : {C_FILE::WRITE | C_FILE::DIRECT, int{C_FILE::WRITE}}) {
    SCOPED_TRACE(mode == C_FILE::WRITE ? "through a temporary file" : "in place");
    const auto alone = WriteToFullDisk(mode, data, 1);
    EXPECT_EQ(std::get<0>(alone), &CerrFileNotEnoughSpace);
    EXPECT_EQ(std::get<1>(alone), Text(LibraryPath(kFullDevice, true)));
    for (int workers : {2, 8}) {
      // The same error, shown as early: in place at a write or the flush that
      // waits for the failed block, before closing, as without workers.
      EXPECT_EQ(WriteToFullDisk(mode, data, workers), alone) << workers << " workers";
      EXPECT_TRUE(before < 0 || ProcessThreadCount() == before);
    }
  }
}

TEST_F(CompressWorkers, AFlushPutsEveryBlockHandedOverOnDiskAndWholeBlocksComeBackWhole) {
  // Whole blocks written one by one into the in-place writer, and a short last one.
  const std::string data = TextLike(40 * kBlock + 5, 11);
  WorkerCount count(4);
  {
    C_FILE file(LibraryPath(path), C_FILE::WRITE | C_FILE::DIRECT, C_FILE::COMPRESSED);
    for (int i = 0; i < 6; ++i) file.Write(kBlock, data.data() + i * kBlock);
    file.Flush();
    ASSERT_FALSE(C_ERROR::Is());
    EXPECT_EQ(DecodeBlocksWithZlib(ReadBytes(path)).size(), 6u * kBlock);
    // Every block handed over so far is on disk after the flush; the ones
    // handed over later reach it at the latest when the file closes.
    for (std::size_t at = 6 * kBlock; at < data.size(); at += kBlock) {
      file.Write(static_cast<int>(std::min<std::size_t>(kBlock, data.size() - at)), data.data() + at);
    }
    EXPECT_FALSE(C_ERROR::Is());
  }
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_TRUE(DecodeBlocksWithZlib(ReadBytes(path)) == data);
  C_FILE::CheckCompression(LibraryPath(path));
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(BlockDeflaterTest, GivesZlibCompressByteForByte) {
  // One deflater kept over blocks of every kind and size, in an order that
  // leaves a large block's data in its memory before a small one.
  qorc::file::BlockDeflater deflater;
  std::mt19937 random(8);
  std::vector<unsigned char> packed(C_FILE::COMPRESS_SCRATCH_SIZE);
  for (int i = 0; i < 40; ++i) {
    const std::size_t size = i % 4 == 0 ? kBlock : random() % kBlock + 1;
    const std::string data = i % 3 == 0 ? RandomBytes(size, i) : TextLike(size, i);
    uLongf expectedSize = C_FILE::COMPRESS_SCRATCH_SIZE;
    std::vector<unsigned char> expected(expectedSize);
    ASSERT_EQ(compress(expected.data(), &expectedSize, reinterpret_cast<const Bytef*>(data.data()), size), Z_OK);
    unsigned int packedSize = 0;
    ASSERT_TRUE(deflater.Compress(reinterpret_cast<const unsigned char*>(data.data()), static_cast<unsigned>(size),
                                  packed.data(), C_FILE::COMPRESS_SCRATCH_SIZE, &packedSize));
    ASSERT_EQ(packedSize, expectedSize) << size;
    EXPECT_EQ(std::memcmp(packed.data(), expected.data(), packedSize), 0) << size;
  }
  // Too little room is a refusal, as compress answers Z_BUF_ERROR.
  const std::string noise = RandomBytes(1000, 3);
  unsigned int packedSize = 0;
  EXPECT_FALSE(
      deflater.Compress(reinterpret_cast<const unsigned char*>(noise.data()), 1000, packed.data(), 100, &packedSize));
}

TEST(BlockCompressorTest, BlocksComeBackInTheOrderTheyWentIn) {
  auto compressor = qorc::file::BlockCompressor::Start(3);
  ASSERT_NE(compressor, nullptr);
  std::mt19937 random(4);
  std::vector<unsigned> sizes;
  int written = 0;
  for (int i = 0; i < 50; ++i) {
    qorc::file::CompressJob* job = compressor->NextFree();
    if (job == nullptr) {
      // Two blocks per worker at most are in flight.
      EXPECT_EQ(compressor->InFlight(), 6);
      qorc::file::CompressJob* oldest = compressor->Oldest(true);
      ASSERT_NE(oldest, nullptr);
      EXPECT_EQ(oldest->size, sizes[written]);
      ++written;
      compressor->Release();
      job = compressor->NextFree();
    }
    ASSERT_NE(job, nullptr);
    job->size = random() % kBlock + 1;
    std::memset(job->data.get(), 'a' + i % 26, job->size);
    sizes.push_back(job->size);
    compressor->Submit();
  }
  while (qorc::file::CompressJob* job = compressor->Oldest(true)) {
    ASSERT_TRUE(job->compressed);
    std::vector<unsigned char> back(job->size);
    uLongf length = job->size;
    ASSERT_EQ(uncompress(back.data(), &length, job->packed.get(), job->packedSize), Z_OK);
    EXPECT_EQ(length, sizes[written]);
    EXPECT_EQ(back[0], static_cast<unsigned char>('a' + written % 26));
    ++written;
    compressor->Release();
  }
  EXPECT_EQ(written, 50);
  EXPECT_EQ(compressor->InFlight(), 0);
}

}  // namespace
