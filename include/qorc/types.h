/// @file
/// Library start and stop, the logical value types and the process-wide switches.
#ifndef QORC_TYPES_H
#define QORC_TYPES_H

#include <qorc/export.h>

/// Two-state logical value: one byte holding 0 or 1; the result type of predicates.
class C_BOOL {
 public:
  /// False.
  constexpr C_BOOL() : value_(0) {}
  /// True for any non-zero value.
  constexpr C_BOOL(int v) : value_(v != 0 ? 1 : 0) {}
  /// 1 or 0.
  constexpr operator int() const { return value_; }
  /// Becomes true for any non-zero value; returns the new value.
  C_BOOL operator=(int v) {
    value_ = v != 0 ? 1 : 0;
    return *this;
  }
  /// Copies the value.
  C_BOOL& operator=(const C_BOOL&) = default;
  /// Copies the value.
  C_BOOL(const C_BOOL&) = default;
  /// 1 when both hold the same value, else 0.
  int operator==(C_BOOL other) const { return value_ == other.value_; }
  /// 1 when the values differ, else 0.
  int operator!=(C_BOOL other) const { return value_ != other.value_; }
  /// An integer compares as the C_BOOL it would build (any non-zero is true).
  int operator==(int other) const { return *this == C_BOOL(other); }
  /// An integer compares as the C_BOOL it would build (any non-zero is true).
  int operator!=(int other) const { return *this != C_BOOL(other); }
  /// Logical and, in place; returns the new value.
  C_BOOL operator&=(C_BOOL other) {
    value_ &= other.value_;
    return *this;
  }
  /// Logical or, in place; returns the new value.
  C_BOOL operator|=(C_BOOL other) {
    value_ |= other.value_;
    return *this;
  }
  /// Exclusive or, in place; returns the new value.
  C_BOOL operator^=(C_BOOL other) {
    value_ ^= other.value_;
    return *this;
  }
  /// True becomes false and false true.
  void Invert() { value_ = value_ != 0 ? 0 : 1; }
  /// Becomes false.
  void SetFalse() { value_ = 0; }
  /// Becomes true.
  void SetTrue() { value_ = 1; }
  /// 1 when false, else 0.
  int IsFalse() const { return value_ == 0; }
  /// 1 when true, else 0.
  int IsTrue() const { return value_ != 0; }

 private:
  unsigned char value_;
};

/// Three-state logical value: 1 true, 0 false, -1 unknown.
class C_LOG {
 public:
  /// Unknown.
  constexpr C_LOG() : value_(-1) {}
  /// Unknown for a negative value, false for 0, true for a positive value.
  constexpr C_LOG(int v) : value_(v < 0 ? -1 : (v == 0 ? 0 : 1)) {}
  /// True or false as the C_BOOL is.
  constexpr C_LOG(C_BOOL b) : value_(static_cast<signed char>(static_cast<int>(b))) {}
  /// Copies the value.
  C_LOG(const C_LOG&) = default;
  /// As C_LOG(int); returns the new value.
  C_LOG operator=(int v) {
    *this = C_LOG(v);
    return *this;
  }
  /// As C_LOG(C_BOOL); returns the new value.
  C_LOG operator=(C_BOOL b) {
    *this = C_LOG(b);
    return *this;
  }
  /// Copies the value.
  C_LOG& operator=(const C_LOG&) = default;
  /// 1, 0 or -1.
  constexpr operator int() const { return value_; }
  /// True becomes false and false true; unknown stays unknown.
  void Invert() {
    if (value_ >= 0) value_ = value_ == 0 ? 1 : 0;
  }
  /// Becomes true.
  void SetTrue() { value_ = 1; }
  /// Becomes false.
  void SetFalse() { value_ = 0; }
  /// Becomes unknown.
  void SetUnknown() { value_ = -1; }
  /// 1 when true, else 0.
  int IsTrue() const { return value_ > 0; }
  /// 1 when false, else 0.
  int IsFalse() const { return value_ == 0; }
  /// 1 when unknown, else 0.
  int IsUnknown() const { return value_ < 0; }
  /// 1 when true or false, 0 when unknown.
  int IsKnown() const { return value_ >= 0; }

 private:
  signed char value_;
};

/// Prepares the library: allocation-failure hook, generator seeds, locale,
/// library code page and the switches below. Called once, before anything else.
QORC_API void Copen();
/// Releases what the library holds process-wide (the runtime's temporary files,
/// the root table, the error context, the settings stores). The last call into the library.
QORC_API void Cclose();

/// 8-bit text is multibyte text in the library code page (set by Copen).
extern QORC_API C_BOOL CcharMBCS;
/// File-name calls use the wide forms (set by Copen).
extern QORC_API C_BOOL CcharUnicode;
/// File-name operations look past a trailing numeric index (set by the host; false at load).
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
