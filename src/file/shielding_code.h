// The shielding code shared by the string form and the file form.
#ifndef QORC_FILE_SHIELDING_CODE_H
#define QORC_FILE_SHIELDING_CODE_H

namespace qorc::shield {

// Groups of four characters needed for n bytes.
constexpr int GroupCount(int n) { return (n + 2) / 3; }
// Characters of a group line in the file form; a line feed follows each line.
constexpr int kGroupsPerLine = 20;
// Bytes of the file form of n bytes: the groups and their line feeds.
constexpr int FileBlockSize(int n) { return 4 * GroupCount(n) + (GroupCount(n) + kGroupsPerLine - 1) / kGroupsPerLine; }

// Writes the four characters of the group of `count` (1 to 3) bytes.
void EncodeGroup(const unsigned char* bytes, int count, char* out);
// Decodes four characters into three bytes; false at a character outside the alphabet.
bool DecodeGroup(const char* in, unsigned char* bytes);
// The value of an alphabet character, or 255.
unsigned char ValueOf(char c);
// The alphabet character of a 6-bit value.
char CharOf(int value);

// Writes the file form of n bytes (FileBlockSize(n) bytes).
void EncodeFileBlock(const unsigned char* data, int n, char* out);

// Decodes the file form read so far (`available` bytes) into at most n bytes.
// Returns the bytes stored; *invalid tells that decoding stopped at a bad
// character or at a missing line feed.
int DecodeFileBlock(const char* in, int available, int n, unsigned char* out, bool* invalid);

}  // namespace qorc::shield

#endif
