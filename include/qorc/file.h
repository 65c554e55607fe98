/// @file
/// C_FILE: the library's files. The static services come first: file names,
/// installation roots and path expansion, whole-file operations and temporary
/// files. Every path may be written with "\" or "/" and may begin with an
/// installation root ($NAME); "\" is the only separator the library writes.
/// Then the file object: one open file with its kind, access mode, text
/// conventions and the library's block-compressed format.
#ifndef QORC_FILE_H
#define QORC_FILE_H

#include <qorc/date.h>
#include <qorc/export.h>
#include <qorc/string.h>
#include <qorc/types.h>

#include <cstdio>

class IStorage;
namespace qorc::file {
class BlockCompressor;
struct CompressJob;
}  // namespace qorc::file

/// A file of the library: an open file with its kind (TEXT, UNICODE, BINARY or
/// the block-compressed format), access mode and text conventions; and, as
/// static services, file names, installation roots and path expansion, lock
/// files, directory scans, whole-file operations and temporary files. Paths may
/// be written with "\" or "/" and may begin with an installation root ($NAME).
/// Ordinary failures leave a mild pending error (C_ERROR) with the path as its
/// extra text; an object whose opening failed is closed and ignores every call.
class QORC_API C_FILE {
 public:
  /// Called during a copy with the fraction done (0.0 to 1.0), whether a new
  /// stream starts, and the data given with it; FALSE stops the copy.
  using PROGRESS_CALLBACK = C_BOOL (*)(double fraction, C_BOOL streamStart, int data);

  // File names: pure text, the disk is never consulted -----------------------
  /// Every "/" becomes "\".
  static void CleanPath(C_STRING* path);
  /// out = dir + "\" + name, whatever dir ends with.
  static void MakePath(const C_STRING& dir, const C_STRING& name, C_STRING* out);
  /// The directory (without its last "\") and the file name of a path ("C:file.txt" gives "C" and "file.txt").
  static void SplitPath(const C_STRING& path, C_STRING* dir, C_STRING* name);
  /// The root (drive letter or \\server) and the components of a directory.
  /// The components come in a new array (release it with delete[]); with an
  /// empty directory the count is 0 and the array is left as it was.
  static void SplitDir(const C_STRING& dir, C_STRING* root, int* count, C_STRING** parts);
  /// The name without its suffix, and the suffix (looking past an index when CfileManageIndex is set).
  static void SplitName(const C_STRING& name, C_STRING* prefix, C_STRING* suffix);
  /// Removes "." components and each component followed by "..".
  static void ShrinkPath(C_STRING* path);
  /// A shortened form of at most `width` characters for display.
  static void CompactPath(const C_STRING& path, int width, C_STRING* out);
  /// The text before the last "." of the file name.
  static void GetPrefix(const C_STRING& name, C_STRING* out);
  /// The text after the last "." of the file name (a dot in a directory is not used); empty when none.
  static void GetLastSuffix(const C_STRING& name, C_STRING* out);
  /// Replaces the last suffix of the file name, or adds it.
  static void SetLastSuffix(const C_STRING& suffix, C_STRING* path);
  /// Removes the last suffix; *suffix, when not null, receives it.
  static void RemoveLastSuffix(C_STRING* path, C_STRING* suffix);
  /// As GetLastSuffix.
  /// As the three above, looking past trailing indexes when CfileManageIndex is set.
  static void GetSuffix(const C_STRING& name, C_STRING* out);
  /// As SetLastSuffix, looking past a trailing index when CfileManageIndex is set.
  static void SetSuffix(const C_STRING& suffix, C_STRING* path);
  /// As RemoveLastSuffix, looking past a trailing index when CfileManageIndex is set.
  static void RemoveSuffix(C_STRING* path, C_STRING* suffix);
  /// The index as text, or empty.
  /// A trailing numeric dot-component, as in part.dat.3.
  static void GetIndex(const C_STRING& name, C_STRING* out);
  /// Replaces the index or adds one: part.dat.3 and part.dat both give part.dat.7 for 7.
  static void SetIndex(int index, C_STRING* path);
  /// Removes the index; *index, when not null, receives it.
  static void RemoveIndex(C_STRING* path, C_STRING* index);

