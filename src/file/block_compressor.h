// Blocks of the compressed format compressed on worker threads and handed
// back in the order they came in, so that a file written with workers is
// byte for byte the file written without them.
//
// The workers run zlib's compress on buffers that the compressor owns and
// nothing else: they never trigger an error, never allocate through the
// library and never touch process-wide state. Everything the caller sees
// (what failed, what is written where) is decided in the caller's thread.
#ifndef QORC_FILE_BLOCK_COMPRESSOR_H
#define QORC_FILE_BLOCK_COMPRESSOR_H

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "file/block_deflate.h"

namespace qorc::file {

// One block on its way through the workers: the caller fills data and size,
// a worker fills packed and packedSize.
struct CompressJob {
  std::unique_ptr<unsigned char[]> data;    // a block's worth of bytes
  std::unique_ptr<unsigned char[]> packed;  // the zlib worst case for a block
  unsigned int size = 0;
  unsigned int packedSize = 0;
  bool compressed = false;  // zlib's compress answered Z_OK
  bool done = false;        // guarded by the compressor's mutex
};

class BlockCompressor {
 public:
  // Most workers one compressor starts; more asked for are this many.
  static constexpr int kMostWorkers = 64;

  // Starts `workers` threads with two blocks in flight for each. Null when
  // the memory or the threads cannot be had: the caller then compresses in
  // its own thread.
  static std::unique_ptr<BlockCompressor> Start(int workers);
  // Stops and joins the workers; blocks still in flight are dropped.
  ~BlockCompressor();
  BlockCompressor(const BlockCompressor&) = delete;
  BlockCompressor& operator=(const BlockCompressor&) = delete;

  // The job to fill next, or null while every job is in flight.
  CompressJob* NextFree();
  // Hands the job NextFree gave, its data and size filled, to the workers.
  void Submit();
  // Blocks handed in and not yet released.
  int InFlight() const { return static_cast<int>(tail_ - head_); }
  // The oldest block in flight once it is compressed, waiting for it when
  // `wait` is set; null when none is in flight (or, without `wait`, while
  // the oldest is still being compressed).
  CompressJob* Oldest(bool wait);
  // Gives the oldest block back once the caller has written it.
  void Release();

  // What a worker does with a job, with its own deflater; the caller may
  // do it too, with its thread's.
  static void Compress(CompressJob* job, BlockDeflater* deflater);

 private:
  BlockCompressor() = default;
  void Work(BlockDeflater* deflater);
  CompressJob* Slot(std::size_t count) { return jobs_[count % jobs_.size()].get(); }

  std::vector<std::unique_ptr<CompressJob>> jobs_;
  std::vector<std::unique_ptr<BlockDeflater>> deflaters_;  // one per worker
  std::vector<std::thread> workers_;
  std::mutex mutex_;
  std::condition_variable queued_;    // a job was handed in, or the workers stop
  std::condition_variable finished_;  // a job is compressed
  // Counts of jobs: released (caller's), taken by a worker, handed in. A
  // job's slot is its count modulo the number of jobs.
  std::size_t head_ = 0;
  std::size_t taken_ = 0;
  std::size_t tail_ = 0;
  bool stopping_ = false;
};

}  // namespace qorc::file

#endif
