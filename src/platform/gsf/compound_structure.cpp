// The structure check of a compound document, made before libgsf reads it.
// libgsf follows damaged sector chains where it can and drops entries it
// cannot read, so a document with a loop in a chain or a stream longer than
// the file would open with some of its contents wrong or missing, and be
// written back that way at the next commit. This walks the header, the
// allocation tables, the directory tree and every stream's chain once.
#include "platform/gsf/compound_structure.h"

#include <cstring>
#include <new>
#include <vector>

namespace qorc::platform::posix {

namespace {

constexpr unsigned kEndOfChain = 0xFFFFFFFEu;
constexpr unsigned kNoStream = 0xFFFFFFFFu;
constexpr unsigned kHeaderDifatEntries = 109;
constexpr int kEntryBytes = 128;
constexpr unsigned char kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

unsigned Load32(const unsigned char* bytes) {
  return static_cast<unsigned>(bytes[0]) | static_cast<unsigned>(bytes[1]) << 8 |
         static_cast<unsigned>(bytes[2]) << 16 | static_cast<unsigned>(bytes[3]) << 24;
}

unsigned Load16(const unsigned char* bytes) {
  return static_cast<unsigned>(bytes[0]) | static_cast<unsigned>(bytes[1]) << 8;
}

class Checker {
 public:
  Checker(std::FILE* file, long long fileSize) : file_(file), fileSize_(fileSize) {}

  int Reached() const { return reached_; }

  bool Run() {
    unsigned char header[512];
    if (!ReadAt(0, header, sizeof header)) return false;
    if (std::memcmp(header, kSignature, sizeof kSignature) != 0) return false;
    const unsigned sectorShift = Load16(header + 0x1E);
    const unsigned miniShift = Load16(header + 0x20);
    if (sectorShift < 7 || sectorShift > 16 || miniShift < 2 || miniShift >= sectorShift) return false;
    sector_ = 1LL << sectorShift;
    miniSector_ = 1LL << miniShift;
    sectorCount_ = fileSize_ <= sector_ ? 0 : (fileSize_ - sector_ + sector_ - 1) / sector_;
    miniCutoff_ = Load32(header + 0x38);
    chainMark_.assign(static_cast<std::size_t>(sectorCount_), 0);
    return LoadFat(header) && LoadDirectory(Load32(header + 0x30)) && LoadMiniFat(Load32(header + 0x3C)) && CheckTree();
  }

 private:
  bool ReadAt(long long offset, unsigned char* data, long long count) {
    if (offset < 0 || offset + count > fileSize_) return false;
    if (fseeko64(file_, static_cast<off64_t>(offset), SEEK_SET) != 0) return false;
    return std::fread(data, 1, static_cast<std::size_t>(count), file_) == static_cast<std::size_t>(count);
  }

  bool ReadSector(unsigned sector, unsigned char* data) {
    if (sector >= sectorCount_) return false;
    // A last sector cut short by the end of the file reads as zeros after it.
    const long long offset = (static_cast<long long>(sector) + 1) * sector_;
    const long long count = offset + sector_ <= fileSize_ ? sector_ : fileSize_ - offset;
    std::memset(data, 0, static_cast<std::size_t>(sector_));
    return ReadAt(offset, data, count);
  }

  // Follows a chain of the big allocation table, each sector once; false on
  // a loop, a sector outside the file or a chain not closed.
  bool FollowChain(unsigned start, std::vector<unsigned>* sectors) {
    ++chainId_;
    for (unsigned sector = start; sector != kEndOfChain;) {
      if (sector >= sectorCount_ || sector >= fat_.size()) return false;
      if (chainMark_[sector] == chainId_) return false;
      chainMark_[sector] = chainId_;
      sectors->push_back(sector);
      sector = fat_[sector];
    }
    return true;
  }

  bool LoadFat(const unsigned char* header) {
    const unsigned fatSectors = Load32(header + 0x2C);
    if (fatSectors > sectorCount_) return false;
    std::vector<unsigned> locations;
    for (unsigned i = 0; i < kHeaderDifatEntries && locations.size() < fatSectors; ++i) {
      locations.push_back(Load32(header + 0x4C + 4 * i));
    }
    // The rest of the table's sector list is in its own chain of sectors,
    // each ending with the number of the next.
    std::vector<unsigned char> block(static_cast<std::size_t>(sector_));
    const unsigned perBlock = static_cast<unsigned>(sector_ / 4) - 1;
    std::vector<char> seen(static_cast<std::size_t>(sectorCount_), 0);
    for (unsigned next = Load32(header + 0x44); locations.size() < fatSectors;) {
      if (next >= sectorCount_ || seen[next]) return false;
      seen[next] = 1;
      if (!ReadSector(next, block.data())) return false;
      for (unsigned i = 0; i < perBlock && locations.size() < fatSectors; ++i) {
        locations.push_back(Load32(block.data() + 4 * i));
      }
      next = Load32(block.data() + 4 * perBlock);
    }
    fat_.reserve(static_cast<std::size_t>(fatSectors) * (sector_ / 4));
    for (const unsigned location : locations) {
      if (!ReadSector(location, block.data())) return false;
      for (long long i = 0; i < sector_ / 4; ++i) fat_.push_back(Load32(block.data() + 4 * i));
    }
    return true;
  }

