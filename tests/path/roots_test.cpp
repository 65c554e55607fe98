#include "path/roots.h"

#include <gtest/gtest.h>
#include <qorc/qorc.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "platform/posix/mountinfo.h"
#include "support/temp_dir.h"

namespace {

std::u16string Text(const C_STRING& s) { return std::u16string(s.GetWCHAR(), static_cast<std::size_t>(s.GetNumber())); }

struct RootTableView : C_FILE {
  static int Capacity() { return RootsNba; }
};

// Every test starts with an empty root table.
class Roots : public testing::Test {
 protected:
  void SetUp() override { qorc::DestroyRootTables(); }
  void TearDown() override { qorc::DestroyRootTables(); }

  static void Add(const char16_t* name, const char16_t* dir) { C_FILE::AddRoot(C_STRING(name), C_STRING(dir)); }
  static std::u16string Expand(const char16_t* text, bool ignoreCase = false) {
    C_STRING path(text);
    if (ignoreCase) {
      C_FILE::ExpandPathNoCase(&path);
    } else {
      C_FILE::ExpandPath(&path);
    }
    return Text(path);
  }
};

TEST_F(Roots, EmptyTableOnlyCleansSeparators) {
  EXPECT_EQ(Expand(u"$QORHOME/bin/x"), u"$QORHOME\\bin\\x");
  C_STRING path(u"D:/Inst/x");
  C_FILE::ReplaceRoot(&path);
  EXPECT_EQ(Text(path), u"D:\\Inst\\x");
  C_STRING root(u"old");
  C_FILE::RemoveRoot(&path, &root);
  EXPECT_EQ(Text(path), u"D:\\Inst\\x");
  EXPECT_EQ(Text(root), u"");
}

TEST_F(Roots, TableGrowsAndKeepsOrder) {
  for (int i = 0; i < 50; ++i) C_FILE::AddRoot(C_STRING(i), C_STRING(i * 10));
  EXPECT_EQ(RootTableView::Capacity(), 50);
  Add(u"R50", u"D50");
  EXPECT_EQ(RootTableView::Capacity(), 100);
  int count = 0;
  const C_STRING* names = nullptr;
  const C_STRING* dirs = nullptr;
  C_FILE::GetRoots(&count, &names, &dirs);
  ASSERT_EQ(count, 51);
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(Text(names[i]), Text(C_STRING(i)));
    EXPECT_EQ(Text(dirs[i]), Text(C_STRING(i * 10)));
  }
  EXPECT_EQ(Text(names[50]), u"R50");
  C_FILE::GetRoots(&count, &names, nullptr);
  EXPECT_EQ(count, 51);
}

