/// @file
/// C_REGKEY: settings keys with typed binary entries, and their exchange with
/// the text files of the Windows registry editor.
///
/// On Windows the keys are those of the system registry: USER and MACHINE are
/// HKEY_CURRENT_USER and HKEY_LOCAL_MACHINE from the start, and a HANDLE is an
/// HKEY. Elsewhere the settings live in store files of the library's own (one
/// SQLite database per store), or in a PostgreSQL database that several
/// machines share (a store named by a "postgresql://" URI), and a host wires
/// its roots once:
///
///   C_REGKEY::InitUser(C_REGKEY::OpenStore(C_REGKEY::DefaultStorePath(C_REGKEY::USER)));
///   C_REGKEY::InitMachine(C_REGKEY::OpenStore(C_REGKEY::DefaultStorePath(C_REGKEY::MACHINE)));
///
/// Key and entry names compare without case and keep the case they were
/// created with. Subkeys are enumerated in the order of their names compared
/// without case (each UTF-16 unit upper-cased, then by code unit); entries in
/// the order they were first stored (storing an entry again keeps its place),
/// except in the Windows registry, where the system chooses the order.
/// Every failure of a key operation is reported at debug level: the pending
/// error is CerrInternalError, whatever went wrong.
#ifndef QORC_REGKEY_H
#define QORC_REGKEY_H

#include <qorc/export.h>
#include <qorc/string.h>
#include <qorc/types.h>

class C_REGKEY;
/// Writes a key and everything under it to a .reg file (see below).
QORC_API void CregkeyExport(const C_REGKEY* key, const C_STRING& path);
/// Reads a .reg file into a key (see below).
QORC_API void CregkeyImport(const C_REGKEY* key, const C_STRING& path);

/// A settings key: a node of a settings store with subkeys and typed entries. An
/// object opens one key; after SetEntry selects an entry, Write appends fields to
/// it (stored when another entry is selected or the key is closed) and Read reads
/// its fields in turn. Every failure leaves CerrInternalError pending.
class QORC_API C_REGKEY {
 public:
  /// One open key of a store, as the platform hands it out; opaque: only
  /// the library looks inside.
  struct STORE_KEY;
#ifdef _WIN32
  /// A key as the platform hands it out: the Windows HKEY.
  using HANDLE = struct HKEY__*;
#else
  /// A key of a store as the platform hands it out; from OpenStore.
  using HANDLE = STORE_KEY*;
#endif

  /// Access asked for at Open; any other value counts as READ_WRITE.
  enum MODE { READ = 0, WRITE = 1, READ_WRITE = 2 };
  /// Types of stored entries. A text entry (a string, as WriteReadableString stores it).
  static constexpr unsigned TYPE_TEXT = 1;
  /// A binary entry: the fields appended by Write.
  static constexpr unsigned TYPE_BINARY = 3;

  /// The user root (wired with InitUser).
  static C_REGKEY* const USER;
  /// The machine root (wired with InitMachine).
  static C_REGKEY* const MACHINE;

  /// A closed key.
  C_REGKEY();
  /// A copy of the other's state; an open key is opened again on the same key.
  C_REGKEY(const C_REGKEY& other);
  /// Closes this key (storing pending data), then copies the other's state.
  C_REGKEY& operator=(const C_REGKEY& other);
  /// Closes the key when it is open: pending data is stored.
  ~C_REGKEY();

  /// Sets the key that USER stands for.
  /// Set the root handles; only the first call with a handle counts. On
  /// Windows the roots are set from the start, so these keep them.
  static void InitUser(HANDLE handle);
  /// Sets the key that MACHINE stands for; only the first call with a handle counts.
  static void InitMachine(HANDLE handle);

