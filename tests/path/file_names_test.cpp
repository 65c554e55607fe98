#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <string>
#include <vector>

namespace {

std::u16string Text(const C_STRING& s) { return std::u16string(s.GetWCHAR(), static_cast<std::size_t>(s.GetNumber())); }

// Index management switched on for one test.
class ManagedIndex {
 public:
  explicit ManagedIndex(bool on) : saved_(CfileManageIndex) { CfileManageIndex = on; }
  ~ManagedIndex() { CfileManageIndex = saved_; }

 private:
  C_BOOL saved_;
};

struct Split {
  std::u16string root;
  std::vector<std::u16string> parts;
};

Split SplitDir(const char16_t* dir) {
  C_STRING root;
  int count = -1;
  C_STRING* parts = nullptr;
  C_FILE::SplitDir(C_STRING(dir), &root, &count, &parts);
  Split split{Text(root), {}};
  for (int i = 0; i < count; ++i) split.parts.push_back(Text(parts[i]));
  delete[] parts;
  return split;
}

TEST(FileNames, CleanAndMakePathAreLiteral) {
  C_STRING path(u"a/b\\c//d");
  C_FILE::CleanPath(&path);
  EXPECT_EQ(Text(path), u"a\\b\\c\\\\d");

  C_STRING out;
  C_FILE::MakePath(C_STRING(u"C:\\dir\\"), C_STRING(u"f.txt"), &out);
  EXPECT_EQ(Text(out), u"C:\\dir\\\\f.txt");
  C_FILE::MakePath(C_STRING(), C_STRING(u"f.txt"), &out);
  EXPECT_EQ(Text(out), u"\\f.txt");
  // The output may be one of the inputs.
  C_STRING dir(u"d");
  C_FILE::MakePath(dir, C_STRING(u"n"), &dir);
  EXPECT_EQ(Text(dir), u"d\\n");
}

TEST(FileNames, SplitPathSeparatesDirectoryAndName) {
  C_STRING dir(u"x");
  C_STRING name(u"x");
  C_FILE::SplitPath(C_STRING(u"file.txt"), &dir, &name);
  EXPECT_EQ(Text(dir), u"");
  EXPECT_EQ(Text(name), u"file.txt");
  C_FILE::SplitPath(C_STRING(u"C:file.txt"), &dir, &name);
  EXPECT_EQ(Text(dir), u"C");
  EXPECT_EQ(Text(name), u"file.txt");
  C_FILE::SplitPath(C_STRING(u"C:\\a\\.."), &dir, &name);
  EXPECT_EQ(Text(dir), u"C:\\a\\..");
  EXPECT_EQ(Text(name), u"");
  // A name holding a zero unit is not ".".
  C_FILE::SplitPath(C_STRING(2, u".\0"), &dir, &name);
  EXPECT_EQ(Text(dir), u"");
  EXPECT_EQ(name.GetNumber(), 2);
  C_FILE::SplitPath(C_STRING(u"/usr/lib/x.so"), &dir, &name);
  EXPECT_EQ(Text(dir), u"/usr/lib");
  EXPECT_EQ(Text(name), u"x.so");
}

TEST(FileNames, SplitDirGivesRootAndComponents) {
  Split s = SplitDir(u"\\\\srv\\share\\d");
  EXPECT_EQ(s.root, u"\\\\srv");
  EXPECT_EQ(s.parts, (std::vector<std::u16string>{u"share", u"d"}));
  s = SplitDir(u"C:\\a\\b");
  EXPECT_EQ(s.root, u"C");
  EXPECT_EQ(s.parts, (std::vector<std::u16string>{u"a", u"b"}));
  s = SplitDir(u"a\\b");
  EXPECT_EQ(s.root, u"");
  EXPECT_EQ(s.parts, (std::vector<std::u16string>{u"a", u"b"}));
  // A leading separator and doubled separators give empty components.
  s = SplitDir(u"\\a//b/");
  EXPECT_EQ(s.parts, (std::vector<std::u16string>{u"", u"a", u"", u"b", u""}));

  // Without a drive the root is left as it was; an empty directory leaves
  // the array alone.
  C_STRING root(u"kept");
  int count = -1;
  C_STRING* parts = nullptr;
  C_FILE::SplitDir(C_STRING(u"x\\y"), &root, &count, &parts);
  EXPECT_EQ(Text(root), u"kept");
  delete[] parts;
  parts = nullptr;
  C_FILE::SplitDir(C_STRING(), &root, &count, &parts);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(parts, nullptr);
}

TEST(FileNames, ShrinkPathRemovesDotComponents) {
  const auto shrink = [](const char16_t* text) {
    C_STRING path(text);
    C_FILE::ShrinkPath(&path);
    return Text(path);
  };
  EXPECT_EQ(shrink(u"C:\\a\\.\\b\\..\\c.txt"), u"C:\\a\\c.txt");
  EXPECT_EQ(shrink(u"a\\..\\b.txt"), u"b.txt");
  EXPECT_EQ(shrink(u".\\..\\x"), u".\\..\\x");
  EXPECT_EQ(shrink(u"$QORHOME\\..\\x"), u"$QORHOME\\..\\x");
  EXPECT_EQ(shrink(u"\\\\srv\\share\\a\\..\\f"), u"\\\\srv\\share\\f");
  EXPECT_EQ(shrink(u"/home/u/a/b/../../f"), u"\\home\\u\\f");
  EXPECT_EQ(shrink(u"C:/x/y/.."), u"C:\\x\\");
}

TEST(FileNames, CompactPathFitsTheWidth) {
  const auto compact = [](const char16_t* text, int width) {
    C_STRING out(u"old");
    C_FILE::CompactPath(C_STRING(text), width, &out);
    return Text(out);
  };
  EXPECT_EQ(compact(u"C:\\short.txt", 40), u"C:\\short.txt");
  EXPECT_EQ(compact(u"C:\\program\\data\\report.txt", 20), u"C:\\pro...\\report.txt");
  EXPECT_EQ(compact(u"C:\\program\\data\\report.txt", 20).size(), 20u);
  EXPECT_EQ(compact(u"C:\\a\\averyveryverylongname.txt", 12), u"...\\avery...");
  EXPECT_EQ(compact(u"averyveryverylongname.txt", 10), u"averyve...");
  EXPECT_EQ(compact(u"C:\\a\\b\\c.txt", 3), u"...");
  EXPECT_EQ(compact(u"C:\\a\\b\\c.txt", 0), u"");
}

TEST(FileNames, LastSuffixOperations) {
  C_STRING out;
  C_FILE::GetPrefix(C_STRING(u"dir.v\\file.txt"), &out);
  EXPECT_EQ(Text(out), u"dir.v\\file");
  C_FILE::GetPrefix(C_STRING(u"noext"), &out);
  EXPECT_EQ(Text(out), u"");
  // Separators are not considered here...
  C_FILE::GetLastSuffix(C_STRING(u"C:\\v1.2\\file"), &out);
  EXPECT_EQ(Text(out), u"2\\file");
  // ...but they are when setting a suffix.
  C_STRING path(u"C:\\v1.2\\file");
  C_FILE::SetLastSuffix(C_STRING(u"txt"), &path);
  EXPECT_EQ(Text(path), u"C:\\v1.2\\file.txt");
  C_FILE::SetLastSuffix(C_STRING(u"doc"), &path);
  EXPECT_EQ(Text(path), u"C:\\v1.2\\file.doc");
  C_FILE::SetLastSuffix(C_STRING(), &path);
  EXPECT_EQ(Text(path), u"C:\\v1.2\\file.");

  path = u"a.tar.gz";
  C_STRING suffix(u"x");
  C_FILE::RemoveLastSuffix(&path, &suffix);
  EXPECT_EQ(Text(path), u"a.tar");
  EXPECT_EQ(Text(suffix), u"gz");
  path = u"plain";
  C_FILE::RemoveLastSuffix(&path, &suffix);
  EXPECT_EQ(Text(path), u"plain");
  EXPECT_EQ(Text(suffix), u"");
  C_FILE::RemoveLastSuffix(&path, nullptr);
}

TEST(FileNames, SuffixesWithoutIndexManagement) {
  ManagedIndex off(false);
  C_STRING out;
  C_FILE::GetSuffix(C_STRING(u"part.dat.3"), &out);
  EXPECT_EQ(Text(out), u"3");
  C_STRING prefix;
  C_FILE::SplitName(C_STRING(u"part.dat.3"), &prefix, &out);
  EXPECT_EQ(Text(prefix), u"part.dat");
  EXPECT_EQ(Text(out), u"3");
  C_STRING path(u"part.dat.3");
  C_FILE::SetSuffix(C_STRING(u"txt"), &path);
  EXPECT_EQ(Text(path), u"part.dat.txt");
}

TEST(FileNames, SuffixesLookPastIndexes) {
  ManagedIndex on(true);
  C_STRING out;
  C_STRING prefix;
  C_FILE::GetSuffix(C_STRING(u"part.dat.3"), &out);
  EXPECT_EQ(Text(out), u"dat");
  C_FILE::SplitName(C_STRING(u"part.dat.3"), &prefix, &out);
  EXPECT_EQ(Text(prefix), u"part");
  EXPECT_EQ(Text(out), u"dat");

  C_STRING path(u"part.dat.3");
  C_FILE::RemoveSuffix(&path, &out);
  EXPECT_EQ(Text(path), u"part.3");
  EXPECT_EQ(Text(out), u"dat.3");

  path = u"part.dat.3";
  C_FILE::SetSuffix(C_STRING(u"txt"), &path);
  EXPECT_EQ(Text(path), u"part.txt.3");
  // Only the index nearest the suffix survives.
  path = u"part.dat.3.4";
  C_FILE::SetSuffix(C_STRING(u"txt"), &path);
  EXPECT_EQ(Text(path), u"part.txt.3");

  // A "." at index 0 does not start an index.
  C_FILE::GetSuffix(C_STRING(u".3"), &out);
  EXPECT_EQ(Text(out), u"3");
  C_FILE::SplitName(C_STRING(u".3"), &prefix, &out);
  EXPECT_EQ(Text(prefix), u"");
  EXPECT_EQ(Text(out), u"3");
  C_FILE::SplitName(C_STRING(u"readme"), &prefix, &out);
  EXPECT_EQ(Text(prefix), u"readme");
  EXPECT_EQ(Text(out), u"");
}

TEST(FileNames, Indexes) {
  C_STRING out(u"x");
  C_FILE::GetIndex(C_STRING(u"part.dat.3"), &out);
  EXPECT_EQ(Text(out), u"3");
  C_FILE::GetIndex(C_STRING(u"part.dat"), &out);
  EXPECT_EQ(Text(out), u"");
  C_FILE::GetIndex(C_STRING(u"part.-3"), &out);
  EXPECT_EQ(Text(out), u"");

  C_STRING path(u"part.dat.3");
  C_FILE::SetIndex(7, &path);
  EXPECT_EQ(Text(path), u"part.dat.7");
  path = u"part.dat";
  C_FILE::SetIndex(7, &path);
  EXPECT_EQ(Text(path), u"part.dat.7");
  C_FILE::SetIndex(-2, &path);
  EXPECT_EQ(Text(path), u"part.dat.-2");

  path = u"part.dat";
  C_STRING index(u"untouched");
  C_FILE::RemoveIndex(&path, &index);
  EXPECT_EQ(Text(path), u"part.dat");
  EXPECT_EQ(Text(index), u"untouched");
  path = u"part.dat.12";
  C_FILE::RemoveIndex(&path, &index);
  EXPECT_EQ(Text(path), u"part.dat");
  EXPECT_EQ(Text(index), u"12");
  EXPECT_FALSE(C_ERROR::Is());
}

}  // namespace
