/// @file
/// Shielding: a radix-64 code of the library's own (its own alphabet and bit
/// order, not Base64) that turns bytes into printable text.
#ifndef QORC_SHIELDING_H
#define QORC_SHIELDING_H

#include <qorc/export.h>

/// The string form of n bytes: a character telling n mod 3, then one group of
/// four characters per three bytes. *text is a new malloc block (the caller
/// frees it), *length its number of characters. n = 0 gives null and 0.
QORC_API void CastrShieldData(const void* data, int n, char** text, int* length);
/// Decodes the string form (length -1: up to the terminator) into a new malloc
/// block followed by a zero byte; *n receives the byte count. Decoding stops at
/// the first character outside the alphabet. A first character that is not a
/// valid byte-count character leaves CerrFileContainsInvalidCode pending.
QORC_API void CastrUnshieldData(const char* text, int length, void** data, int* n);

#endif