  /// Opens or creates the store file at `path` (library form, expanded through
  /// the roots; missing folders are created) and returns the handle of its top
  /// key: on Windows the file is an application hive of the registry. A libpq
  /// connection URI ("postgresql://user@host:port/database?...", or
  /// "postgres://") opens instead the store kept in that database, in the
  /// schema "qorc_settings", made on first use (not on Windows, whose settings
  /// are the registry's); credentials come from the URI, PGPASSFILE or the PG
  /// environment variables, as libpq takes them. Every operation on such a
  /// store is one transaction and ends within 15 s: a server that is gone or
  /// does not answer gives CerrInternalError, and the next operation connects
  /// again. The same file or database opened again gives the same handle.
  /// Handles live until Cclose; a child made by fork goes on using them. Null,
  /// with CerrFileCannotOpen and the path (a URI without its password)
  /// pending, when the store cannot be opened or is not a settings store.
  static HANDLE OpenStore(const C_STRING& path);
  /// The name of a store as messages may show it: a URI without its password,
  /// any other name as it is. Returns a new string.
  static C_STRING ShownStoreName(const C_STRING& store);
  /// The conventional store of a root: $XDG_CONFIG_HOME/qorc/settings.sqlite
  /// (else ~/.config/qorc/settings.sqlite) for USER,
  /// /var/lib/qorc/settings.sqlite for MACHINE; VOID for any other key, and
  /// VOID on Windows, whose roots are the registry's own.
  static C_STRING DefaultStorePath(const C_REGKEY* root);

  /// With create, missing keys along the path are made. CerrInternalError when the key cannot be opened.
  /// Opens a subkey ("\"-separated path; empty: the parent key itself) of a
  /// platform key or of another object (also USER or MACHINE).
  void Open(HANDLE parent, const C_STRING& path, MODE mode, C_BOOL create);
  /// As Open(HANDLE, ...), below an open object or a root (USER, MACHINE).
  void Open(const C_REGKEY* parent, const C_STRING& path, MODE mode, C_BOOL create);
  /// Stores pending data and closes.
  void Close();
  /// Whether a key is open.
  C_BOOL IsOpened() const { return opened_; }

  /// Stores pending data and selects an entry (empty name: the default entry).
  void SetEntry(const C_STRING& name);
  /// Appends a 32-bit integer.
  /// Append one field to the current binary entry.
  void Write(int value);
  /// Appends a double.
  void Write(double value);
  /// Appends a logical value.
  void Write(C_BOOL value);
  /// Appends a string.
  void Write(const C_STRING& value);
  /// Makes the current entry a text entry holding this string.
  void WriteReadableString(const C_STRING& text);
  /// Reads a 32-bit integer; CerrInternalError when the entry has no more fields.
  /// Read the next field of the current entry.
  void Read(int* value);
  /// Reads a double.
  void Read(double* value);
  /// Reads a logical value.
  void Read(C_BOOL* value);
  /// Reads a string (the whole text of a text entry).
  void Read(C_STRING* value);
  /// Deletes the current entry from the key.
  void Clear();
  /// Deletes a subkey that has no subkeys of its own.
  void Delete(const C_STRING& name);
  /// Subkey names, by name without regard to case.
  /// Names of the subkeys or of the entries: a new array released with delete[].
  void GetSubkeys(int* count, C_STRING** names);
  /// Entry names, in the order they were first stored; released with delete[].
  void GetEntries(int* count, C_STRING** names);
  /// Copies every entry and, recursively, every subkey into target.
  void Copy(C_REGKEY* target);

 private:
  C_BOOL IsSpecial() const;
  HANDLE SpecialHandle() const;
  C_BOOL RefuseSpecial() const;
  C_BOOL RefuseClosed() const;
  HANDLE KeyHandle() const;
  void StorePending();
  void ReleaseBuffer();
  void Append(const void* bytes, unsigned count);
  C_BOOL ReadBinary(void* out, unsigned count);
  C_BOOL ReadTextValue(C_STRING* text);
  void CopyFrom(const C_REGKEY& other);
  void ListNames(C_BOOL subkeys, int* count, C_STRING** names);
  // The exchange with registry files reaches the key's handle through this
  // (a friend class: a friend function would drop its import attribute).
  friend struct RegkeyExchangeAccess;