  bool LoadDirectory(unsigned start) {
    std::vector<unsigned> sectors;
    if (!FollowChain(start, &sectors) || sectors.empty()) return false;
    directory_.resize(sectors.size() * static_cast<std::size_t>(sector_));
    for (std::size_t i = 0; i < sectors.size(); ++i) {
      if (!ReadSector(sectors[i], directory_.data() + i * static_cast<std::size_t>(sector_))) return false;
    }
    entryCount_ = static_cast<unsigned>(directory_.size() / kEntryBytes);
    // The first entry is the root, whose chain is the small streams' store.
    if (Type(0) != 5) return false;
    std::vector<unsigned> mini;
    if (!FollowChain(Start(0), &mini)) return false;
    miniStoreSize_ = static_cast<long long>(mini.size()) * sector_;
    return Size(0) <= miniStoreSize_;
  }

  bool LoadMiniFat(unsigned start) {
    std::vector<unsigned> sectors;
    if (start != kEndOfChain && !FollowChain(start, &sectors)) return false;
    std::vector<unsigned char> block(static_cast<std::size_t>(sector_));
    for (const unsigned sector : sectors) {
      if (!ReadSector(sector, block.data())) return false;
      for (long long i = 0; i < sector_ / 4; ++i) miniFat_.push_back(Load32(block.data() + 4 * i));
    }
    return true;
  }

  const unsigned char* Entry(unsigned index) const { return directory_.data() + index * kEntryBytes; }
  unsigned Type(unsigned index) const { return Entry(index)[0x42]; }
  unsigned Start(unsigned index) const { return Load32(Entry(index) + 0x74); }
  // Only the low half counts in documents of 512-byte sectors.
  long long Size(unsigned index) const {
    const long long low = Load32(Entry(index) + 0x78);
    return sector_ == 512 ? low : low | static_cast<long long>(Load32(Entry(index) + 0x7C)) << 32;
  }

  bool CheckStream(unsigned index) {
    const long long size = Size(index);
    if (size == 0) return true;
    if (size > fileSize_) return false;
    if (size < miniCutoff_) {
      // Small streams live in the root's store, in small sectors.
      miniMark_.resize(miniFat_.size(), 0);
      ++chainId_;
      long long covered = 0;
      for (unsigned sector = Start(index); sector != kEndOfChain; sector = miniFat_[sector]) {
        if (sector >= miniFat_.size() || miniMark_[sector] == chainId_) return false;
        if ((static_cast<long long>(sector) + 1) * miniSector_ > miniStoreSize_) return false;
        miniMark_[sector] = chainId_;
        covered += miniSector_;
      }
      return covered >= size;
    }
    std::vector<unsigned> sectors;
    if (!FollowChain(Start(index), &sectors)) return false;
    return static_cast<long long>(sectors.size()) * sector_ >= size;
  }

  // Every entry reached from the root once, through valid links.
  bool CheckTree() {
    std::vector<char> seen(entryCount_, 0);
    std::vector<unsigned> pending = {Load32(Entry(0) + 0x4C)};
    seen[0] = 1;
    while (!pending.empty()) {
      const unsigned index = pending.back();
      pending.pop_back();
      if (index == kNoStream) continue;
      if (index >= entryCount_ || seen[index]) return false;
      seen[index] = 1;
      ++reached_;
      const unsigned type = Type(index);
      const unsigned nameBytes = Load16(Entry(index) + 0x40);
      if ((type != 1 && type != 2) || nameBytes < 2 || nameBytes > 64) return false;
      if (type == 2 && !CheckStream(index)) return false;
      pending.push_back(Load32(Entry(index) + 0x44));
      pending.push_back(Load32(Entry(index) + 0x48));
      if (type == 1) pending.push_back(Load32(Entry(index) + 0x4C));
    }
    return true;
  }

  std::FILE* file_;
  long long fileSize_;
  long long sector_ = 512;
  long long miniSector_ = 64;
  long long sectorCount_ = 0;
  long long miniCutoff_ = 4096;
  long long miniStoreSize_ = 0;
  std::vector<unsigned> fat_;
  std::vector<unsigned> miniFat_;
  std::vector<unsigned char> directory_;
  unsigned entryCount_ = 0;
  int reached_ = 0;
  // The chain that last passed each sector, to find loops.
  std::vector<unsigned> chainMark_;
  std::vector<unsigned> miniMark_;
  unsigned chainId_ = 0;
};

}  // namespace

bool HasSoundStructure(std::FILE* file, long long fileSize, int* entries) {
  try {
    Checker checker(file, fileSize);
    const bool sound = checker.Run();
    *entries = checker.Reached();
    std::rewind(file);
    return sound;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace qorc::platform::posix