TEST_F(Roots, ExpansionRules) {
  Add(u"QORHOME", u"D:\\Inst");
  Add(u"QORHOME", u"E:\\Shadowed");
  Add(u"QORHOME.old", u"D:\\Old");
  Add(u"DATA", u"/srv/data");
  // The first root of a name wins; a name ends only at a separator.
  EXPECT_EQ(Expand(u"$QORHOME/bin/a.dll"), u"D:\\Inst\\bin\\a.dll");
  EXPECT_EQ(Expand(u"$QORHOME"), u"D:\\Inst");
  EXPECT_EQ(Expand(u"$QORHOME.old\\x"), u"D:\\Old\\x");
  // Anywhere in the text, several times; directories are used as stored.
  EXPECT_EQ(Expand(u"copy of $QORHOME\\a and $DATA\\b"), u"copy of D:\\Inst\\a and /srv/data\\b");
  // An unknown name ends the whole expansion.
  EXPECT_EQ(Expand(u"$UNKNOWN\\$QORHOME\\x"), u"$UNKNOWN\\$QORHOME\\x");
  // Names are compared with case, unless asked otherwise.
  EXPECT_EQ(Expand(u"$qorhome\\x"), u"$qorhome\\x");
  EXPECT_EQ(Expand(u"$qorhome\\x", true), u"D:\\Inst\\x");
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(Roots, DollarBroughtInByADirectory) {
  // Not expanded again when it lands within the old name's place...
  Add(u"A", u"$B");
  Add(u"B", u"E:");
  Add(u"LONGNAME", u"D:\\$B");
  Add(u"L", u"D:\\$B");
  EXPECT_EQ(Expand(u"$A\\x"), u"$B\\x");
  EXPECT_EQ(Expand(u"$LONGNAME\\x"), u"D:\\$B\\x");
  // ...but expanded when it lands beyond it.
  EXPECT_EQ(Expand(u"$L\\x"), u"D:\\E:\\x");
}

TEST_F(Roots, SelfReferenceStopsAtTheStringLimit) {
  const std::u16string dir = std::u16string(1000, u'x') + u"\\$LOOP";
  Add(u"LOOP", dir.c_str());
  C_STRING path(u"$LOOP\\end");
  C_FILE::ExpandPath(&path);
  EXPECT_TRUE(CerrValueTooHigh.IsPending());
  EXPECT_LE(path.GetNumber(), C_STRING::MAX_SIZE - 1);
}

TEST_F(Roots, RemoveAndReplaceTakeTheLongestDirectory) {
  Add(u"A", u"C:\\a");
  Add(u"AB", u"C:\\ab");
  C_STRING path(u"C:\\abc\\x");
  C_STRING root;
  // A plain character prefix: no separator needs to follow.
  C_FILE::RemoveRoot(&path, &root);
  EXPECT_EQ(Text(root), u"C:\\abc");
  EXPECT_EQ(Text(path), u"c\\x");
  // RemoveRoot matches with case, ReplaceRoot without.
  path = u"c:\\AB\\x";
  C_FILE::RemoveRoot(&path, &root);
  EXPECT_EQ(Text(path), u"c:\\AB\\x");
  EXPECT_EQ(Text(root), u"");
  C_FILE::ReplaceRoot(&path);
  EXPECT_EQ(Text(path), u"$AB\\x");
}

TEST_F(Roots, RootAndSeparatorGoToBothResults) {
  Add(u"QORHOME", u"D:\\Inst");
  C_STRING path(u"$QORHOME/bin/x.dll");
  C_STRING root;
  C_FILE::RemoveRoot(&path, &root);
  EXPECT_EQ(Text(root), u"D:\\Inst\\");
  EXPECT_EQ(Text(path), u"\\bin\\x.dll");
  path = u"D:\\Inst";
  C_FILE::RemoveRoot(&path, nullptr);
  EXPECT_EQ(Text(path), u"");

  path = u"d:\\INST\\bin\\a.dll";
  C_FILE::ReplaceRoot(&path);
  EXPECT_EQ(Text(path), u"$QORHOME\\bin\\a.dll");
  // The stored form comes back to the same file.
  C_FILE::ExpandPath(&path);
  EXPECT_EQ(Text(path), u"D:\\Inst\\bin\\a.dll");
  // CompressPath never substitutes a root.
  EXPECT_EQ(Text(C_FILE::CompressPath(C_STRING(u"D:/Inst/x"))), u"D:\\Inst\\x");
}

TEST_F(Roots, ShareRootPathGoesThroughTheReference) {
  C_STRING path(u"C:\\w\\b\\f.txt");
  C_FILE::ShareRootPath(C_STRING(u"C:\\w\\a\\ref.txt"), &path);
  EXPECT_EQ(Text(path), u"C:\\w\\a\\..\\b\\f.txt");

  Add(u"PRJ", u"/home/u/prj");
  path = u"/home/u/prj/src/deep/f.c";
  C_FILE::ShareRootPath(C_STRING(u"$PRJ/doc/ref.txt"), &path);
  EXPECT_EQ(Text(path), u"/home/u/prj\\doc\\..\\src\\deep\\f.c");

  path = u"/home/u/prj/doc/sub/f.txt";
  C_FILE::ShareRootPath(C_STRING(u"/home/u/prj/doc/ref.txt"), &path);
  EXPECT_EQ(Text(path), u"\\home\\u\\prj\\doc\\sub\\f.txt");

  path = u"D:\\w\\b\\f.txt";
  C_FILE::ShareRootPath(C_STRING(u"C:\\w\\a\\ref.txt"), &path);
  EXPECT_EQ(Text(path), u"D:\\w\\b\\f.txt");
}

TEST_F(Roots, HasSamePathComparesText) {
  const C_STRING current = C_FILE::GetCurrent();
  EXPECT_TRUE(C_FILE::HasSamePath(C_STRING(u".\\A\\..\\b.txt"), current + C_STRING(u"B.TXT")));
  EXPECT_TRUE(C_FILE::HasSamePath(C_STRING(u"./b.txt"), current + C_STRING(u"b.txt")));
  Add(u"R", u"/data/r");
  EXPECT_TRUE(C_FILE::HasSamePath(C_STRING(u"$R/x/./y.txt"), C_STRING(u"\\DATA\\R\\X\\Y.TXT")));
  EXPECT_FALSE(C_FILE::HasSamePath(C_STRING(u"$R\\x\\y.txt"), C_STRING(u"/data/r/y.txt")));
}

TEST_F(Roots, WellKnownDirectories) {
  const C_STRING current = C_FILE::GetCurrent();
  char cwd[4096];
  ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
  std::string expected(cwd);
  for (char& c : expected) c = c == '/' ? '\\' : c;
  if (expected.back() != '\\') expected += '\\';
  EXPECT_EQ(Text(current), std::u16string(expected.begin(), expected.end()));

  const std::u16string exe = Text(C_FILE::GetExePath());
  EXPECT_EQ(exe.front(), u'\\');
  EXPECT_NE(exe.find(u"test_path"), std::u16string::npos);

  TempDir temp;
  const char* saved = std::getenv("TMPDIR");
  const std::string savedValue = saved != nullptr ? saved : "";
  setenv("TMPDIR", temp.path().c_str(), 1);
  std::string tempDir = temp.path().string() + "/";
  for (char& c : tempDir) c = c == '/' ? '\\' : c;
  EXPECT_EQ(Text(C_FILE::GetTempDir()), std::u16string(tempDir.begin(), tempDir.end()));
  unsetenv("TMPDIR");
  EXPECT_EQ(Text(C_FILE::GetTempDir()), u"\\tmp\\");
  if (saved != nullptr) setenv("TMPDIR", savedValue.c_str(), 1);
}

TEST_F(Roots, NetworkNamesAreCached) {
  C_STRING network;
  C_FILE::GetNetworkName(C_STRING(u"Q:"), &network);
  EXPECT_EQ(Text(network), u"Q:");
  // Many entries: the cache grows past its first capacity.
  for (int i = 0; i < 25; ++i) {
    const C_STRING path = C_STRING(u"\\nowhere\\") + C_STRING(i);
    C_FILE::GetNetworkName(path, &network);
    EXPECT_EQ(Text(network), Text(path));
  }
  C_FILE::GetNetworkName(C_STRING(u"/"), &network);
  EXPECT_EQ(Text(network), u"/");
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(MountInfo, NetworkSourcesAreFoundByMountPoint) {
  const std::string table =
      "27 1 254:0 / / rw,relatime - ext4 /dev/vda rw\n"
      "80 27 0:50 / /mnt/share rw,relatime shared:5 - cifs //srv/share rw,vers=3.0\n"
      "81 27 0:51 / /mnt/nfs rw - nfs4 srv:/export/home rw\n"
      "82 27 0:52 / /mnt/with\\040space rw - fuse.sshfs user@host:/data rw\n"
      "83 27 0:53 / /mnt/hidden rw - nfs srv:/old rw\n"
      "84 27 0:54 / /mnt/hidden rw - tmpfs tmpfs rw\n"
      "malformed line\n";
  std::string source;
  using qorc::platform::posix::FindNetworkSource;
  ASSERT_TRUE(FindNetworkSource(table, "/mnt/share", &source));
  EXPECT_EQ(source, "//srv/share");
  ASSERT_TRUE(FindNetworkSource(table, "/mnt/nfs/", &source));
  EXPECT_EQ(source, "srv:/export/home");
  ASSERT_TRUE(FindNetworkSource(table, "/mnt/with space", &source));
  EXPECT_EQ(source, "user@host:/data");
  EXPECT_FALSE(FindNetworkSource(table, "/", &source));
  EXPECT_FALSE(FindNetworkSource(table, "/mnt/hidden", &source));
  EXPECT_FALSE(FindNetworkSource(table, "/mnt", &source));
}

}  // namespace
