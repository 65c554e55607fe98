// lock, reg, storage and serial: the library's lock files, settings stores,
// compound documents and serial lines.
#include <algorithm>
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

// Key paths are written with "\" in stores; "/" is accepted too.
C_STRING KeyPath(const std::string& key) {
  C_STRING path = LibraryText(key);
  path.ReplaceAll(C_CHAR(u'/'), C_CHAR(u'\\'));
  return path;
}

// Opens the store of a reg command and a key in it.
bool OpenKey(const RegStore& store, const std::string& key, C_REGKEY::MODE mode, bool create, C_REGKEY* opened) {
  const C_STRING path = store.path.empty()
                            ? C_REGKEY::DefaultStorePath(store.machine ? C_REGKEY::MACHINE : C_REGKEY::USER)
                            : LibraryText(store.path);
  const C_REGKEY::HANDLE root = C_REGKEY::OpenStore(path);
  if (root == nullptr) return false;
  opened->Open(root, KeyPath(key), mode, create);
  if (C_ERROR::Is()) {
    C_ERROR::ClearPending();
    return Fail(CerrStringNotFound, "no key " + key + " in " + Utf8(path));
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
  if (!OpenKey(store, key, C_REGKEY::READ, false, &opened)) return false;
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
  if (!OpenKey(store, key, C_REGKEY::READ, false, &opened) || !scratch.BeginScratch("the copy of " + key)) return false;
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
  if (!OpenKey(store, key, C_REGKEY::READ, false, &opened)) return false;
  CregkeyExport(&opened, LibraryText(file));
  return !C_ERROR::Is();
}

bool RegImport(const RegStore& store, const std::string& file) {
  // The first section names the key that the file describes.
  std::vector<std::string> lines;
  if (!ReadRegLines(file, &lines)) return false;
  std::string section;
  for (const std::string& line : lines) {
    if (line.size() > 2 && line[0] == '[' && line.back() == ']') {
      section = line.substr(1, line.size() - 2);
      break;
    }
  }
  const std::string user = "HKEY_CURRENT_USER";
  const std::string machine = "HKEY_LOCAL_MACHINE";
  RegStore target = store;
  std::string key;
  if (section.compare(0, user.size(), user) == 0) {
    key = section.substr(user.size());
  } else if (section.compare(0, machine.size(), machine) == 0) {
    key = section.substr(machine.size());
    target.machine = target.machine || store.path.empty();
  } else {
    return Fail(CerrFileContainsInvalidCode,
                file + ": no [HKEY_CURRENT_USER\\...] or [HKEY_LOCAL_MACHINE\\...] section");
  }
  if (!key.empty() && key[0] == '\\') key.erase(0, 1);
  C_REGKEY opened;
  if (!OpenKey(target, key, C_REGKEY::READ_WRITE, true, &opened)) return false;
  CregkeyImport(&opened, LibraryText(file));
  if (C_ERROR::Is()) return false;
  std::printf("%s imported into %s\n", file.c_str(), key.c_str());
  return true;
}

// Compound documents ----------------------------------------------------------------------

namespace {

// The directory of a compound document, read as plain bytes as any reader of
// the format can: the library's storages open children by name but do not
// list them. Layout: a 512-byte header (signature, sector size, the first
// 109 sectors of the allocation table and the chain of the rest), the
// allocation table chaining sectors, and directory entries of 128 bytes
// (UTF-16 name, type, left and right siblings, first child, size) forming a
// tree from the root entry.
struct CompoundEntry {
  std::string name;
  int type = 0;  // 1 storage, 2 stream, 5 root
  unsigned int left = 0;
  unsigned int right = 0;
  unsigned int child = 0;
  unsigned long long size = 0;
};

constexpr unsigned int kNoSector = 0xFFFFFFFA;  // this and above: end of chain or special
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

bool ReadCompoundDirectory(const std::string& name, std::vector<CompoundEntry>* entries) {
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
  if (got != kCompoundHeaderSize || std::memcmp(header.data(), kSignature, 8) != 0 || (shift != 9 && shift != 12)) {
    return NotCompound(name);
  }
  const int sectorSize = 1 << shift;
  const std::size_t perSector = static_cast<std::size_t>(sectorSize) / 4;
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
  std::vector<unsigned int> table;
  for (unsigned int i = 0; i < tableCount; ++i) {
    if (i >= tableSectors.size() || !ReadSector(&file, fileSize, tableSectors[i], sectorSize, &sector)) {
      return NotCompound(name);
    }
    for (std::size_t j = 0; j < perSector; ++j) table.push_back(Load32(&sector[4 * j]));
  }
  // The directory's own chain of sectors.
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

}  // namespace

bool StorageList(const std::string& document) {
  std::vector<CompoundEntry> entries;
  if (!ReadCompoundDirectory(document, &entries)) return false;
  std::vector<bool> seen(entries.size(), false);
  seen[0] = true;
  return PrintCompoundTree(entries, entries[0].child, "", 0, &seen) || NotCompound(document);
}

bool StorageGet(const std::string& document, const std::string& out, bool replace) {
  IStorage* storage = IStorage::Open(LibraryText(document), false);
  if (storage == nullptr) return false;
  Output output;
  bool done = output.Open(out, replace);
  if (done) {
    C_FILE contents(storage, C_FILE::READ);
    // The stream as it is, also when it holds a compressed file (opening
    // then leaves the position behind the format's header).
    contents.SetPosit(0);
    std::vector<unsigned char> chunk(kChunkSize);
    int got = kChunkSize;
    while (done && got == kChunkSize && !C_ERROR::Is()) {
      contents.Read(kChunkSize, chunk.data(), &got);
      if (CerrFileEndReached.IsPending()) C_ERROR::ClearPending();
      done = !C_ERROR::Is() && output.Write(got, chunk.data());
    }
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
