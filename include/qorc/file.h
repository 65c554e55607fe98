// C_FILE: the library's files. The static services come first: file names,
// installation roots and path expansion, whole-file operations and temporary
// files. Every path may be written with "\" or "/" and may begin with an
// installation root ($NAME); "\" is the only separator the library writes.
#ifndef QORC_FILE_H
#define QORC_FILE_H

#include <qorc/date.h>
#include <qorc/export.h>
#include <qorc/string.h>
#include <qorc/types.h>

#include <cstdio>

class QORC_API C_FILE {
 public:
  // Called during a copy with the fraction done (0.0 to 1.0), whether a new
  // stream starts, and the data given with it; FALSE stops the copy.
  using PROGRESS_CALLBACK = C_BOOL (*)(double fraction, C_BOOL streamStart, int data);

  // File names: pure text, the disk is never consulted -----------------------
  // Every "/" becomes "\".
  static void CleanPath(C_STRING* path);
  // out = dir + "\" + name, whatever dir ends with.
  static void MakePath(const C_STRING& dir, const C_STRING& name, C_STRING* out);
  static void SplitPath(const C_STRING& path, C_STRING* dir, C_STRING* name);
  // The root (drive letter or \\server) and the components of a directory.
  // The components come in a new array (release it with delete[]); with an
  // empty directory the count is 0 and the array is left as it was.
  static void SplitDir(const C_STRING& dir, C_STRING* root, int* count, C_STRING** parts);
  static void SplitName(const C_STRING& name, C_STRING* prefix, C_STRING* suffix);
  // Removes "." components and each component followed by "..".
  static void ShrinkPath(C_STRING* path);
  // A shortened form of at most `width` characters for display.
  static void CompactPath(const C_STRING& path, int width, C_STRING* out);
  static void GetPrefix(const C_STRING& name, C_STRING* out);
  static void GetLastSuffix(const C_STRING& name, C_STRING* out);
  static void SetLastSuffix(const C_STRING& suffix, C_STRING* path);
  static void RemoveLastSuffix(C_STRING* path, C_STRING* suffix);
  // As the three above, looking past trailing indexes when CfileManageIndex is set.
  static void GetSuffix(const C_STRING& name, C_STRING* out);
  static void SetSuffix(const C_STRING& suffix, C_STRING* path);
  static void RemoveSuffix(C_STRING* path, C_STRING* suffix);
  // A trailing numeric dot-component, as in part.dat.3.
  static void GetIndex(const C_STRING& name, C_STRING* out);
  static void SetIndex(int index, C_STRING* path);
  static void RemoveIndex(C_STRING* path, C_STRING* index);

  // Installation roots and the process's well-known directories ----------------
  // Appends a root; the name is given without "$".
  static void AddRoot(const C_STRING& name, const C_STRING& dir);
  // The live tables (not copies): they move when a later AddRoot grows them.
  static void GetRoots(int* count, const C_STRING** names, const C_STRING** dirs);
  // Replaces each $NAME by its root directory, in place.
  static void ExpandPath(C_STRING* path);
  static void ExpandPathNoCase(C_STRING* path);
  // The path with "/" turned into "\"; the $NAME form is ReplaceRoot's.
  static C_STRING CompressPath(const C_STRING& path);
  // Strips the longest root directory that starts the expanded path.
  static void RemoveRoot(C_STRING* path, C_STRING* root);
  // Puts $NAME in place of the longest root directory (compared without case).
  static void ReplaceRoot(C_STRING* path);
  // Rewrites the path so that it goes through the reference file's directory.
  static void ShareRootPath(const C_STRING& reference, C_STRING* path);
  // Whether two paths name the same file, by their text alone.
  static C_BOOL HasSamePath(const C_STRING& a, const C_STRING& b);
  // The network source of a local mount, or the path itself; answers are kept.
  static void GetNetworkName(const C_STRING& path, C_STRING* network);
  // The full file name of the process's executable.
  static C_STRING GetExePath();
  // The current directory, ending in "\".
  static C_STRING GetCurrent();
  // The temporary directory, ending in "\"; empty when there is none.
  static C_STRING GetTempDir();

  // Whole-file operations ----------------------------------------------------
  static C_BOOL Exists(const C_STRING& path);
  static void CheckExists(const C_STRING& path);
  static C_BOOL IsReadOnly(const C_STRING& path);
  static void SetReadOnly(const C_STRING& path, C_BOOL readOnly);
  static void Remove(const C_STRING& path);
  // Never replaces an existing target.
  static void Rename(const C_STRING& from, const C_STRING& to);
  static void Copy(const C_STRING& from, const C_STRING& to, C_BOOL overwrite);
  // The callback serves the next Copy only.
  static void SetCopyProgress(PROGRESS_CALLBACK callback, int data);
  // The last modification, in UTC.
  static void GetDateModif(const C_STRING& path, C_DATE* date);

  static PROGRESS_CALLBACK ProgressCallback;
  static int ProgressData;

  // Temporary files ----------------------------------------------------------
  // A free name "qorXXXX.tmp" in the temporary directory (not reserved), or empty.
  static C_STRING GetTempFilePath();
  // An open stream on a new temporary file that disappears when it is closed;
  // null with CerrFileCannotCreateTemporary pending on failure.
  static std::FILE* CreateTempFile();

 protected:
  // The root table: names without "$" and their directories, as given, in
  // order of addition; both arrays have the capacity RootsNba.
  static C_STRING* RootsNames;
  static C_STRING* RootsDirs;
  static int RootsNb;
  static int RootsNba;
};

#endif