  // Installation roots and the process's well-known directories ----------------
  /// Appends a root; the name is given without "$".
  static void AddRoot(const C_STRING& name, const C_STRING& dir);
  /// The live tables (not copies): they move when a later AddRoot grows them.
  static void GetRoots(int* count, const C_STRING** names, const C_STRING** dirs);
  /// Replaces each $NAME by its root directory, in place.
  static void ExpandPath(C_STRING* path);
  /// As ExpandPath, finding root names without regard to case.
  static void ExpandPathNoCase(C_STRING* path);
  /// The path with "/" turned into "\"; the $NAME form is ReplaceRoot's.
  static C_STRING CompressPath(const C_STRING& path);
  /// Strips the longest root directory that starts the expanded path.
  static void RemoveRoot(C_STRING* path, C_STRING* root);
  /// Puts $NAME in place of the longest root directory (compared without case).
  static void ReplaceRoot(C_STRING* path);
  /// Rewrites the path so that it goes through the reference file's directory.
  static void ShareRootPath(const C_STRING& reference, C_STRING* path);
  /// Whether two paths name the same file, by their text alone.
  static C_BOOL HasSamePath(const C_STRING& a, const C_STRING& b);
  /// The network source of a local mount, or the path itself; answers are kept.
  static void GetNetworkName(const C_STRING& path, C_STRING* network);
  /// The full file name of the process's executable.
  static C_STRING GetExePath();
  /// The current directory, ending in "\".
  static C_STRING GetCurrent();
  /// The temporary directory, ending in "\"; empty when there is none.
  static C_STRING GetTempDir();

  // Whole-file operations ----------------------------------------------------
  /// True when the file or directory exists.
  static C_BOOL Exists(const C_STRING& path);
  /// Leaves CerrFileNotFound pending with the path when nothing exists there.
  static void CheckExists(const C_STRING& path);
  /// True when the file exists and cannot be written (honoured even for root); a missing file gives false and
  /// CerrFileNotFound.
  static C_BOOL IsReadOnly(const C_STRING& path);
  /// Takes away or gives back the write permission; CerrFileNotFound for a missing file, CerrFileCannotWrite when
  /// refused.
  static void SetReadOnly(const C_STRING& path, C_BOOL readOnly);
  /// Deletes a file: CerrFileNotFound when missing, CerrFileReadOnly when read-only, CerrFileCannotRead otherwise.
  static void Remove(const C_STRING& path);
  /// Renames or moves a file: CerrFileNotFound when the source is missing, CerrFileCannotWrite when the target exists
  /// or is refused.
  /// Never replaces an existing target.
  static void Rename(const C_STRING& from, const C_STRING& to);
  /// Copies a file, with the progress callback of SetCopyProgress; a copy onto
  /// itself does nothing. CerrFileNotFound when the source is missing or the target
  /// exists without overwrite, CerrFileCopyCanceled when the callback stops it (the
  /// partial target is removed).
  static void Copy(const C_STRING& from, const C_STRING& to, C_BOOL overwrite);
  /// The callback serves the next Copy only.
  static void SetCopyProgress(PROGRESS_CALLBACK callback, int data);
  /// CerrFileNotFound when the file is missing, CerrInvalidValue when the time cannot be converted.
  /// The last modification, in UTC.
  static void GetDateModif(const C_STRING& path, C_DATE* date);

  /// The callback of the next Copy, or null.
  static PROGRESS_CALLBACK ProgressCallback;
  /// The value handed to the callback as its third argument.
  static int ProgressData;

