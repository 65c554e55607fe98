// The qor commands. Each returns false with the failure pending as the
// library's error (or, for commands over several files, an exit code after
// reporting each failure itself).
#ifndef QOR_COMMANDS_H
#define QOR_COMMANDS_H

#include <string>
#include <vector>

namespace qor {

// Block-compressed files.
bool Pack(const std::string& in, const std::string& out, bool replace);
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

}  // namespace qor

#endif
