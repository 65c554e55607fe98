// The worker pool that compresses blocks of the compressed format.
#include "file/block_compressor.h"

#include <qorc/file.h>

#include <exception>
#include <new>

namespace qorc::file {

namespace {

// Two blocks per worker keep every worker busy while the caller writes the
// oldest block and fills the next one, and bound the memory in flight.
constexpr int kJobsPerWorker = 2;

std::unique_ptr<unsigned char[]> NewBuffer(std::size_t size) {
  return std::unique_ptr<unsigned char[]>(new (std::nothrow) unsigned char[size]);
}

}  // namespace

std::unique_ptr<BlockCompressor> BlockCompressor::Start(int workers) {
  if (workers < 1) workers = 1;
  if (workers > kMostWorkers) workers = kMostWorkers;
  std::unique_ptr<BlockCompressor> compressor(new (std::nothrow) BlockCompressor);
  if (compressor == nullptr) return nullptr;
  try {
    for (int i = 0; i < kJobsPerWorker * workers; ++i) {
      auto job = std::make_unique<CompressJob>();
      job->data = NewBuffer(C_FILE::COMPRESS_BLOCK_SIZE);
      job->packed = NewBuffer(C_FILE::COMPRESS_SCRATCH_SIZE);
      if (job->data == nullptr || job->packed == nullptr) return nullptr;
      compressor->jobs_.push_back(std::move(job));
    }
    for (int i = 0; i < workers; ++i) compressor->deflaters_.push_back(std::make_unique<BlockDeflater>());
    compressor->workers_.reserve(static_cast<std::size_t>(workers));
    for (int i = 0; i < workers; ++i) {
      compressor->workers_.emplace_back(&BlockCompressor::Work, compressor.get(), compressor->deflaters_[i].get());
    }
  } catch (const std::exception&) {
    // No memory or no thread: the workers already started are stopped by
    // the destructor, and the caller compresses alone.
    return nullptr;
  }
  return compressor;
}

BlockCompressor::~BlockCompressor() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  queued_.notify_all();
  for (std::thread& worker : workers_) worker.join();
}

CompressJob* BlockCompressor::NextFree() {
  if (tail_ - head_ >= jobs_.size()) return nullptr;
  return Slot(tail_);
}

void BlockCompressor::Submit() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    Slot(tail_)->done = false;
    ++tail_;
  }
  queued_.notify_one();
}

CompressJob* BlockCompressor::Oldest(bool wait) {
  if (head_ == tail_) return nullptr;
  CompressJob* job = Slot(head_);
  std::unique_lock<std::mutex> lock(mutex_);
  if (wait) finished_.wait(lock, [job] { return job->done; });
  return job->done ? job : nullptr;
}

void BlockCompressor::Release() {
  if (head_ != tail_) ++head_;
}

void BlockCompressor::Compress(CompressJob* job, BlockDeflater* deflater) {
  unsigned int packed = 0;
  job->compressed =
      deflater->Compress(job->data.get(), job->size, job->packed.get(), C_FILE::COMPRESS_SCRATCH_SIZE, &packed);
  job->packedSize = job->compressed ? packed : 0;
}

void BlockCompressor::Work(BlockDeflater* deflater) {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    queued_.wait(lock, [this] { return stopping_ || taken_ != tail_; });
    if (stopping_) return;
    CompressJob* job = Slot(taken_);
    ++taken_;
    lock.unlock();
    Compress(job, deflater);
    lock.lock();
    job->done = true;
    finished_.notify_one();
  }
}

}  // namespace qorc::file