  // Temporary files ----------------------------------------------------------
  /// A free name "qorXXXX.tmp" in the temporary directory (not reserved), or empty.
  static C_STRING GetTempFilePath();
  /// An open stream on a new temporary file that disappears when it is closed;
  /// null with CerrFileCannotCreateTemporary pending on failure.
  static std::FILE* CreateTempFile();

  // Lock files -----------------------------------------------------------------
  // A document P is locked through the lock file P.lck beside it: a TEXT file
  // with one locker name per line, the most recent last, and nothing else.
  // The lock is advisory: nothing stops anybody from opening the document.
  // Lock, Unlock and RemoveLockers of one document are serialised between
  // the processes of one machine by an advisory lock on the lock file itself
  // while it is rewritten, and GetLockers reads under a shared one. When
  // that guard is not granted within 10 seconds (a process hangs holding it,
  // or the file system has no such locks) the work goes ahead without it.
  // No file is made beside the document but the lock file and, while
  // entries are removed, the work file P.lck.tmp.

  /// The calling process's locker name, "\\" computer "\" user "\" process id
  /// (the host name, the effective user's login name, the OS process id).
  /// Without a host or user name CerrFileLock is pending and out is partial.
  static void BuildLockerName(C_STRING* out);
  /// Adds the caller as the last entry; an earlier entry of the same user on
  /// the same machine, whatever its process, is dropped. Failures are handed
  /// to the report handler (C_ERROR::ReportPending), not left pending.
  static void Lock(const C_STRING& path);
  /// Removes the caller's own entry (computer, user and process id alike) and
  /// empty lines. The remaining entries are written back without line ends
  /// between them, so that two or more run together on one line, as this
  /// library always has; the lock file goes when nothing remains. Failures
  /// are reported as Lock's.
  static void Unlock(const C_STRING& path);
  /// True when any process other than the caller holds an entry, another
  /// process of the same user included, and when the caller's own name is
  /// unavailable. Entries of dead processes count too (see IsLockerAlive).
  static C_BOOL IsLocked(const C_STRING& path);
  /// The entries of the lock file in a new array (release it with delete[]);
  /// with none, the count is 0 and the array null. A lock file that cannot
  /// be read leaves its error pending.
  static void GetLockers(const C_STRING& path, int* count, C_STRING** lockers);
  /// Whether the process that a locker name stands for still runs: true when
  /// it is a process of this machine that is running for the named user,
  /// false when it is of this machine and no longer runs (no such process, a
  /// zombie, or the id now belongs to another user's process), unknown for
  /// another machine's entry or a text that is no locker name. Nothing is
  /// pending afterwards, and nothing is cleared: a tool or a host asks this to
  /// offer the removal of stale entries with RemoveLockers. A process id that
  /// the system has given to a new process of the same user reads as alive.
  static C_LOG IsLockerAlive(const C_STRING& locker);
  /// Removes every entry equal to one of the given locker names (and empty
  /// lines), rewriting the lock file exactly as Unlock does. Failures are
  /// reported as Lock's.
  static void RemoveLockers(const C_STRING& path, int count, const C_STRING* lockers);

  // Directory scans --------------------------------------------------------------
  // Every listing returns a count and a new array (release it with delete[])
  // that may have more slots than the count; with nothing found the count is
  // 0 and the array is null, except that ScanDir and GetDirs may return an
  // array with the count 0 when the directory holds only names that are not
  // listed, and ScanExeDirs always returns its array. Names beginning with
  // "." are never listed. Patterns use "*" and "?", compare letters without
  // case, and a trailing ".*" also matches names without a dot ("*.*"
  // matches every name). Entries of a directory come sorted by name,
  // letters without case (the order NTFS lists them in), because the order
  // of the platform's own listing is not stable. A directory that cannot be
  // read, or vanishes while it is read, lists nothing (or what was read
  // before it vanished) and is no error. A symbolic link counts as what it
  // points to; one that leads nowhere (a missing target, a loop) is a file.

