#include "file/file_test_util.h"

namespace {

// The results of the name operations, two outputs joined by "|"; outputs
// start as "old" to show what is cleared and what is kept.
std::u16string Get(void (*op)(const C_STRING&, C_STRING*), const C_STRING& name) {
  C_STRING out(u"old");
  op(name, &out);
  return Text(out);
}
std::u16string Split(void (*op)(const C_STRING&, C_STRING*, C_STRING*), const C_STRING& path) {
  C_STRING first(u"old"), second(u"old");
  op(path, &first, &second);
  return Text(first) + u"|" + Text(second);
}
std::u16string Set(void (*op)(const C_STRING&, C_STRING*), const char16_t* suffix, const char16_t* path) {
  C_STRING result(path);
  op(C_STRING(suffix), &result);
  return Text(result);
}
std::u16string Remove(void (*op)(C_STRING*, C_STRING*), const char16_t* path) {
  C_STRING result(path), removed(u"old");
  op(&result, &removed);
  return Text(result) + u"|" + Text(removed);
}

std::u16string Apply(void (*op)(C_STRING*), const char16_t* text) {
  C_STRING path(text);
  op(&path);
  return Text(path);
}

TEST(FileNames, NameOperationsAreLiteral) {
  EXPECT_EQ(Apply(C_FILE::CleanPath, u"a/b\\c//d"), u"a\\b\\c\\\\d");
  C_STRING path;
  C_FILE::MakePath(C_STRING(u"C:\\dir\\"), C_STRING(u"f.txt"), &path);
  EXPECT_EQ(Text(path), u"C:\\dir\\\\f.txt");
  C_FILE::MakePath(C_STRING(), path, &path);  // the output may be an input
  EXPECT_EQ(Text(path), u"\\C:\\dir\\\\f.txt");

  EXPECT_EQ(Split(C_FILE::SplitPath, C_STRING(u"file.txt")), u"|file.txt");
  EXPECT_EQ(Split(C_FILE::SplitPath, C_STRING(u"C:file.txt")), u"C|file.txt");
  EXPECT_EQ(Split(C_FILE::SplitPath, C_STRING(u"C:\\a\\..")), u"C:\\a\\..|");
  // Found by fuzzing: a name holding a zero unit is not ".".
  EXPECT_EQ(Split(C_FILE::SplitPath, C_STRING(2, u".\0")), std::u16string(u"|.\0", 3));

  // The root, ">" and the components; without a drive the root is kept, and
  // separators in a row give empty components.
  const auto splitDir = [](const char16_t* dir) {
    C_STRING root(u"old");
    int count = -1;
    C_STRING* parts = nullptr;
    C_FILE::SplitDir(C_STRING(dir), &root, &count, &parts);
    std::u16string result = (count < 0 || (count == 0) != (parts == nullptr)) ? u"bad count" : Text(root) + u">";
    for (int i = 0; i < count; ++i) result += (i > 0 ? u"|" : u"") + Text(parts[i]);
    delete[] parts;
    return result;
  };
  EXPECT_EQ(splitDir(u"\\\\srv\\share\\d"), u"\\\\srv>share|d");
  EXPECT_EQ(splitDir(u"C:\\a\\b"), u"C>a|b");
  EXPECT_EQ(splitDir(u"\\a//b/"), u"old>|a||b|");
  EXPECT_EQ(splitDir(u""), u"old>");

  // "." and ".." in the first place, or after an unexpanded root, are kept.
  EXPECT_EQ(Apply(C_FILE::ShrinkPath, u"C:\\a\\.\\b\\..\\c.txt"), u"C:\\a\\c.txt");
  EXPECT_EQ(Apply(C_FILE::ShrinkPath, u"a\\..\\b.txt"), u"b.txt");
  EXPECT_EQ(Apply(C_FILE::ShrinkPath, u".\\..\\x"), u".\\..\\x");
  EXPECT_EQ(Apply(C_FILE::ShrinkPath, u"$QORHOME\\..\\x"), u"$QORHOME\\..\\x");
  EXPECT_EQ(Apply(C_FILE::ShrinkPath, u"\\\\srv\\share\\a\\..\\f"), u"\\\\srv\\share\\f");
  EXPECT_EQ(Apply(C_FILE::ShrinkPath, u"C:/x/y/.."), u"C:\\x\\");

  // Compacting fits the width.
  const auto compact = [](const char16_t* text, int width) {
    C_STRING out(u"old");
    C_FILE::CompactPath(C_STRING(text), width, &out);
    return Text(out);
  };
  EXPECT_EQ(compact(u"C:\\short.txt", 40), u"C:\\short.txt");
  EXPECT_EQ(compact(u"C:\\program\\data\\report.txt", 20), u"C:\\pro...\\report.txt");
  EXPECT_EQ(compact(u"C:\\a\\averyveryverylongname.txt", 12), u"...\\avery...");
  EXPECT_EQ(compact(u"averyveryverylongname.txt", 10), u"averyve...");
  EXPECT_EQ(compact(u"C:\\a\\b\\c.txt", 3), u"...");
  EXPECT_EQ(compact(u"C:\\a\\b\\c.txt", 0), u"");

  EXPECT_EQ(Get(C_FILE::GetPrefix, C_STRING(u"dir.v\\file.txt")), u"dir.v\\file");
  EXPECT_EQ(Get(C_FILE::GetPrefix, C_STRING(u"noext")), u"");
  // Getting and removing the last suffix pass separators; setting stops there.
  EXPECT_EQ(Get(C_FILE::GetLastSuffix, C_STRING(u"C:\\v1.2\\file")), u"2\\file");
  EXPECT_EQ(Set(C_FILE::SetLastSuffix, u"txt", u"C:\\v1.2\\file"), u"C:\\v1.2\\file.txt");
  EXPECT_EQ(Set(C_FILE::SetLastSuffix, u"", u"C:\\v1.2\\file.doc"), u"C:\\v1.2\\file.");
  EXPECT_EQ(Remove(C_FILE::RemoveLastSuffix, u"a.tar.gz"), u"a.tar|gz");
  EXPECT_EQ(Remove(C_FILE::RemoveLastSuffix, u"plain"), u"plain|");
  path = u"a.b";
  C_FILE::RemoveLastSuffix(&path, nullptr);  // the suffix is not wanted
  EXPECT_EQ(Text(path), u"a");

  // With index management the suffix operations look past trailing indexes.
  for (const bool managed : {false, true}) {
    CfileManageIndex = managed;
    EXPECT_EQ(Get(C_FILE::GetSuffix, C_STRING(u"part.dat.3")), managed ? u"dat" : u"3");
    EXPECT_EQ(Split(C_FILE::SplitName, C_STRING(u"part.dat.3")), managed ? u"part|dat" : u"part.dat|3");
    EXPECT_EQ(Remove(C_FILE::RemoveSuffix, u"part.dat.3"), managed ? u"part.3|dat.3" : u"part.dat|3");
    EXPECT_EQ(Set(C_FILE::SetSuffix, u"txt", u"part.dat.3"), managed ? u"part.txt.3" : u"part.dat.txt");
  }
  // Only the index nearest the suffix survives; a "." at index 0 starts no index.
  EXPECT_EQ(Set(C_FILE::SetSuffix, u"txt", u"part.dat.3.4"), u"part.txt.3");
  EXPECT_EQ(Split(C_FILE::SplitName, C_STRING(u".3")), u"|3");
  EXPECT_EQ(Split(C_FILE::SplitName, C_STRING(u"readme")), u"readme|");
  CfileManageIndex = false;

  EXPECT_EQ(Get(C_FILE::GetIndex, C_STRING(u"part.dat")), u"");
  EXPECT_EQ(Get(C_FILE::GetIndex, C_STRING(u"part.-3")), u"");
  for (const char16_t* text : {u"part.dat.3", u"part.dat"}) {
    path = text;
    C_FILE::SetIndex(-7, &path);
    EXPECT_EQ(Text(path), u"part.dat.-7");
  }
  EXPECT_EQ(Remove(C_FILE::RemoveIndex, u"part.dat"), u"part.dat|old");
  EXPECT_EQ(Remove(C_FILE::RemoveIndex, u"part.dat.12"), u"part.dat|12");
  EXPECT_FALSE(C_ERROR::Is());
}

}  // namespace