  HANDLE key_;
  MODE mode_;
  unsigned type_;
  unsigned size_;
  unsigned char* buffer_;
  C_BOOL opened_;
  unsigned position_;
  C_STRING name_;
};

/// Writes `key` (an open key, USER or MACHINE) with all its subkeys to a
/// file of the Windows registry editor, version 5: UTF-16 LE with a
/// byte-order mark, the header "Windows Registry Editor Version 5.00", one
/// [section] per key named by its full path (under HKEY_LOCAL_MACHINE for keys
/// of the machine root's store, HKEY_CURRENT_USER otherwise), text entries as
/// "strings", binary entries as hex:, other entries as dword: or hex(type):.
/// Every byte of every entry is kept, so an import gives back exactly the same
/// entries. The path is in library form, expanded through the roots; the file
/// is written as the keys are read. Failures: CerrFileCannotCreate or
/// CerrFileCannotWrite (CerrFileNotEnoughSpace on a full disk) with the path;
/// a store that cannot be read gives CerrInternalError. A file that fails
/// half-way is removed unless it existed before.
QORC_API void CregkeyExport(const C_REGKEY* key, const C_STRING& path);

// The files read by the imports are those of the registry editor as it and
// people write them: the header "Windows Registry Editor Version 5.00" or
// "REGEDIT4"; UTF-16 LE or UTF-8 behind a byte-order mark, else UTF-8 when
// the whole file is, else 8-bit text in the library code page; CR LF, LF or
// CR line ends; blank lines, ";" comments and blanks around lines; sections
// [ROOT\path] naming HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE or
// HKEY_CLASSES_ROOT (the machine's Software\Classes) without case, in any
// order and repeated; [-ROOT\path] deletes a key with everything under it;
// "name"=value or @=value (the default entry) with a "string" (in which
// \\ and \" are escaped, and line ends written as \r and \n the way Wine
// writes them are read), dword:,
// hex: or hex(type): value, hexadecimal data continued over lines ending in
// "\"; "name"=- deletes an entry. Key names have at most 255 characters,
// entry names at most 16,383. In REGEDIT4 files, hex(1), hex(2) and hex(7)
// data are 8-bit text, stored as UTF-16 as Windows stores them.
//
// An import checks the whole file before it stores anything, so a refused
// file changes no store; the writes are then one change of each store that
// can gather them. The file is read a line at a time, never held whole.
// A malformed file leaves CerrFileContainsInvalidCode pending with
// "path, line N: reason" as extra text; a file that cannot be opened or read
// gives CerrFileCannotOpen or CerrFileCannotRead with the path; a store that
// refuses the change gives CerrInternalError.

/// Imports such a file into `key` (an open key, USER or MACHINE): the file is
/// about the first key it stores into, which stands for `key`; every other
/// key it names, deleted ones included, must lie under that one. Subkeys are
/// created as needed, entries replace entries of the same names.
QORC_API void CregkeyImport(const C_REGKEY* key, const C_STRING& path);

/// Imports such a file into the roots it names: HKEY_CURRENT_USER sections
/// into USER, HKEY_LOCAL_MACHINE and HKEY_CLASSES_ROOT ones into MACHINE.
/// A root the file names must be set (InitUser, InitMachine) before, else
/// nothing is stored and CerrInternalError is pending.
QORC_API void CregkeyImport(const C_STRING& path);

/// Checks such a file as CregkeyImport(path) does, storing nothing, and tells
/// whether it names keys of the user root and of the machine root (either
/// pointer may be null); both FALSE when the file is refused, with the
/// import's error pending. Lets a caller open only the stores a file needs.
QORC_API void CregkeyCheck(const C_STRING& path, C_BOOL* user, C_BOOL* machine);

#endif