  /// Bare names of the files of dir matching the pattern.
  static void ScanDir(const C_STRING& dir, const C_STRING& pattern, int* count, C_STRING** names);
  /// Bare names of the subdirectories of dir.
  static void GetDirs(const C_STRING& dir, int* count, C_STRING** names);
  /// dir + "\" + relative path of every matching file below dir (dir as
  /// given), the files of a directory before those of its subdirectories. A
  /// directory is never entered again from inside itself, so links that lead
  /// back up end the descent there.
  static void ScanDirRecursive(const C_STRING& dir, const C_STRING& pattern, int* count, C_STRING** paths);
  /// Matching files in the current directory (as ".\" + name) and then along
  /// "PATH", each path once. The search stops at the first empty element of
  /// the list (as "a::b" or a trailing ":"), which ends the scan.
  static void ScanExeDirs(const C_STRING& pattern, int* count, C_STRING** paths);
  /// The first existing file of that name among the product's directories
  /// ($QORGROUP, the versioned and plain $QORCONFIG, $QORLANG, $QORHOME/binext,
  /// $QORHOME/bin, $QORTARGET/bin, $QOREXTTARGET/bin, the current directory),
  /// expanded; CerrFileNotFound with the name when there is none.
  static void ScanQorDirs(const C_STRING& name, C_STRING* path);
  /// Every matching file in the product's directories, as "$ROOT/..." + name.
  static void ScanQorDirs(const C_STRING& pattern, int* count, C_STRING** paths);
  /// The file in $QORHOME/binext or else $QORHOME/bin, expanded.
  static void ScanBinDirs(const C_STRING& name, C_STRING* path);
  /// Creates the directory and every missing parent; CerrFileCannotCreate
  /// when a level cannot be made.
  static void MakeDir(const C_STRING& path);
  /// A versioned subdirectory of $QORCONFIG searched as well; empty at load.
  static C_STRING ConfigVersion;

  // The file object ------------------------------------------------------------
  /// Access modes. Any value other than READ and WRITE opens as UPDATE.
  enum MODE { READ = 0, WRITE = 1, UPDATE = 2 };
  /// Kinds of file; the values are part of the interface (4 and 5 are unused).
  /// AUTO becomes TEXT or UNICODE when the file is opened; COMPRESSED is kept
  /// as BINARY with the compressed switch set.
  enum TYPE { AUTO = 0, TEXT = 1, UNICODE = 2, BINARY = 3, COMPRESSED = 6 };
  /// Flag for the mode argument (bit 31): a COMPRESSED file is read or written
  /// in place, block by block, instead of through a temporary file.
  static constexpr int DIRECT = -2147483647 - 1;

  /// The magic "QORCOMPRESS_V1.0" that begins a compressed file (terminated).
  /// The block-compressed format: a 16-byte magic, then records of two
  /// little-endian 32-bit lengths (uncompressed, compressed) and one zlib
  /// stream each, with no index and no trailer.
  static const char COMPRESS_MAGIC[17];
  /// Uncompressed bytes of a full block (128 KiB).
  static constexpr int COMPRESS_BLOCK_SIZE = 131072;
  /// The largest compressed block the format accepts, in bytes.
  static constexpr int COMPRESS_BUFFER_SIZE = 131200;
  /// Bytes of the scratch area that ReadCompressBlock and WriteCompressBlock work in.
  static constexpr int COMPRESS_SCRATCH_SIZE = 131215;

