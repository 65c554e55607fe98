// The qor commands. Each returns false with the failure pending as the
// library's error (or, for commands over several files, an exit code after
// reporting each failure itself).
#ifndef QOR_COMMANDS_H
#define QOR_COMMANDS_H

#include <string>
#include <vector>

namespace qor {

// Block-compressed files.
// jobs: threads compressing blocks (1: the writing thread alone).
bool Pack(const std::string& in, const std::string& out, bool replace, int jobs);
bool Unpack(const std::string& in, const std::string& out, bool replace);
// length < 0: up to the end.
bool Cat(const std::string& file, long long offset, long long length);
int Check(const std::vector<std::string>& files);
bool Info(const std::string& file, bool listBlocks);

// Shielded data and checksums.
bool Shield(const std::string& in, const std::string& out, bool replace);
bool Unshield(const std::string& in, const std::string& out, bool replace);
enum class Checksum { kCrc32, kAdler32 };
int PrintChecksums(Checksum kind, const std::vector<std::string>& files);

// Textbook RSA.
bool RsaKeygen(int bits, const std::string& prefix, unsigned int seed, bool replace);
bool RsaEncrypt(const std::string& key, const std::string& in, const std::string& out, bool raw, bool replace);
bool RsaDecrypt(const std::string& key, const std::string& in, const std::string& out, bool raw, bool replace);

// Lock files: the lockers of a document, and the removal of the entries of
// this machine's processes that are gone.
bool LockStatus(const std::string& document);
bool LockClearStale(const std::string& document, bool yes);

// Settings: the user's and the machine's stores (files given by path, else
// the conventional ones). Key paths begin with a root name
// (HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_CLASSES_ROOT); without one
// they are under the user's root, or the machine's with `machine`.
struct RegStore {
  std::string userPath;
  std::string machinePath;
  bool machine = false;
};
bool RegList(const RegStore& store, const std::string& key);
bool RegGet(const RegStore& store, const std::string& key, const std::string& entry);
bool RegExport(const RegStore& store, const std::string& key, const std::string& file);
bool RegImport(const RegStore& store, const std::string& file);

// Compound documents: the stream "Contents" that the library's files use.
bool StorageList(const std::string& document);
bool StorageGet(const std::string& document, const std::string& out, bool replace);
bool StoragePut(const std::string& document, const std::string& in);

// Serial lines. lines < 0: until interrupted.
bool SerialPorts();
bool SerialRead(const std::string& port, unsigned int baud, long long lines);
bool SerialSend(const std::string& port, unsigned int baud, const std::string& text);

}  // namespace qor

#endif
