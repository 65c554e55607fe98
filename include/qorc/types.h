// Library start and stop, the logical value types and the process-wide switches.
#ifndef QORC_TYPES_H
#define QORC_TYPES_H

#include <qorc/export.h>

// Two-state logical value: one byte holding 0 or 1.
class C_BOOL {
 public:
  constexpr C_BOOL() : value_(0) {}
  constexpr C_BOOL(int v) : value_(v != 0 ? 1 : 0) {}
  constexpr operator int() const { return value_; }
  C_BOOL operator=(int v) {
    value_ = v != 0 ? 1 : 0;
    return *this;
  }
  C_BOOL& operator=(const C_BOOL&) = default;
  C_BOOL(const C_BOOL&) = default;
  int operator==(C_BOOL other) const { return value_ == other.value_; }
  int operator!=(C_BOOL other) const { return value_ != other.value_; }
  // An integer compares as the C_BOOL it would build (any non-zero is true).
  int operator==(int other) const { return *this == C_BOOL(other); }
  int operator!=(int other) const { return *this != C_BOOL(other); }
  C_BOOL operator&=(C_BOOL other) {
    value_ &= other.value_;
    return *this;
  }
  C_BOOL operator|=(C_BOOL other) {
    value_ |= other.value_;
    return *this;
  }
  C_BOOL operator^=(C_BOOL other) {
    value_ ^= other.value_;
    return *this;
  }
  void Invert() { value_ = value_ != 0 ? 0 : 1; }
  void SetFalse() { value_ = 0; }
  void SetTrue() { value_ = 1; }
  int IsFalse() const { return value_ == 0; }
  int IsTrue() const { return value_ != 0; }

 private:
  unsigned char value_;
};

// Three-state logical value: 1 true, 0 false, -1 unknown.
class C_LOG {
 public:
  constexpr C_LOG() : value_(-1) {}
  constexpr C_LOG(int v) : value_(v < 0 ? -1 : (v == 0 ? 0 : 1)) {}
  constexpr C_LOG(C_BOOL b) : value_(static_cast<signed char>(static_cast<int>(b))) {}
  C_LOG(const C_LOG&) = default;
  C_LOG operator=(int v) {
    *this = C_LOG(v);
    return *this;
  }
  C_LOG operator=(C_BOOL b) {
    *this = C_LOG(b);
    return *this;
  }
  C_LOG& operator=(const C_LOG&) = default;
  constexpr operator int() const { return value_; }
  void Invert() {
    if (value_ >= 0) value_ = value_ == 0 ? 1 : 0;
  }
  void SetTrue() { value_ = 1; }
  void SetFalse() { value_ = 0; }
  void SetUnknown() { value_ = -1; }
  int IsTrue() const { return value_ > 0; }
  int IsFalse() const { return value_ == 0; }
  int IsUnknown() const { return value_ < 0; }
  int IsKnown() const { return value_ >= 0; }

 private:
  signed char value_;
};

// Prepares the library: allocation-failure hook, generator seeds, locale,
// library code page and the switches below. Called once, before anything else.
QORC_API void Copen();
// Releases what the library holds process-wide. The last call into the library.
QORC_API void Cclose();

// 8-bit text is multibyte text in the library code page (set by Copen).
extern QORC_API C_BOOL CcharMBCS;
// File-name calls use the wide forms (set by Copen).
extern QORC_API C_BOOL CcharUnicode;
// File-name operations look past a trailing numeric index (set by the host).
extern QORC_API C_BOOL CfileManageIndex;
/// Worker threads that compress the blocks of a COMPRESSED file being written
/// (set by the host; 1 at load). With 1 or less the blocks are compressed in
/// the writing thread and no thread is started; above 1 (at most 64 are used)
/// a file opened for writing while it is so hands its full blocks to that many
/// workers and writes them in order, so the file is byte for byte the same.
/// Every flush, and closing, waits for the blocks in flight; a failed block
/// shows as its usual pending error at the call that waits for it, and
/// nothing is written after it. About two blocks per worker are in flight.
extern QORC_API int CfileCompressThreads;

#endif
