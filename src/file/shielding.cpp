#include <qorc/shielding.h>

#include <cstdlib>
#include <cstring>

#include <qorc/error.h>

#include "file/shielding_code.h"

namespace qorc::shield {
namespace {

constexpr char kAlphabet[] = "0123456789:;ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
static_assert(sizeof kAlphabet == 65, "64 characters");

struct InverseTable {
  unsigned char value[256];
  constexpr InverseTable() : value() {
    for (int i = 0; i < 256; ++i) value[i] = 255;
    for (int i = 0; i < 64; ++i) value[static_cast<unsigned char>(kAlphabet[i])] = static_cast<unsigned char>(i);
  }
};
constexpr InverseTable kInverse;

}  // namespace

unsigned char ValueOf(char c) { return kInverse.value[static_cast<unsigned char>(c)]; }
char CharOf(int value) { return kAlphabet[value & 63]; }

// The first byte is the lowest, and the lowest six bits are written first.
// The padding of a short group is the character of value 0, so every group
// decodes as a full one and the surplus bytes are dropped by length.
void EncodeGroup(const unsigned char* bytes, int count, char* out) {
  unsigned v = bytes[0];
  if (count > 1) v |= static_cast<unsigned>(bytes[1]) << 8;
  if (count > 2) v |= static_cast<unsigned>(bytes[2]) << 16;
  out[0] = CharOf(static_cast<int>(v));
  out[1] = CharOf(static_cast<int>(v >> 6));
  out[2] = CharOf(static_cast<int>(v >> 12));
  out[3] = CharOf(static_cast<int>(v >> 18));
}

bool DecodeGroup(const char* in, unsigned char* bytes) {
  unsigned v = 0;
  for (int i = 0; i < 4; ++i) {
    const unsigned char value = ValueOf(in[i]);
    if (value == 255) return false;
    v |= static_cast<unsigned>(value) << (6 * i);
  }
  bytes[0] = static_cast<unsigned char>(v);
  bytes[1] = static_cast<unsigned char>(v >> 8);
  bytes[2] = static_cast<unsigned char>(v >> 16);
  return true;
}

void EncodeFileBlock(const unsigned char* data, int n, char* out) {
  const int groups = GroupCount(n);
  for (int g = 0; g < groups; ++g) {
    const int count = n - 3 * g < 3 ? n - 3 * g : 3;
    EncodeGroup(data + 3 * g, count, out);
    out += 4;
    if ((g + 1) % kGroupsPerLine == 0) *out++ = '\n';
  }
  // A last line that is not complete ends with a line feed too.
  if (groups % kGroupsPerLine != 0) *out = '\n';
}

int DecodeFileBlock(const char* in, int available, int n, unsigned char* out, bool* invalid) {
  *invalid = false;
  // Each full line of 20 groups takes 81 bytes.
  const int groups = static_cast<int>((static_cast<long long>(available) * 80 / 81) / 4);
  int stored = 0;
  int at = 0;
  for (int g = 0; g < groups; ++g) {
    unsigned char bytes[3];
    if (at + 4 > available || !DecodeGroup(in + at, bytes)) {
      *invalid = true;
      break;
    }
    at += 4;
    for (int i = 0; i < 3 && stored < n; ++i) out[stored++] = bytes[i];
    if ((g + 1) % kGroupsPerLine == 0) {
      if (at >= available || in[at] != '\n') {
        *invalid = true;
        break;
      }
      ++at;
    }
  }
  return stored;
}

}  // namespace qorc::shield

using namespace qorc::shield;

void CastrShieldData(const void* data, int n, char** text, int* length) {
  *text = nullptr;
  *length = 0;
  if (n <= 0) return;
  const int groups = GroupCount(n);
  char* out = static_cast<char*>(std::malloc(static_cast<std::size_t>(groups) * 4 + 2));
  if (out == nullptr) {
    CerrMemoryFull.Trigger();
    return;
  }
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  out[0] = CharOf(n % 3);
  for (int g = 0; g < groups; ++g) {
    const int count = n - 3 * g < 3 ? n - 3 * g : 3;
    EncodeGroup(bytes + 3 * g, count, out + 1 + 4 * g);
  }
  out[1 + 4 * groups] = '\0';
  *text = out;
  *length = 1 + 4 * groups;
}

void CastrUnshieldData(const char* text, int length, void** data, int* n) {
  *data = nullptr;
  *n = 0;
  if (length == -1) length = static_cast<int>(std::strlen(text));
  if (length <= 0) return;
  // The first character tells n mod 3; anything else would give a wrong
  // length, so it is refused.
  const unsigned char remainder = ValueOf(text[0]);
  if (remainder > 2) {
    CerrFileContainsInvalidCode.TriggerMild();
    return;
  }
  const int groups = (length - 1) / 4;
  unsigned char* out = static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(groups) * 3 + 1));
  if (out == nullptr) {
    CerrMemoryFull.Trigger();
    return;
  }
  // Bytes of groups after a bad character are left zero.
  std::memset(out, 0, static_cast<std::size_t>(groups) * 3 + 1);
  for (int g = 0; g < groups; ++g) {
    if (!DecodeGroup(text + 1 + 4 * g, out + 3 * g)) break;
  }
  int count = 3 * groups;
  if (remainder != 0) count = count + remainder - 3;
  if (count < 0) count = 0;
  out[count] = 0;
  *data = out;
  *n = count;
}
