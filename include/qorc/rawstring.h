// Functions on zero-terminated character arrays, below C_STRING.
//
// Castr works on 8-bit text in the library code page, where one character may
// take more than one byte (a lead and a trail byte); Cstr works on UTF-16
// text, one unit per character; Cwstr is a second name set for the UTF-16
// family that behaves exactly as Cstr. Counts come first, then sources, the
// destination last. Comparisons use the locale's collation and return a
// negative number, 0 or a positive number. Nothing is validated: null
// pointers, overlapping areas and destinations that are too small are the
// caller's fault. Duplicates are released with CmemFree.
#ifndef QORC_RAWSTRING_H
#define QORC_RAWSTRING_H

#include <qorc/export.h>

// 8-bit text in the library code page --------------------------------------------
QORC_API void CastrCopy(const char* source, char* destination);
// At most count characters. A shorter source is followed by zeros up to count
// characters; a longer one is cut and no terminator is written.
QORC_API void CastrNcopy(int count, const char* source, char* destination);
QORC_API void CastrConcat(const char* source, char* destination);
// At most count characters of the source, then always a terminator.
QORC_API void CastrNconcat(int count, const char* source, char* destination);
// Bytes before the terminator.
QORC_API int CastrLength(const char* text);
// Characters before the terminator: a lead and a trail byte count as one.
QORC_API int CastrCharNumber(const char* text);
QORC_API int CastrComp(const char* a, const char* b);
QORC_API int CastrNcomp(int count, const char* a, const char* b);
QORC_API int CastrCompI(const char* a, const char* b);
QORC_API int CastrNcompI(int count, const char* a, const char* b);
// The next character (past a trail byte).
QORC_API char* CastrInc(const char* position);
// The previous character; null when the position is not after the start.
// The current position comes first, the start of the text second.
QORC_API char* CastrDec(const char* position, const char* start);
QORC_API void CastrDuplic(const char* source, char** result);
// One character into one UTF-16 unit: the bytes used, 0 for the terminator,
// -1 for an invalid sequence.
QORC_API int CastrCharToWideChar(const char* source, char16_t* result);
// The code page's form of one character: the bytes written, -1 when the code
// page has none.
QORC_API int CastrWideCharToChar(char16_t character, char* result);

// UTF-16 text ---------------------------------------------------------------------
QORC_API void CstrCopy(const char16_t* source, char16_t* destination);
QORC_API void CstrNcopy(int count, const char16_t* source, char16_t* destination);
QORC_API void CstrConcat(const char16_t* source, char16_t* destination);
QORC_API void CstrNconcat(int count, const char16_t* source, char16_t* destination);
QORC_API int CstrLength(const char16_t* text);
QORC_API int CstrCharNumber(const char16_t* text);
QORC_API int CstrComp(const char16_t* a, const char16_t* b);
QORC_API int CstrNcomp(int count, const char16_t* a, const char16_t* b);
QORC_API int CstrCompI(const char16_t* a, const char16_t* b);
QORC_API int CstrNcompI(int count, const char16_t* a, const char16_t* b);
QORC_API char16_t* CstrInc(const char16_t* position);
QORC_API char16_t* CstrDec(const char16_t* position, const char16_t* start);
QORC_API void CstrDuplic(const char16_t* source, char16_t** result);

// The same UTF-16 functions under their second names (CwstrCharNumber serves
// for the length).
QORC_API void CwstrCopy(const char16_t* source, char16_t* destination);
QORC_API void CwstrNcopy(int count, const char16_t* source, char16_t* destination);
QORC_API void CwstrConcat(const char16_t* source, char16_t* destination);
QORC_API void CwstrNconcat(int count, const char16_t* source, char16_t* destination);
QORC_API int CwstrCharNumber(const char16_t* text);
QORC_API int CwstrComp(const char16_t* a, const char16_t* b);
QORC_API int CwstrNcomp(int count, const char16_t* a, const char16_t* b);
QORC_API int CwstrCompI(const char16_t* a, const char16_t* b);
QORC_API int CwstrNcompI(int count, const char16_t* a, const char16_t* b);
QORC_API char16_t* CwstrInc(const char16_t* position);
QORC_API char16_t* CwstrDec(const char16_t* position, const char16_t* start);
QORC_API void CwstrDuplic(const char16_t* source, char16_t** result);

// Sorts count records of size bytes in place with the C runtime's quicksort;
// records that compare equal keep no particular order.
QORC_API void Cqsort(void* base, int count, int size, int (*compare)(const void*, const void*));

#endif
