#include "path/roots.h"

#include <filesystem>

#include "file/file_test_util.h"
#ifndef _WIN32
#include "platform/posix/mountinfo.h"
#endif

namespace {

void Add(const char16_t* name, const char16_t* dir) { C_FILE::AddRoot(C_STRING(name), C_STRING(dir)); }

std::u16string Apply(void (*op)(C_STRING*), const char16_t* text) {
  C_STRING path(text);
  op(&path);
  return Text(path);
}

// The root removed, "|", and what is left of the path.
std::u16string Remove(const char16_t* text) {
  C_STRING path(text), root(u"old");
  C_FILE::RemoveRoot(&path, &root);
  return Text(root) + u"|" + Text(path);
}

class Roots : public testing::Test {
 protected:
  void SetUp() override { qorc::DestroyRootTables(); }
  void TearDown() override { qorc::DestroyRootTables(); }
};

TEST_F(Roots, TableGrowsAndKeepsOrder) {
  for (int i = 0; i < 50; ++i) C_FILE::AddRoot(C_STRING(i), C_STRING(i * 10));
  Add(u"R50", u"D50");
  int count = 0;
  const C_STRING *names = nullptr, *dirs = nullptr;
  C_FILE::GetRoots(&count, &names, &dirs);
  ASSERT_EQ(count, 51);
  for (int i = 0; i < 51; ++i) {
    EXPECT_EQ(Text(names[i]) + u"=" + Text(dirs[i]),
              i < 50 ? Text(C_STRING(i)) + u"=" + Text(C_STRING(i * 10)) : u"R50=D50");
  }
  C_FILE::GetRoots(&count, &names, nullptr);
  EXPECT_EQ(count, 51);
}

TEST_F(Roots, ExpansionRules) {
  // An empty table only cleans the separators.
  EXPECT_EQ(Apply(C_FILE::ExpandPath, u"$QORHOME/bin/x"), u"$QORHOME\\bin\\x");
  EXPECT_EQ(Apply(C_FILE::ReplaceRoot, u"D:/Inst/x"), u"D:\\Inst\\x");
  EXPECT_EQ(Remove(u"D:/Inst/x"), u"|D:\\Inst\\x");

  const std::pair<const char16_t*, const char16_t*> roots[] = {{u"QORHOME", u"D:\\Inst"},
                                                               {u"QORHOME", u"E:\\Shadowed"},
                                                               {u"QORHOME.old", u"D:\\Old"},
                                                               {u"DATA", u"/srv/data"},
                                                               {u"A", u"$B"},
                                                               {u"B", u"E:"},
                                                               {u"LONGNAME", u"D:\\$B"},
                                                               {u"L", u"D:\\$B"}};
  for (const auto& [name, dir] : roots) Add(name, dir);
  // The first root of a name wins; a name ends only at a separator; names
  // are found anywhere in the text and directories used as stored; an
  // unknown name ends the whole expansion; a "$" brought in by a directory
  // is expanded only beyond the old name; names are compared with case.
  const std::pair<const char16_t*, const char16_t*> cases[] = {
      {u"$QORHOME/bin/a.dll", u"D:\\Inst\\bin\\a.dll"},
      {u"$QORHOME", u"D:\\Inst"},
      {u"$QORHOME.old\\x", u"D:\\Old\\x"},
      {u"copy of $QORHOME\\a and $DATA\\b", u"copy of D:\\Inst\\a and /srv/data\\b"},
      {u"$UNKNOWN\\$QORHOME\\x", u"$UNKNOWN\\$QORHOME\\x"},
      {u"$A\\x", u"$B\\x"},
      {u"$LONGNAME\\x", u"D:\\$B\\x"},
      {u"$L\\x", u"D:\\E:\\x"},
      {u"$qorhome\\x", u"$qorhome\\x"}};
  for (const auto& [path, expected] : cases) EXPECT_EQ(Apply(C_FILE::ExpandPath, path), expected);
  EXPECT_EQ(Apply(C_FILE::ExpandPathNoCase, u"$qorhome\\x"), u"D:\\Inst\\x");
  EXPECT_FALSE(C_ERROR::Is());

  // A root that names itself stops at the string's limit.
  Add(u"LOOP", (std::u16string(1000, u'x') + u"\\$LOOP").c_str());
  EXPECT_LE(Apply(C_FILE::ExpandPath, u"$LOOP\\end").size(), C_STRING::MAX_SIZE - 1u);
  EXPECT_TRUE(CerrValueTooHigh.IsPending());
}

TEST_F(Roots, RemovingReplacingComparingAndSharing) {
  Add(u"QORHOME", u"D:\\Inst");
  Add(u"A", u"C:\\a");
  Add(u"AB", u"C:\\ab");
  // A plain character prefix, with case; the separator goes to both results.
  EXPECT_EQ(Remove(u"C:\\abc\\x"), u"C:\\abc|c\\x");
  EXPECT_EQ(Remove(u"c:\\AB\\x"), u"|c:\\AB\\x");
  EXPECT_EQ(Remove(u"$QORHOME/bin/x.dll"), u"D:\\Inst\\|\\bin\\x.dll");
  C_STRING path(u"D:\\Inst");
  C_FILE::RemoveRoot(&path, nullptr);
  EXPECT_TRUE(path.IsVoid());

  // ReplaceRoot ignores case, and the stored form comes back to the same file.
  EXPECT_EQ(Apply(C_FILE::ReplaceRoot, u"c:\\AB\\x"), u"$AB\\x");
  EXPECT_EQ(Apply(C_FILE::ReplaceRoot, u"d:\\INST\\bin\\a.dll"), u"$QORHOME\\bin\\a.dll");
  EXPECT_EQ(Apply(C_FILE::ExpandPath, u"$QORHOME\\bin\\a.dll"), u"D:\\Inst\\bin\\a.dll");
  // CompressPath never substitutes a root.
  EXPECT_EQ(Text(C_FILE::CompressPath(C_STRING(u"D:/Inst/x"))), u"D:\\Inst\\x");

  Add(u"PRJ", u"/home/u/prj");
  const auto share = [](const char16_t* reference, const char16_t* text) {
    C_STRING path(text);
    C_FILE::ShareRootPath(C_STRING(reference), &path);
    return Text(path);
  };
  EXPECT_EQ(share(u"C:\\w\\a\\ref.txt", u"C:\\w\\b\\f.txt"), u"C:\\w\\a\\..\\b\\f.txt");
  EXPECT_EQ(share(u"$PRJ/doc/ref.txt", u"/home/u/prj/src/deep/f.c"), u"/home/u/prj\\doc\\..\\src\\deep\\f.c");
  EXPECT_EQ(share(u"/home/u/prj/doc/ref.txt", u"/home/u/prj/doc/sub/f.txt"), u"\\home\\u\\prj\\doc\\sub\\f.txt");
  EXPECT_EQ(share(u"C:\\w\\a\\ref.txt", u"D:\\w\\b\\f.txt"), u"D:\\w\\b\\f.txt");  // another drive

  // Only the texts are compared, expanded, shrunk and without case.
  const C_STRING current = C_FILE::GetCurrent();
  EXPECT_TRUE(C_FILE::HasSamePath(C_STRING(u".\\A\\..\\b.txt"), current + C_STRING(u"B.TXT")));
  EXPECT_TRUE(C_FILE::HasSamePath(C_STRING(u"./b.txt"), current + C_STRING(u"b.txt")));
  EXPECT_TRUE(C_FILE::HasSamePath(C_STRING(u"$PRJ/x/./y.txt"), C_STRING(u"\\HOME\\U\\PRJ\\X\\Y.TXT")));
  EXPECT_FALSE(C_FILE::HasSamePath(C_STRING(u"$PRJ\\x\\y.txt"), C_STRING(u"/home/u/prj/y.txt")));
}

TEST_F(Roots, WellKnownDirectoriesAndNetworkNames) {
  std::string expected = std::filesystem::current_path().string();
  for (char& c : expected) c = c == '/' ? '\\' : c;
  if (expected.back() != '\\') expected += '\\';
  EXPECT_EQ(Text(C_FILE::GetCurrent()), std::u16string(expected.begin(), expected.end()));
  const std::u16string exe = Text(C_FILE::GetExePath());
  // An absolute path: from the root on POSIX, from a drive on Windows.
#ifdef _WIN32
  EXPECT_EQ(exe.substr(1, 2), u":\\");
#else
  EXPECT_EQ(exe.front(), u'\\');
#endif
  EXPECT_NE(exe.find(u"test_path"), std::u16string::npos);

  // A local name answers itself, from a cache that grows.
  C_STRING network;
  for (int i = 0; i < 25; ++i) {
    const C_STRING local = i == 0 ? C_STRING(u"Q:") : C_STRING(u"\\nowhere\\") + C_STRING(i);
    C_FILE::GetNetworkName(local, &network);
    EXPECT_EQ(Text(network), Text(local));
  }
  C_FILE::GetNetworkName(C_STRING(u"Q:"), &network);
  EXPECT_EQ(Text(network), u"Q:");
  EXPECT_FALSE(C_ERROR::Is());

#ifndef _WIN32
  // Network sources by mount point (the POSIX side reads the kernel's table
  // of mounts); the last mount there hides the others.
  const std::string table =
      "27 1 254:0 / / rw,relatime - ext4 /dev/vda rw\n"
      "80 27 0:50 / /mnt/share rw,relatime shared:5 - cifs //srv/share rw,vers=3.0\n"
      "81 27 0:51 / /mnt/nfs rw - nfs4 srv:/export/home rw\n"
      "82 27 0:52 / /mnt/with\\040space rw - fuse.sshfs user@host:/data rw\n"
      "83 27 0:53 / /mnt/hidden rw - nfs srv:/old rw\n"
      "84 27 0:54 / /mnt/hidden rw - tmpfs tmpfs rw\n"
      "malformed line\n";
  const std::pair<const char*, const char*> mounts[] = {{"/mnt/share", "//srv/share"},
                                                        {"/mnt/nfs/", "srv:/export/home"},
                                                        {"/mnt/with space", "user@host:/data"},
                                                        {"/", ""},
                                                        {"/mnt/hidden", ""},
                                                        {"/mnt", ""}};
  for (const auto& [mount, source] : mounts) {
    std::string found;
    EXPECT_EQ(qorc::platform::posix::FindNetworkSource(table, mount, &found) ? found : "", source) << mount;
  }
#endif
}

}  // namespace