  /// An anonymous temporary file, open in mode WRITE as BINARY, coding off; it
  /// disappears when closed. CerrFileCannotCreateTemporary when none can be made.
  C_FILE();
  /// Opens the file (the path may begin with an installation root). mode is a
  /// MODE, optionally with DIRECT. A failure leaves the object closed, with
  /// the error pending: every operation on a closed object does nothing.
  C_FILE(const C_STRING& path, int mode, TYPE type);
  /// The stream "Contents" of a storage (see storage.h), which must outlive
  /// the file. READ opens it (an empty one is made when there is none) and
  /// tells by IsCompressed whether it begins with the compressed format's
  /// magic, the position then left after 20 bytes; UPDATE makes it anew and
  /// commits the storage when the file is destroyed; WRITE is refused. Only
  /// raw reading and writing and positioning are offered: size, lines, flush
  /// and text operations are refused.
  C_FILE(IStorage* storage, int mode);
  /// A closed copy of the other's description (see below).
  /// A copy describes the same file (paths, mode, type, switches) but is
  /// closed: it never shares the source's stream or buffers, so that each
  /// stream is closed exactly once. Assigning first closes the target as its
  /// destruction would (a compressed file being written is finished).
  C_FILE(const C_FILE& other);
  /// Closes this file as its destruction would, then describes the other's file, closed.
  C_FILE& operator=(const C_FILE& other);
  /// Finishes a compressed file being written, then closes the stream.
  virtual ~C_FILE();

  /// The path as given.
  const C_STRING& GetPath() const { return path_; }
  /// The path expanded through the installation roots.
  const C_STRING& GetPathExp() const { return pathExp_; }
  /// The access mode.
  MODE GetMode() const { return mode_; }
  /// COMPRESSED is reported as BINARY; IsCompressed tells the difference.
  TYPE GetType() const { return type_ == COMPRESSED ? BINARY : type_; }
  /// Whether the file is in the block-compressed format.
  C_BOOL IsCompressed() const { return compressed_; }
  /// TRUE makes the file BINARY and compressed; FALSE does nothing. Neither
  /// allocates nor opens anything: only a file opened as COMPRESSED has the
  /// buffers and the temporary file of the compressed format.
  void SetCompressed(C_BOOL on);
  /// Coding: text passes through C_STRING::Encode and Decode on TEXT files.
  void SetCoding(C_BOOL on) { coding_ = on; }
  /// Whether coding is on.
  C_BOOL IsCoding() const { return coding_; }

  // Position and size, in bytes from the start (uncompressed bytes for a
  // compressed file read in place) -----------------------------------------
  /// The size in bytes; 0 for a closed file or one whose size cannot be told.
  long long GetSize();
  /// The current position; 0 for a closed file.
  long long GetPosit();
  /// Moves to a position; CerrFileCannotSeek when refused.
  void SetPosit(long long position);
  /// Moves to the start.
  void Rewind();
  /// Moves to the end.
  void Unwind();
  /// The 0-based line of the current position, counted from the start.
  int GetLine();
  /// Flushes the stream; on a compressed file being written, ends a block.
  void Flush();
  /// Flushes a bare C runtime stream (null is ignored); reports nothing.
  static void FlushFile(std::FILE* stream);

  // Raw data: got / put, when given, receive the bytes moved. --------------------
  /// Reads up to count bytes (*got, when given, receives the number read). A
  /// short read leaves CerrFileEndReached (mild) pending at the end of the file,
  /// CerrFileCannotRead (mild) on a failure.
  void Read(int count, void* data, int* got = nullptr);
  /// Writes count bytes (*put, when given, receives the number written); CerrFileCannotWrite (CerrFileNotEnoughSpace on
  /// a full disk) when they cannot all be written.
  void Write(int count, const void* data, int* put = nullptr);

