// shield, unshield, crc and adler.
//
// A shielded file is one header line "QORSHIELD <byte count>" followed by
// the library's file form of the bytes: lines of 80 printable characters.
// The file form carries no length of its own, so the header keeps it.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands.h"
#include "support.h"

namespace qor {

namespace {

constexpr char kShieldTag[] = "QORSHIELD ";
constexpr int kLongestHeader = 40;
// 60 bytes make one full line of 20 groups: chunks of whole lines keep the
// lines of the file as long as one write of everything would make them.
constexpr int kShieldChunk = 60 * 2048;

bool ReadShieldHeader(C_FILE* file, const std::string& name, long long* count) {
  std::string header;
  char c = 0;
  while (header.size() < kLongestHeader) {
    int got = 0;
    file->Read(1, &c, &got);
    if (CerrFileEndReached.IsPending()) C_ERROR::ClearPending();
    if (C_ERROR::Is()) return false;
    if (got == 0 || c == '\n') break;
    header += c;
  }
  const std::size_t tag = sizeof kShieldTag - 1;
  char* end = nullptr;
  const char* digits = header.c_str() + tag;
  if (c == '\n' && header.compare(0, tag, kShieldTag) == 0 && *digits >= '0' && *digits <= '9') {
    *count = std::strtoll(digits, &end, 10);
    if (*end == '\0' && *count >= 0) return true;
  }
  return Fail(CerrFileContainsInvalidCode, name + " is not shielded data (it does not begin with a \"" +
                                               std::string(kShieldTag) + "<byte count>\" line)");
}

}  // namespace

bool Shield(const std::string& in, const std::string& out, bool replace) {
  Input input;
  Output output;
  if (!input.OpenAsFile(in) || !output.Open(out, replace, Output::kFileObject)) return false;
  const long long total = input.Size();
  const std::string header = kShieldTag + std::to_string(total) + "\n";
  if (!output.Write(static_cast<int>(header.size()), header.data())) return false;
  Progress progress("shielding " + in, total);
  std::vector<unsigned char> chunk(kShieldChunk);
  int got = kShieldChunk;
  while (got == kShieldChunk) {
    if (!input.Read(kShieldChunk, chunk.data(), &got)) return false;
    output.File()->WriteShielded(got, chunk.data(), nullptr, nullptr);
    if (C_ERROR::Is()) return false;
    progress.Advance(got);
  }
  return output.Finish();
}

bool Unshield(const std::string& in, const std::string& out, bool replace) {
  Input input;
  Output output;
  long long remaining = 0;
  if (!input.OpenAsFile(in) || !ReadShieldHeader(input.File(), input.Shown(), &remaining) ||
      !output.Open(out, replace)) {
    return false;
  }
  Progress progress("unshielding " + in, remaining);
  std::vector<unsigned char> chunk(kShieldChunk);
  while (remaining > 0) {
    const int wanted = static_cast<int>(std::min<long long>(remaining, kShieldChunk));
    int decoded = 0;
    input.File()->ReadShielded(wanted, chunk.data(), &decoded, nullptr);
    if (C_ERROR::Is()) {
      AddContextToPending(input.Shown() + " (after " + std::to_string(progress.Done() + decoded) + " bytes)");
      return false;
    }
    if (decoded == 0) return Fail(CerrFileEndReached, input.Shown() + ": the shielded data end early");
    if (!output.Write(decoded, chunk.data())) return false;
    remaining -= decoded;
    progress.Advance(decoded);
  }
  return output.Finish();
}

int PrintChecksums(Checksum kind, const std::vector<std::string>& files) {
  const auto sumOf = [kind](int size, const void* data, unsigned int start) {
    return kind == Checksum::kCrc32 ? CchecksumCRC(size, data, start) : CchecksumAdler(size, data, start);
  };
  int result = kExitSuccess;
  std::vector<unsigned char> chunk(kChunkSize);
  for (const std::string& name : files) {
    Input input;
    if (!input.Open(name)) {
      result = ReportPendingFailure();
      continue;
    }
    // The sum goes on chunk after chunk: any size of input takes the same
    // little memory. A null pointer gives the sum's initial value.
    unsigned int sum = sumOf(0, nullptr, 0);
    Progress progress(input.Shown(), input.Size());
    bool read = true;
    for (int got = kChunkSize; read && got == kChunkSize;) {
      read = input.Read(kChunkSize, chunk.data(), &got);
      if (read) sum = sumOf(got, chunk.data(), sum);
      progress.Advance(got);
    }
    if (!read) {
      AddContextToPending(input.Shown());
      result = ReportPendingFailure();
      continue;
    }
    std::printf("%08x  %s\n", sum, name.c_str());
  }
  return result;
}

}  // namespace qor
