/// @file
/// Functions on zero-terminated character arrays, below C_STRING.
///
/// Castr works on 8-bit text in the library code page, where one character may
/// take more than one byte (a lead and a trail byte); Cstr works on UTF-16
/// text, one unit per character; Cwstr is a second name set for the UTF-16
/// family that behaves exactly as Cstr. Counts come first, then sources, the
/// destination last. Comparisons use the locale's collation and return a
/// negative number, 0 or a positive number. Nothing is validated: null
/// pointers, overlapping areas and destinations that are too small are the
/// caller's fault. Duplicates are released with CmemFree.
#ifndef QORC_RAWSTRING_H
#define QORC_RAWSTRING_H

#include <qorc/export.h>

// 8-bit text in the library code page --------------------------------------------
/// Copies the terminated text, terminator included.
QORC_API void CastrCopy(const char* source, char* destination);
/// At most count characters. A shorter source is followed by zeros up to count
/// characters; a longer one is cut and no terminator is written.
QORC_API void CastrNcopy(int count, const char* source, char* destination);
/// Appends the terminated source to the terminated destination.
QORC_API void CastrConcat(const char* source, char* destination);
/// At most count characters of the source, then always a terminator.
QORC_API void CastrNconcat(int count, const char* source, char* destination);
/// Bytes before the terminator.
QORC_API int CastrLength(const char* text);
/// Characters before the terminator: a lead and a trail byte count as one.
QORC_API int CastrCharNumber(const char* text);
/// Compares in the locale's collation: negative, 0 or positive.
QORC_API int CastrComp(const char* a, const char* b);
/// Compares at most count characters in the locale's collation.
QORC_API int CastrNcomp(int count, const char* a, const char* b);
/// Compares in the locale's collation without regard to case.
QORC_API int CastrCompI(const char* a, const char* b);
/// Compares at most count characters in the locale's collation without regard to case.
QORC_API int CastrNcompI(int count, const char* a, const char* b);
/// The next character (past a trail byte).
QORC_API char* CastrInc(const char* position);
/// The previous character; null when the position is not after the start.
/// The current position comes first, the start of the text second.
QORC_API char* CastrDec(const char* position, const char* start);
/// A new copy of the text in *result, released with CmemFree; CerrMemoryFull when memory runs out.
QORC_API void CastrDuplic(const char* source, char** result);
/// One character into one UTF-16 unit: the bytes used, 0 for the terminator,
/// -1 for an invalid sequence.
QORC_API int CastrCharToWideChar(const char* source, char16_t* result);
/// The code page's form of one character: the bytes written, -1 when the code
/// page has none.
QORC_API int CastrWideCharToChar(char16_t character, char* result);

// UTF-16 text ---------------------------------------------------------------------
/// Copies the terminated text, terminator included.
QORC_API void CstrCopy(const char16_t* source, char16_t* destination);
/// At most count units; a shorter source is followed by zeros up to count, a longer one is cut without a terminator.
QORC_API void CstrNcopy(int count, const char16_t* source, char16_t* destination);
/// Appends the terminated source to the terminated destination.
QORC_API void CstrConcat(const char16_t* source, char16_t* destination);
/// At most count units of the source, then always a terminator.
QORC_API void CstrNconcat(int count, const char16_t* source, char16_t* destination);
/// Units before the terminator.
QORC_API int CstrLength(const char16_t* text);
/// Characters before the terminator: one per unit.
QORC_API int CstrCharNumber(const char16_t* text);
/// Compares in the locale's collation: negative, 0 or positive.
QORC_API int CstrComp(const char16_t* a, const char16_t* b);
/// Compares at most count units in the locale's collation.
QORC_API int CstrNcomp(int count, const char16_t* a, const char16_t* b);
/// Compares in the locale's collation without regard to case.
QORC_API int CstrCompI(const char16_t* a, const char16_t* b);
/// Compares at most count units in the locale's collation without regard to case.
QORC_API int CstrNcompI(int count, const char16_t* a, const char16_t* b);
/// The next unit.
QORC_API char16_t* CstrInc(const char16_t* position);
/// The previous unit; null when the position is not after the start.
QORC_API char16_t* CstrDec(const char16_t* position, const char16_t* start);
/// A new copy of the text in *result, released with CmemFree; CerrMemoryFull when memory runs out.
QORC_API void CstrDuplic(const char16_t* source, char16_t** result);

/// As CstrCopy.
/// The same UTF-16 functions under their second names (CwstrCharNumber serves
/// for the length).
QORC_API void CwstrCopy(const char16_t* source, char16_t* destination);
/// As CstrNcopy.
QORC_API void CwstrNcopy(int count, const char16_t* source, char16_t* destination);
/// As CstrConcat.
QORC_API void CwstrConcat(const char16_t* source, char16_t* destination);
/// As CstrNconcat.
QORC_API void CwstrNconcat(int count, const char16_t* source, char16_t* destination);
/// As CstrCharNumber (and CstrLength).
QORC_API int CwstrCharNumber(const char16_t* text);
/// As CstrComp.
QORC_API int CwstrComp(const char16_t* a, const char16_t* b);
/// As CstrNcomp.
QORC_API int CwstrNcomp(int count, const char16_t* a, const char16_t* b);
/// As CstrCompI.
QORC_API int CwstrCompI(const char16_t* a, const char16_t* b);
/// As CstrNcompI.
QORC_API int CwstrNcompI(int count, const char16_t* a, const char16_t* b);
/// As CstrInc.
QORC_API char16_t* CwstrInc(const char16_t* position);
/// As CstrDec.
QORC_API char16_t* CwstrDec(const char16_t* position, const char16_t* start);
/// As CstrDuplic: the copy is released with CmemFree.
QORC_API void CwstrDuplic(const char16_t* source, char16_t** result);

/// Sorts count records of size bytes in place with the C runtime's quicksort;
/// records that compare equal keep no particular order.
QORC_API void Cqsort(void* base, int count, int size, int (*compare)(const void*, const void*));

#endif