  // Characters and strings ----------------------------------------------------
  /// Writes one 8-bit character (on a UNICODE file, as one UTF-16 unit).
  void Write(char c);
  /// Writes one character in the file's form: a UTF-16 unit on UNICODE and BINARY
  /// files, the code page's form (coded when coding is on) on TEXT files.
  void Write(C_CHAR c);
  /// Writes one UTF-16 unit, as Write(C_CHAR).
  void Write(char16_t c) { Write(C_CHAR(c)); }
  /// Reads one character, skipping CR; cleared at the end of the file.
  void Read(C_CHAR* c);
  /// Writes 8-bit text up to its terminator, without a line end.
  void Write(const char* text);
  /// Writes the text in the file's form, without a line end (coded on a TEXT file when coding is on).
  void Write(const C_STRING& text);
  /// Writes a line end: LF on TEXT and BINARY files, CR LF on UNICODE files, the unit LF on a
  /// compressed file written in place.
  void WriteEOL();
  /// Reads one line without its end (LF, CR LF, or CR on TEXT files); lines
  /// longer than the line buffer come back in pieces. At the end of the file
  /// the line is empty and CerrFileEndReached (mild) is pending.
  virtual void Read(C_STRING* line);
  /// The next token: quoted ("..."), or ending at white space or a control
  /// character; a backslash keeps the character after it.
  void ReadToken(C_STRING* token);
  /// As ReadToken, but an unquoted token ends only at a control character.
  void ReadTokenSpace(C_STRING* token);

  /// Writes one integer through the format (see C_STRING(int, const C_STRING&)).
  /// Formatted values, printf-style wide formats with the Windows directives.
  void Write(int value, const C_STRING& format);
  /// Writes two integers through one printf-style wide format.
  void Write(int a, int b, const C_STRING& format);
  /// Writes three integers through one printf-style wide format.
  void Write(int a, int b, int c, const C_STRING& format);
  /// Writes four integers through one printf-style wide format.
  void Write(int a, int b, int c, int d, const C_STRING& format);
  /// Writes a 64-bit integer through a printf-style wide format (%I64d, %lld).
  void Write(long long value, const C_STRING& format);
  /// Writes an unsigned 64-bit integer and two integers through one printf-style wide format.
  void Write(unsigned long long value, int a, int b, const C_STRING& format);
  /// Writes a real number through a printf-style wide format.
  void Write(double value, const C_STRING& format);
  /// Writes two real numbers through one printf-style wide format.
  void Write(double a, double b, const C_STRING& format);
  /// Writes three real numbers through one printf-style wide format.
  void Write(double a, double b, double c, const C_STRING& format);
  /// Writes four real numbers through one printf-style wide format.
  void Write(double a, double b, double c, double d, const C_STRING& format);
  /// Writes a text through a printf-style wide format holding one string directive.
  void Write(const C_STRING& text, const C_STRING& format);

  /// Writes the text to a bare C runtime stream, as a TEXT file does.
  /// Bare C runtime streams; failures name the file "unspecified".
  static void WriteFile(std::FILE* stream, const C_STRING& text);
  /// Reads one line from a bare C runtime stream, as a TEXT file does.
  static void ReadFile(std::FILE* stream, C_STRING* line);

  // Shielded data: n bytes as lines of printable groups (see shielding.h) ---------
  /// Writes n bytes as lines of shielded text (see shielding.h); *consumed and *written receive the bytes taken and the
  /// characters written.
  void WriteShielded(int n, void* data, int* consumed, int* written);
  /// Reads shielded lines back into at most n bytes; *decoded and *read receive
  /// the bytes decoded and the characters read; CerrFileContainsInvalidCode for text outside the code.
  void ReadShielded(int n, void* data, int* decoded, int* read);

  /// Verifies that every block of a compressed file decompresses; a failure
  /// is left pending.
  static void CheckCompression(const C_STRING& path);

 protected:
  /// The root table: names without "$" and their directories, as given, in
  /// order of addition; both arrays have the capacity RootsNba.
  static C_STRING* RootsNames;
  /// The root directories, in the order of RootsNames.
  static C_STRING* RootsDirs;
  /// The number of roots.
  static int RootsNb;
  /// The capacity of the two tables.
  static int RootsNba;

