// lock, reg, storage and serial: the library's lock files, settings stores,
// compound documents and serial lines.
#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

#include "commands.h"
#include "support.h"

namespace qor {

namespace {

// Name arrays handed out by the library, released with delete[].
using Names = std::unique_ptr<C_STRING[]>;

const char* LockerState(const C_STRING& locker) {
  const int alive = C_FILE::IsLockerAlive(locker);
  if (alive == 1) return "running";
  if (alive == 0) return "gone (stale)";
  return "unknown (another machine)";
}

bool UserAgrees(const std::string& question) {
  std::fprintf(stderr, "%s [y/N] ", question.c_str());
  std::fflush(stderr);
  char answer[16] = {0};
  if (std::fgets(answer, sizeof answer, stdin) == nullptr) return false;
  return answer[0] == 'y' || answer[0] == 'Y';
}

// A key as the command line names it: the root whose store holds it and the
// path below that root.
struct KeyInStore {
  bool machine = false;
  C_STRING below;
};

// Root names are ASCII and compare without case.
bool SameRootName(const std::string& name, const std::string& root) {
  return name.size() == root.size() && std::equal(name.begin(), name.end(), root.begin(), [](char a, char b) {
           return std::toupper(static_cast<unsigned char>(a)) == std::toupper(static_cast<unsigned char>(b));
         });
}

// Reads the root name a key path begins with, as the registry editor's files
// name them; a path without one is under the root the options choose.
bool ResolveKey(const RegStore& store, const std::string& key, KeyInStore* found) {
  std::string path = key;
  std::replace(path.begin(), path.end(), '/', '\\');
  const std::size_t slash = path.find('\\');
  const std::string first = path.substr(0, slash);
  const std::string rest = slash == std::string::npos ? std::string() : path.substr(slash + 1);
  found->machine = store.machine;
  found->below = LibraryText(path);
  if (SameRootName(first, "HKEY_CURRENT_USER") || SameRootName(first, "HKEY_LOCAL_MACHINE")) {
    found->machine = SameRootName(first, "HKEY_LOCAL_MACHINE");
    found->below = LibraryText(rest);
  } else if (SameRootName(first, "HKEY_CLASSES_ROOT")) {
    // The machine's Software\Classes, as Windows merges it.
    found->machine = true;
    found->below = LibraryText(rest.empty() ? "Software\\Classes" : "Software\\Classes\\" + rest);
  } else if (SameRootName(first, "HKEY_USERS") || SameRootName(first, "HKEY_CURRENT_CONFIG")) {
    return Fail(CerrStringNotFound, first +
                                        " is not kept here: keys belong under HKEY_CURRENT_USER, "
                                        "HKEY_LOCAL_MACHINE or HKEY_CLASSES_ROOT");
  }
  return true;
}

// The store of a root, as the options name it: a file, or a database's URI.
C_STRING StorePath(const RegStore& store, bool machine) {
  const std::string& given = machine ? store.machinePath : store.userPath;
  return given.empty() ? C_REGKEY::DefaultStorePath(machine ? C_REGKEY::MACHINE : C_REGKEY::USER) : LibraryText(given);
}

// The store of a root as messages name it: never with a password; the root's
// own name where the system registry holds it.
std::string ShownStore(const RegStore& store, bool machine) {
  const C_STRING path = StorePath(store, machine);
  if (path.IsVoid()) return machine ? "HKEY_LOCAL_MACHINE" : "HKEY_CURRENT_USER";
  return Utf8(C_REGKEY::ShownStoreName(path));
}

// Opens the store of a root and makes it the library's root, so that
// exports name their keys under it. Where the root has no conventional store
// file (Windows, whose roots are the registry's own), the root serves as it
// is and `root` stays null.
bool OpenRoot(const RegStore& store, bool machine, C_REGKEY::HANDLE* root) {
  *root = nullptr;
  const C_STRING path = StorePath(store, machine);
  if (path.IsVoid()) return true;
  *root = C_REGKEY::OpenStore(path);
  if (*root == nullptr) return false;
  machine ? C_REGKEY::InitMachine(*root) : C_REGKEY::InitUser(*root);
  return true;
}

// Opens the store of a reg command's key and the key in it.
bool OpenKey(const RegStore& store, const std::string& key, C_REGKEY::MODE mode, C_REGKEY* opened) {
  KeyInStore found;
  if (!ResolveKey(store, key, &found)) return false;
  C_REGKEY::HANDLE root = nullptr;
  if (!OpenRoot(store, found.machine, &root)) return false;
  if (root != nullptr) {
    opened->Open(root, found.below, mode, false);
  } else {
    opened->Open(found.machine ? C_REGKEY::MACHINE : C_REGKEY::USER, found.below, mode, false);
  }
  if (C_ERROR::Is()) {
    C_ERROR::ClearPending();
    return Fail(CerrStringNotFound, "no key " + key + " in " + ShownStore(store, found.machine));
  }
  return true;
}

// The lines of a registry editor file (UTF-16 with its mark), as the
// library reads text files.
bool ReadRegLines(const std::string& path, std::vector<std::string>* lines) {
  C_FILE file(LibraryText(path), C_FILE::READ, C_FILE::AUTO);
  C_STRING line;
  while (!C_ERROR::Is()) {
    file.Read(&line);
    if (!C_ERROR::Is()) lines->push_back(Utf8(line));
  }
  if (!CerrFileEndReached.IsPending()) return false;
  C_ERROR::ClearPending();
  return true;
}

}  // namespace

// Lock files ---------------------------------------------------------------------------

bool LockStatus(const std::string& document) {
  int count = 0;
  C_STRING* lockers = nullptr;
  C_FILE::GetLockers(LibraryText(document), &count, &lockers);
  const Names owned(lockers);
  if (C_ERROR::Is()) return false;
  if (count == 0) std::printf("%s: not locked\n", document.c_str());
  for (int i = 0; i < count; ++i) std::printf("%s  %s\n", Utf8(lockers[i]).c_str(), LockerState(lockers[i]));
  return true;
}

bool LockClearStale(const std::string& document, bool yes) {
  const C_STRING path = LibraryText(document);
  int count = 0;
  C_STRING* lockers = nullptr;
  C_FILE::GetLockers(path, &count, &lockers);
  const Names owned(lockers);
  if (C_ERROR::Is()) return false;
  std::vector<C_STRING> stale;
  for (int i = 0; i < count; ++i) {
    if (static_cast<int>(C_FILE::IsLockerAlive(lockers[i])) == 0) stale.push_back(lockers[i]);
  }
  if (stale.empty()) {
    std::printf("%s: no stale entries\n", document.c_str());
    return true;
  }
  for (const C_STRING& locker : stale) std::printf("%s  gone (stale)\n", Utf8(locker).c_str());
  if (!yes && !UserAgrees("Remove " + std::to_string(stale.size()) + " stale entries from " + document + ".lck?")) {
    std::printf("nothing removed\n");
    return true;
  }
  C_FILE::RemoveLockers(path, static_cast<int>(stale.size()), stale.data());
  if (C_ERROR::Is() || ReportedFailures() > 0) return false;
  std::printf("%zu stale entries removed\n", stale.size());
  return true;
}

// Settings -------------------------------------------------------------------------------

bool RegList(const RegStore& store, const std::string& key) {
  C_REGKEY opened;
  if (!OpenKey(store, key, C_REGKEY::READ, &opened)) return false;
  int count = 0;
  C_STRING* names = nullptr;
  opened.GetSubkeys(&count, &names);
  Names subkeys(names);
  for (int i = 0; i < count && !C_ERROR::Is(); ++i) std::printf("%s\\\n", Utf8(names[i]).c_str());
  opened.GetEntries(&count, &names);
  Names entries(names);
  for (int i = 0; i < count && !C_ERROR::Is(); ++i) {
    std::printf("%s\n", names[i].IsVoid() ? "@" : ("\"" + Utf8(names[i]) + "\"").c_str());
  }
  return !C_ERROR::Is();
}

bool RegGet(const RegStore& store, const std::string& key, const std::string& entry) {
  C_REGKEY opened;
  StagedFile scratch;
  if (!OpenKey(store, key, C_REGKEY::READ, &opened) || !scratch.BeginScratch("the copy of " + key)) return false;
  // The entry as the registry editor's file shows it: the library's export
  // writes every type of entry in that form.
  CregkeyExport(&opened, LibraryText(scratch.Path()));
  std::vector<std::string> lines;
  if (C_ERROR::Is() || !ReadRegLines(scratch.Path(), &lines)) return false;
  const std::string start = entry.empty() ? "@=" : "\"" + entry + "\"=";
  bool inFirstSection = false;
  bool printing = false;
  for (const std::string& line : lines) {
    if (!line.empty() && line[0] == '[') {
      if (inFirstSection) break;
      inFirstSection = true;
      continue;
    }
    if (!printing && inFirstSection && line.size() >= start.size() &&
        LibraryText(line.substr(0, start.size())).CompareNoCase(LibraryText(start)) == 0) {
      printing = true;
    }
    if (printing) {
      std::printf("%s\n", line.c_str());
      // Long binary values go on over lines that end with "\".
      if (line.empty() || line.back() != '\\') return true;
    }
  }
  if (printing) return true;
  return Fail(CerrStringNotFound, "no entry " + (entry.empty() ? std::string("@") : entry) + " in " + key);
}

bool RegExport(const RegStore& store, const std::string& key, const std::string& file) {
  C_REGKEY opened;
  if (!OpenKey(store, key, C_REGKEY::READ, &opened)) return false;
  CregkeyExport(&opened, LibraryText(file));
  return !C_ERROR::Is();
}

bool RegImport(const RegStore& store, const std::string& file) {
  // The file is checked first, so that a refused file opens no store (and
  // makes none that is missing); then only the stores it names are opened.
  const C_STRING path = LibraryText(file);
  C_BOOL names[2] = {false, false};
  CregkeyCheck(path, &names[0], &names[1]);
  if (C_ERROR::Is()) return false;
  std::string stores;
  for (const bool machine : {false, true}) {
    if (!names[machine]) continue;
    C_REGKEY::HANDLE root = nullptr;
    if (!OpenRoot(store, machine, &root)) return false;
    stores += std::string(stores.empty() ? "" : ", ") + (machine ? "HKEY_LOCAL_MACHINE" : "HKEY_CURRENT_USER") +
              " into " + ShownStore(store, machine);
  }
  CregkeyImport(path);
  if (C_ERROR::Is()) return false;
  std::printf("%s imported%s%s\n", file.c_str(), stores.empty() ? " (no keys)" : ": ", stores.c_str());
  return true;
}

// Compound documents ----------------------------------------------------------------------

namespace {

// The directory of a compound document, read as plain bytes as any reader of
// the format can: the library's storages open children by name but do not
// list them. Layout: a 512-byte header (signature, sector sizes, the first
// 109 sectors of the allocation table and the chain of the rest, the small
// streams' table), the allocation table chaining sectors, and directory
// entries of 128 bytes (UTF-16 name, type, left and right siblings, first
// child, first sector, size) forming a tree from the root entry. Streams
// shorter than the cutoff live in small sectors inside the root entry's
// stream, chained by the small streams' table.
struct CompoundEntry {
  std::string name;
  int type = 0;  // 1 storage, 2 stream, 5 root
  unsigned int left = 0;
  unsigned int right = 0;
  unsigned int child = 0;
  unsigned int start = 0;
  unsigned long long size = 0;
};

struct CompoundDocument {
  std::vector<CompoundEntry> entries;
  std::vector<unsigned int> table;  // the allocation table
  long long fileSize = 0;
  int sectorSize = 0;
  int smallSectorSize = 0;
  unsigned int cutoff = 0;  // streams below this size are in small sectors
  unsigned int smallTableStart = 0;
};

constexpr unsigned int kNoSector = 0xFFFFFFFA;  // this and above: end of chain or special
constexpr unsigned int kEndOfChain = 0xFFFFFFFE;
constexpr unsigned int kNoEntry = 0xFFFFFFFF;
constexpr int kCompoundHeaderSize = 512;
constexpr int kDirectoryEntrySize = 128;
constexpr int kHeaderTableEntries = 109;

unsigned int Load32(const unsigned char* bytes) {
  return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<unsigned int>(bytes[3]) << 24;
}

bool NotCompound(const std::string& name) {
  return Fail(CerrFileContainsInvalidCode, name + " is not a sound compound document");
}

bool ReadSector(C_FILE* file, long long fileSize, unsigned int sector, int sectorSize,
                std::vector<unsigned char>* out) {
  const long long offset = (static_cast<long long>(sector) + 1) * sectorSize;
  if (sector >= kNoSector || offset + sectorSize > fileSize) return false;
  out->resize(static_cast<std::size_t>(sectorSize));
  file->SetPosit(offset);
  int got = 0;
  file->Read(sectorSize, out->data(), &got);
  return !C_ERROR::Is() && got == sectorSize;
}

bool ReadCompoundDirectory(const std::string& name, CompoundDocument* document) {
  static const unsigned char kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
  C_FILE file(LibraryText(name), C_FILE::READ, C_FILE::BINARY);
  if (C_ERROR::Is()) return false;
  const long long fileSize = file.GetSize();
  std::vector<unsigned char> header(kCompoundHeaderSize);
  int got = 0;
  file.Read(kCompoundHeaderSize, header.data(), &got);
  if (CerrFileEndReached.IsPending()) C_ERROR::ClearPending();
  if (C_ERROR::Is()) return false;
  const int shift = header[0x1E] | header[0x1F] << 8;
  const int smallShift = header[0x20] | header[0x21] << 8;
  if (got != kCompoundHeaderSize || std::memcmp(header.data(), kSignature, 8) != 0 || (shift != 9 && shift != 12) ||
      smallShift < 2 || smallShift >= shift) {
    return NotCompound(name);
  }
  const int sectorSize = 1 << shift;
  const std::size_t perSector = static_cast<std::size_t>(sectorSize) / 4;
  document->fileSize = fileSize;
  document->sectorSize = sectorSize;
  document->smallSectorSize = 1 << smallShift;
  document->cutoff = Load32(&header[0x38]);
  document->smallTableStart = Load32(&header[0x3C]);
  // The sectors of the allocation table: in the header, then along their own chain.
  std::vector<unsigned int> tableSectors;
  for (int i = 0; i < kHeaderTableEntries; ++i) tableSectors.push_back(Load32(&header[0x4C + 4 * i]));
  std::vector<unsigned char> sector;
  unsigned int more = Load32(&header[0x44]);
  for (unsigned int hops = 0; more < kNoSector; ++hops) {
    if (hops > fileSize / sectorSize || !ReadSector(&file, fileSize, more, sectorSize, &sector))
      return NotCompound(name);
    for (std::size_t i = 0; i + 1 < perSector; ++i) tableSectors.push_back(Load32(&sector[4 * i]));
    more = Load32(&sector[4 * (perSector - 1)]);
  }
  const unsigned int tableCount = Load32(&header[0x2C]);
  std::vector<unsigned int>& table = document->table;
  for (unsigned int i = 0; i < tableCount; ++i) {
    if (i >= tableSectors.size() || !ReadSector(&file, fileSize, tableSectors[i], sectorSize, &sector)) {
      return NotCompound(name);
    }
    for (std::size_t j = 0; j < perSector; ++j) table.push_back(Load32(&sector[4 * j]));
  }
  // The directory's own chain of sectors.
  std::vector<CompoundEntry>* entries = &document->entries;
  for (unsigned int at = Load32(&header[0x30]), hops = 0; at < kNoSector; at = table[at], ++hops) {
    if (at >= table.size() || hops > table.size() || !ReadSector(&file, fileSize, at, sectorSize, &sector)) {
      return NotCompound(name);
    }
    for (int offset = 0; offset + kDirectoryEntrySize <= sectorSize; offset += kDirectoryEntrySize) {
      const unsigned char* raw = &sector[static_cast<std::size_t>(offset)];
      CompoundEntry entry;
      const int nameBytes = std::min(64, raw[0x40] | raw[0x41] << 8);
      C_STRING text;
      for (int i = 0; i + 1 < nameBytes - 1; i += 2) text += C_CHAR(static_cast<char16_t>(raw[i] | raw[i + 1] << 8));
      entry.name = Utf8(text);
      entry.type = raw[0x42];
      entry.left = Load32(raw + 0x44);
      entry.right = Load32(raw + 0x48);
      entry.child = Load32(raw + 0x4C);
      entry.start = Load32(raw + 0x74);
      entry.size = Load32(raw + 0x78);
      if (shift == 12) entry.size |= static_cast<unsigned long long>(Load32(raw + 0x7C)) << 32;
      entries->push_back(entry);
    }
  }
  if (entries->empty() || (*entries)[0].type != 5) return NotCompound(name);
  return true;
}

// A sound tree is balanced and shallow; a damaged one may chain every entry.
constexpr int kDeepestTree = 2048;

// Prints the entries of one storage, in the order of the directory's tree,
// and the storages under it; `seen` stops at loops of a damaged tree. False
// when the tree is deeper than any sound document's.
bool PrintCompoundTree(const std::vector<CompoundEntry>& entries, unsigned int at, const std::string& prefix, int depth,
                       std::vector<bool>* seen) {
  if (at == kNoEntry || at >= entries.size() || (*seen)[at]) return true;
  if (depth > kDeepestTree) return false;
  (*seen)[at] = true;
  const CompoundEntry& entry = entries[at];
  if (!PrintCompoundTree(entries, entry.left, prefix, depth + 1, seen)) return false;
  if (entry.type == 1) {
    std::printf("%s%s/\n", prefix.c_str(), entry.name.c_str());
    if (!PrintCompoundTree(entries, entry.child, prefix + entry.name + "/", depth + 1, seen)) return false;
  } else if (entry.type == 2) {
    std::printf("%s%s  %llu bytes\n", prefix.c_str(), entry.name.c_str(), entry.size);
  }
  return PrintCompoundTree(entries, entry.right, prefix, depth + 1, seen);
}

// The streams of one storage and of the storages under it, as paths, each
// entry once.
void CollectStreams(const std::vector<CompoundEntry>& entries, unsigned int at, const std::string& prefix,
                    std::vector<bool>* seen, std::vector<std::pair<std::string, unsigned int>>* streams) {
  std::vector<std::pair<unsigned int, std::string>> pending{{at, prefix}};
  while (!pending.empty()) {
    const auto [index, path] = pending.back();
    pending.pop_back();
    if (index == kNoEntry || index >= entries.size() || (*seen)[index]) continue;
    (*seen)[index] = true;
    const CompoundEntry& entry = entries[index];
    if (entry.type == 2) streams->push_back({path + entry.name, index});
    if (entry.type == 1) pending.push_back({entry.child, path + entry.name + "/"});
    pending.push_back({entry.left, path});
    pending.push_back({entry.right, path});
  }
}

// The index of the stream "Contents" in the document's root storage, or -1.
long FindContents(const std::vector<CompoundEntry>& entries) {
  std::vector<bool> seen(entries.size(), false);
  std::vector<unsigned int> pending{entries[0].child};
  while (!pending.empty()) {
    const unsigned int index = pending.back();
    pending.pop_back();
    if (index == kNoEntry || index >= entries.size() || seen[index]) continue;
    seen[index] = true;
    if (entries[index].type == 2 && LibraryText(entries[index].name).CompareNoCase(C_STRING(u"Contents")) == 0) {
      return static_cast<long>(index);
    }
    pending.push_back(entries[index].left);
    pending.push_back(entries[index].right);
  }
  return -1;
}

// Follows a chain of `table` from `start` over `count` units of `unitSize`
// bytes inside `limit` bytes: what is wrong with it, or "" when it holds the
// `size` bytes it must.
std::string ChainFault(const std::vector<unsigned int>& table, unsigned int start, long long limit, int unitSize,
                       unsigned long long size, bool partialLastUnit) {
  std::vector<bool> seen(table.size(), false);
  unsigned long long held = 0;
  for (unsigned int at = start; held < size; at = table[at]) {
    if (at == kEndOfChain || at >= kNoSector) {
      return "its chain of sectors ends after " + std::to_string(held) + " bytes, but it has " + std::to_string(size);
    }
    const long long offset = static_cast<long long>(at) * unitSize;
    if (at >= table.size() || offset >= limit || (!partialLastUnit && offset + unitSize > limit)) {
      return "its chain of sectors leaves the file at sector " + std::to_string(at);
    }
    if (seen[at]) return "its chain of sectors runs in a loop at sector " + std::to_string(at);
    seen[at] = true;
    held += static_cast<unsigned long long>(unitSize);
  }
  return "";
}

// What keeps a stream from being read, or "" when nothing is found.
std::string StreamFault(const std::string& name, const CompoundDocument& document, unsigned int index) {
  const CompoundEntry& entry = document.entries[index];
  if (entry.size == 0) return "";
  if (entry.size > static_cast<unsigned long long>(document.fileSize)) {
    return "it claims " + std::to_string(entry.size) + " bytes, more than the whole file";
  }
  // Sectors follow the header; the last one may be cut short by the end of the file.
  const long long sectorArea = document.fileSize - document.sectorSize;
  if (entry.size >= document.cutoff) {
    return ChainFault(document.table, entry.start, sectorArea, document.sectorSize, entry.size, true);
  }
  // A small stream: the small streams' table, then the chain in the root's store.
  std::vector<unsigned int> smallTable;
  C_FILE file(LibraryText(name), C_FILE::READ, C_FILE::BINARY);
  if (C_ERROR::Is()) return "";
  std::vector<unsigned char> sector;
  std::vector<bool> seen(document.table.size(), false);
  for (unsigned int at = document.smallTableStart; at < kNoSector; at = document.table[at]) {
    if (at >= document.table.size() || seen[at] ||
        !ReadSector(&file, document.fileSize, at, document.sectorSize, &sector)) {
      C_ERROR::ClearPending();
      return "the table of small sectors cannot be followed (sector " + std::to_string(at) + ")";
    }
    seen[at] = true;
    for (std::size_t i = 0; i + 4 <= sector.size(); i += 4) smallTable.push_back(Load32(&sector[i]));
  }
  const std::string store = ChainFault(document.table, document.entries[0].start, sectorArea, document.sectorSize,
                                       document.entries[0].size, true);
  if (!store.empty()) return "the store of small streams is damaged: " + store;
  return ChainFault(smallTable, entry.start, static_cast<long long>(document.entries[0].size), document.smallSectorSize,
                    entry.size, false);
}

// Why the library refuses a document whose directory lists: the first
// stream found damaged, Contents first.
std::string DocumentFault(const std::string& name, const CompoundDocument& document, long contents) {
  std::vector<std::pair<std::string, unsigned int>> streams;
  if (contents >= 0) streams.push_back({"Contents", static_cast<unsigned int>(contents)});
  std::vector<bool> seen(document.entries.size(), false);
  seen[0] = true;
  CollectStreams(document.entries, document.entries[0].child, "", &seen, &streams);
  for (const auto& [path, index] : streams) {
    const std::string fault = StreamFault(name, document, index);
    if (!fault.empty()) return "the stream " + path + " cannot be read: " + fault;
  }
  return "its structure is refused (an allocation table or the directory tree is damaged), although its "
         "directory can be listed";
}

}  // namespace

bool StorageList(const std::string& document) {
  CompoundDocument read;
  if (!ReadCompoundDirectory(document, &read)) return false;
  std::vector<bool> seen(read.entries.size(), false);
  seen[0] = true;
  return PrintCompoundTree(read.entries, read.entries[0].child, "", 0, &seen) || NotCompound(document);
}

bool StorageGet(const std::string& document, const std::string& out, bool replace) {
  // The directory first: it tells a document without Contents, and why a
  // document the library refuses cannot be read.
  CompoundDocument read;
  if (!ReadCompoundDirectory(document, &read)) return false;
  const long contents = FindContents(read.entries);
  IStorage* storage = IStorage::Open(LibraryText(document), false);
  if (storage == nullptr) {
    C_ERROR::ClearPending();
    return Fail(CerrFileCannotRead, document + ": " + DocumentFault(document, read, contents));
  }
  if (contents < 0) {
    storage->Release();
    return Fail(CerrFileNotFound, document + " has no stream Contents in its root storage (see qor storage list)");
  }
  Output output;
  bool done = output.Open(out, replace);
  if (done) {
    C_FILE stream(storage, C_FILE::READ);
    // A stream shorter than the compressed format's header ends while the
    // file object looks for it: that is no failure.
    if (CerrFileEndReached.IsPending()) C_ERROR::ClearPending();
    // The stream as it is, also when it holds a compressed file (opening
    // then leaves the position behind the format's header).
    stream.SetPosit(0);
    std::vector<unsigned char> chunk(kChunkSize);
    int got = kChunkSize;
    while (done && got == kChunkSize && !C_ERROR::Is()) {
      stream.Read(kChunkSize, chunk.data(), &got);
      if (CerrFileEndReached.IsPending()) C_ERROR::ClearPending();
      done = !C_ERROR::Is() && output.Write(got, chunk.data());
    }
    if (C_ERROR::Is()) AddContextToPending(document + ": the stream Contents");
  }
  storage->Release();
  return done && output.Finish();
}

bool StoragePut(const std::string& document, const std::string& in) {
  Input input;
  if (!input.Open(in)) return false;
  IStorage* storage = IStorage::Open(LibraryText(document), true);
  if (storage == nullptr) return false;
  bool done = true;
  {
    // UPDATE makes the stream anew; the file commits the document when it
    // is destroyed, and the commit below tells whether that could be done.
    C_FILE contents(storage, C_FILE::UPDATE);
    std::vector<unsigned char> chunk(kChunkSize);
    int got = kChunkSize;
    while (done && got == kChunkSize) {
      done = input.Read(kChunkSize, chunk.data(), &got);
      if (done) contents.Write(got, chunk.data());
      done = done && !C_ERROR::Is();
    }
  }
  if (done && !storage->Commit(IStorage::COMMIT_DEFAULT)) {
    done = Fail(CerrFileCannotWrite, document + ": the document could not be written");
  }
  storage->Release();
  return done;
}

// Serial lines -----------------------------------------------------------------------------

namespace {

volatile std::sig_atomic_t interrupted = 0;
void NoteInterruption(int) { interrupted = 1; }

}  // namespace

bool SerialPorts() {
  int count = 0;
  C_STRING* names = nullptr;
  C_SERIAL::GetSerialPorts(&count, &names);
  const Names owned(names);
  for (int i = 0; i < count; ++i) std::printf("%s\n", Utf8(names[i]).c_str());
  return !C_ERROR::Is();
}

bool SerialRead(const std::string& port, unsigned int baud, long long lines) {
  C_SERIAL serial(LibraryText(port), static_cast<C_SERIAL::BAUDRATE>(baud), C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  if (C_ERROR::Is()) return false;
  // Interruption ends the reading; the port is closed as usual.
  std::signal(SIGINT, NoteInterruption);
  std::signal(SIGTERM, NoteInterruption);
  C_STRING line;
  for (long long read = 0; (lines < 0 || read < lines) && interrupted == 0;) {
    serial.Read(&line);
    if (C_ERROR::Is()) return false;
    // A silent instrument gives an empty line after a second: keep waiting.
    if (line.IsVoid()) continue;
    std::printf("%s\n", Utf8(line).c_str());
    std::fflush(stdout);
    ++read;
  }
  return true;
}

bool SerialSend(const std::string& port, unsigned int baud, const std::string& text) {
  C_SERIAL serial(LibraryText(port), static_cast<C_SERIAL::BAUDRATE>(baud), C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  if (!C_ERROR::Is()) serial.Write(LibraryText(text));
  return !C_ERROR::Is();
}

}  // namespace qor