  /// Reads and decompresses the next block; CerrFileCannotDecompress (or
  /// CerrFileContainsInvalidCode) for a damaged block, CerrFileEndReached at the end.
  /// The compressed format, block by block (a null scratch: one is allocated
  /// for the call).
  void ReadCompressBlock(void* scratch);
  /// Compresses and writes the buffered block; CerrFileCannotCompress or CerrFileCannotWrite when it fails.
  /// While CfileCompressThreads was above 1 when the file was opened for
  /// writing, the block is handed to the workers and written, in order, by a
  /// later call (the next blocks, Flush, closing); a failure of an earlier
  /// block shows here and refuses this one, which stays in the buffer.
  void WriteCompressBlock(void* scratch);
  /// Reads uncompressed bytes across blocks.
  void ReadCompress(int count, void* data, int* got);
  /// Writes uncompressed bytes, ending a block each COMPRESS_BLOCK_SIZE bytes.
  void WriteCompress(int count, const void* data, int* put);
  /// Indexes the blocks of a file read in place (their offsets and uncompressed starts).
  void UpdateCompressBlockTable() const;
  /// The block that holds an uncompressed position, and the offset in it.
  void SearchCompressBlockPosition(long long position, long long* block, long long* offset);

 private:
  class StorageStream;
  bool IsDirectCompressed() const { return compressed_ && direct_ && block_ != nullptr; }
  // Positions of a compressed file opened DIRECT count uncompressed bytes,
  // which only reading in place can tell: in the other modes (an update on
  // the stored bytes included) they are refused.
  bool RefusesStreamPositions() const { return compressed_ && direct_; }
  std::FILE* OpenPath(const char* how) const;
  void OpenForReading();
  void OpenForWriting();
  void CloseStream();
  void Close();
  void ReportWriteFailure() const;
  void ReportReadFailure() const;
  void ReportShortRecord() const;
  bool RefusedOnStorage() const;
  void CloseStorageStream();
  bool ReadBlockRecord(void* scratch, bool* atBoundary);
  void PositionDirect(long long position);
  void DecompressToTemp();
  void CompressFromTemp();
  bool CompressAndWriteBlock(void* scratch);
  bool WriteBlockRecord(unsigned int stored, const unsigned char* packed, unsigned int packedSize);
  bool StartCompressWorkers();
  bool HandBlockToWorkers();
  bool WriteCompressedBlocks(bool wait);
  bool WriteCompressedJob(qorc::file::CompressJob* job);
  void EndCompressBlock();
  void StopCompressWorkers();
  void WriteUnits(const char16_t* units, int count);
  void WriteFormatted(const C_STRING& text);
  void ReadCodedLine(C_STRING* line);
  void ReadDirectLine(C_STRING* line);
  void ReadStreamLine(C_STRING* line);
  int ReadTokenChar();
  void ReadTokenUntil(C_STRING* token, bool spaceEnds);

  C_STRING path_;
  C_STRING pathExp_;
  std::FILE* stream_ = nullptr;
  // A file inside a structured-storage document is carried by a stream
  // wrapper (owned) over the caller's storage (not owned) instead of a C
  // runtime stream; the constructors for disk files leave both null.
  StorageStream* storageStream_ = nullptr;
  IStorage* storage_ = nullptr;
  MODE mode_ = READ;
  TYPE type_ = BINARY;
  C_BOOL coding_;
  C_BOOL swapped_;
  C_BOOL compressed_;
  unsigned int cursor_ = 0;
  unsigned int fill_ = 0;
  unsigned char* block_ = nullptr;
  long long currentBlock_ = 0;
  mutable int blockCount_ = -1;
  mutable long long* blockOffsets_ = nullptr;
  mutable long long* blockStarts_ = nullptr;
  C_BOOL direct_;
  int flushCount_ = 0;
  int flushCapacity_ = 0;
  long long* flushPoints_ = nullptr;
  // The stream is the temporary file of a compressed file being written.
  C_BOOL viaTemp_;
  // Workers compressing the blocks of a compressed file being written
  // (CfileCompressThreads as it was when the file was opened), started at
  // the first block handed to them and stopped when the file closes.
  int compressThreads_ = 1;
  qorc::file::BlockCompressor* compressor_ = nullptr;
};

#endif
