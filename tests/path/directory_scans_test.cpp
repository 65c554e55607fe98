#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "file/file_test_util.h"
#include "path/roots.h"
#include "platform/directory.h"
#include "support/child_process.h"

namespace {

namespace fs = std::filesystem;

std::string Narrow(const C_STRING& s) {
  std::string out;
  for (int i = 0; i < s.GetNumber(); ++i) out += static_cast<char>(static_cast<char16_t>(s.Get(i)));
  return out;
}

std::string Lib(std::string native) {
  for (char& c : native) c = c == '/' ? '\\' : c;
  return native;
}

// A native path in the library's form ("\" as separator).
C_STRING L(const std::string& native) { return C_STRING(Lib(native).c_str()); }

// Runs a listing and returns its names; the array and its count must agree.
std::vector<std::string> Names(int count, C_STRING* names) {
  std::vector<std::string> out;
  for (int i = 0; i < count; ++i) out.push_back(Narrow(names[i]));
  delete[] names;
  return out;
}

std::vector<std::string> Scan(const std::string& dir, const char* pattern) {
  int count = -1;
  C_STRING* names = nullptr;
  C_FILE::ScanDir(L(dir), C_STRING(pattern), &count, &names);
  return Names(count, names);
}

std::vector<std::string> Dirs(const std::string& dir) {
  int count = -1;
  C_STRING* names = nullptr;
  C_FILE::GetDirs(L(dir), &count, &names);
  return Names(count, names);
}

std::vector<std::string> Tree(const C_STRING& dir, const char* pattern) {
  int count = -1;
  C_STRING* paths = nullptr;
  C_FILE::ScanDirRecursive(dir, C_STRING(pattern), &count, &paths);
  EXPECT_EQ(paths == nullptr, count == 0);
  return Names(count, paths);
}

void Touch(const std::string& path) { WriteBytes(path, "x"); }

class ScanTest : public testing::Test {
 protected:
  void SetUp() override { qorc::DestroyRootTables(); }
  void TearDown() override {
    qorc::DestroyRootTables();
    C_FILE::ConfigVersion.Clear();
  }
  TempDir dir;
  const std::string root = dir.path().string();
};

TEST_F(ScanTest, ScanDirListsMatchingFilesSortedAndSkipsHiddenOnes) {
  for (int i = 149; i >= 0; --i) {
    char name[16];
    std::snprintf(name, sizeof name, "f%03d.dll", i);
    Touch(dir.File(name));
  }
  Touch(dir.File(".hidden.dll"));
  Touch(dir.File("Notes.TXT"));
  Touch(dir.File("README"));
  Touch(dir.File("plan"));
  Touch(dir.File("plan.dat"));
  fs::create_directory(dir.File("sub.dll"));
  fs::create_directory(dir.File(".git"));

  int count = 0;
  C_STRING* names = nullptr;
  C_FILE::ScanDir(L(root), u"*.dll", &count, &names);
  ASSERT_EQ(count, 150);
  EXPECT_EQ(Narrow(names[0]), "f000.dll");
  EXPECT_EQ(Narrow(names[149]), "f149.dll");
  // The array grew by doubling from 100: 200 slots, the last ones empty.
  EXPECT_TRUE(names[199].IsVoid());
  delete[] names;

  // Letters without case, "?" for one character, a trailing ".*" that also
  // matches names without a dot.
  EXPECT_EQ(Scan(root, "F00?.DLL").size(), 10u);
  EXPECT_EQ(Scan(root, "*.txt"), std::vector<std::string>{"Notes.TXT"});
  EXPECT_EQ(Scan(root, "plan.*"), (std::vector<std::string>{"plan", "plan.dat"}));
  EXPECT_EQ(Scan(root, "*.*").size(), 154u);
  EXPECT_EQ(Scan(root, "*").size(), 154u);
  EXPECT_EQ(Scan(root, "re*"), std::vector<std::string>{"README"});
  EXPECT_EQ(Dirs(root), std::vector<std::string>{"sub.dll"});

  // Sorted by name without case, ties in code-unit order.
  const std::string mixed = dir.File("mixed");
  fs::create_directory(mixed);
  for (const char* name : {"b", "B2", "a", "C", "A"}) Touch(mixed + "/" + name);
  EXPECT_EQ(Scan(mixed, "*"), (std::vector<std::string>{"A", "a", "b", "B2", "C"}));

  // Missing: nothing, no array, no error. Present but holding only what is
  // never listed: the count is 0 (the array may be there).
  count = -1;
  names = nullptr;
  C_FILE::ScanDir(L(dir.File("missing")), u"*", &count, &names);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(names, nullptr);
  EXPECT_TRUE(Scan(dir.File("sub.dll"), "*").empty());
  EXPECT_TRUE(Dirs(dir.File("sub.dll")).empty());
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(ScanTest, LinksCountAsWhatTheyPointTo) {
  fs::create_directory(dir.File("real"));
  Touch(dir.File("real/inside.txt"));
  Touch(dir.File("file.txt"));
  fs::create_symlink("file.txt", dir.File("to-file.txt"));
  fs::create_directory_symlink("real", dir.File("to-real"));
  fs::create_symlink("nowhere", dir.File("broken.txt"));
  fs::create_symlink("looped.txt", dir.File("looped.txt"));
  EXPECT_EQ(Scan(root, "*"), (std::vector<std::string>{"broken.txt", "file.txt", "looped.txt", "to-file.txt"}));
  EXPECT_EQ(Dirs(root), (std::vector<std::string>{"real", "to-real"}));
}

TEST_F(ScanTest, RecursiveScanListsFilesBeforeSubdirectories) {
  for (const char* path : {"b", "a/x", "a/y/deep"}) fs::create_directories(dir.File(path));
  for (const char* file : {"top.txt", "b/1.txt", "a/2.txt", "a/y/deep/3.TXT", "a/x/.hidden.txt", "a/x/4.dat"}) {
    Touch(dir.File(file));
  }
  fs::create_directories(dir.File(".cache"));
  Touch(dir.File(".cache/5.txt"));
  C_FILE::AddRoot(u"SCANTOP", L(root));
  EXPECT_EQ(Tree(u"$SCANTOP", "*.txt"),
            (std::vector<std::string>{"$SCANTOP\\top.txt", "$SCANTOP\\a\\2.txt", "$SCANTOP\\a\\y\\deep\\3.TXT",
                                      "$SCANTOP\\b\\1.txt"}));
  EXPECT_TRUE(Tree(u"$SCANTOP", "*.none").empty());
  EXPECT_TRUE(Tree(L(dir.File("missing")), "*").empty());

  // Links that lead back up are not entered again: the scan ends, and each
  // file comes once for every way down that does not go round in a circle.
  fs::create_directory_symlink("..", dir.File("a/up"));
  fs::create_directory_symlink(".", dir.File("a/y/self"));
  fs::create_directory_symlink(dir.File("b"), dir.File("a/to-b"));
  fs::create_symlink("knot", dir.File("b/knot"));
  EXPECT_EQ(Tree(L(root), "*.txt"),
            (std::vector<std::string>{Lib(root + "/top.txt"), Lib(root + "/a/2.txt"), Lib(root + "/a/to-b/1.txt"),
                                      Lib(root + "/a/y/deep/3.TXT"), Lib(root + "/b/1.txt")}));
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(ScanTest, UnreadableAndVanishingDirectoriesEndTheirPartQuietly) {
  fs::create_directories(dir.File("open/inner"));
  fs::create_directories(dir.File("closed/inner"));
  Touch(dir.File("open/inner/1.txt"));
  Touch(dir.File("closed/2.txt"));
  Touch(dir.File("closed/inner/3.txt"));
  Touch(dir.File("4.txt"));
  chmod(root.c_str(), 0755);
  chmod(dir.File("closed").c_str(), 0700);
  // Root reads everything, so the scan runs as another user where we are root.
  EXPECT_EQ(RunInChild([&] {
              if (geteuid() == 0 && seteuid(65534) != 0) return 90;
              const std::vector<std::string> found = Tree(L(root), "*.txt");
              const std::vector<std::string> expected = {Lib(root + "/4.txt"), Lib(root + "/open/inner/1.txt")};
              return found == expected && !C_ERROR::Is() ? 0 : 1;
            }),
            0);

  // The current directory removed under us lists nothing.
  const fs::path saved = fs::current_path();
  fs::create_directory(dir.File("gone"));
  Touch(dir.File("gone/x.txt"));
  fs::current_path(dir.File("gone"));
  fs::remove_all(dir.File("gone"));
  EXPECT_TRUE(Scan(".", "*").empty());
  EXPECT_TRUE(Tree(u".", "*").empty());
  fs::current_path(saved);

  // Subtrees that come and go while the tree is scanned: the stable files
  // are always found, the others only whole or not at all, and nothing is
  // ever pending.
  fs::create_directories(dir.File("stable/churn"));
  const pid_t churner = fork();
  if (churner == 0) {
    for (unsigned n = 0;; ++n) {
      const std::string sub = dir.File("stable/churn/t" + std::to_string(n % 4));
      std::error_code ignored;
      fs::create_directories(sub + "/d1/d2", ignored);
      std::FILE* file = std::fopen((sub + "/d1/d2/c.txt").c_str(), "w");
      if (file != nullptr) std::fclose(file);
      fs::remove_all(sub, ignored);
    }
  }
  for (int round = 0; round < 200; ++round) {
    const std::vector<std::string> found = Tree(L(dir.File("stable")), "*");
    ASSERT_FALSE(C_ERROR::Is());
    for (const std::string& path : found) {
      EXPECT_EQ(path.rfind(Lib(dir.File("stable/churn/t")), 0), 0u) << path;
      EXPECT_EQ(path.substr(path.size() - 12), "\\d1\\d2\\c.txt") << path;
    }
  }
  kill(churner, SIGKILL);
  waitpid(churner, nullptr, 0);
}

TEST_F(ScanTest, ExecutableSearchFollowsPathUntilAnEmptyElement) {
  for (const char* sub : {"cwd", "a", "b", "c"}) fs::create_directory(dir.File(sub));
  for (const char* file : {"cwd/tool.sh", "a/tool.sh", "a/other.sh", "b/tool.sh", "c/tool.sh", "a/.tool.sh"}) {
    Touch(dir.File(file));
  }
  const fs::path savedDir = fs::current_path();
  const char* savedPath = std::getenv("PATH");
  const std::string savedValue = savedPath != nullptr ? savedPath : "";
  fs::current_path(dir.File("cwd"));
  auto exe = [](const std::string& path, const char* pattern) {
    setenv("PATH", path.c_str(), 1);
    int count = -1;
    C_STRING* paths = nullptr;
    C_FILE::ScanExeDirs(C_STRING(pattern), &count, &paths);
    return Names(count, paths);
  };
  const std::string a = dir.File("a"), b = dir.File("b"), c = dir.File("c");
  EXPECT_EQ(exe(a + ":" + b + ":" + a, "tool.*"),
            (std::vector<std::string>{".\\tool.sh", Lib(a + "/tool.sh"), Lib(b + "/tool.sh")}));
  EXPECT_EQ(exe(a + "::" + b, "*.sh"),
            (std::vector<std::string>{".\\tool.sh", Lib(a + "/other.sh"), Lib(a + "/tool.sh")}));
  EXPECT_EQ(exe(b + ":" + c + ":", "*"),
            (std::vector<std::string>{".\\tool.sh", Lib(b + "/tool.sh"), Lib(c + "/tool.sh")}));
  EXPECT_EQ(exe("", "*"), std::vector<std::string>{".\\tool.sh"});
  EXPECT_EQ(exe(a, "*.none"), std::vector<std::string>{});
  fs::current_path(savedDir);
  setenv("PATH", savedValue.c_str(), 1);
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(ScanTest, ProductDirectoriesAreSearchedInTheirOrders) {
  const char* roots[][2] = {{"QORGROUP", "group"}, {"QORCONFIG", "config"}, {"QORLANG", "lang"},
                            {"QORHOME", "home"},   {"QORTARGET", "target"}, {"QOREXTTARGET", "ext"}};
  for (const auto& r : roots) {
    fs::create_directories(dir.File(r[1]));
    C_FILE::AddRoot(C_STRING(r[0]), L(dir.File(r[1])));
  }
  for (const char* sub : {"config/v2", "home/bin", "home/binext", "target/bin", "ext/bin", "cwd"}) {
    fs::create_directories(dir.File(sub));
  }
  for (const char* file : {"config/app.ini", "config/v2/app.ini", "lang/app.ini", "home/bin/app.ini",
                           "home/binext/tool.dll", "home/bin/tool.dll", "target/bin/only.dll", "cwd/here.ini"}) {
    Touch(dir.File(file));
  }
  const fs::path saved = fs::current_path();
  fs::current_path(dir.File("cwd"));
  auto single = [](const char* name, void (*search)(const C_STRING&, C_STRING*)) {
    C_STRING path;
    search(C_STRING(name), &path);
    return Narrow(path);
  };
  auto qor = [](const C_STRING& name, C_STRING* path) { C_FILE::ScanQorDirs(name, path); };
  EXPECT_EQ(single("app.ini", qor), Lib(dir.File("config/app.ini")));
  C_FILE::ConfigVersion = u"v2";
  EXPECT_EQ(single("app.ini", qor), Lib(dir.File("config") + "/v2/app.ini"));
  EXPECT_EQ(single("only.dll", qor), Lib(dir.File("target") + "/bin/only.dll"));
  EXPECT_EQ(single("here.ini", qor), Lib(dir.File("cwd") + "/") + "\\here.ini");
  EXPECT_FALSE(C_ERROR::Is());
  // The last candidate, as written.
  EXPECT_EQ(single("absent.ini", qor), Lib(dir.File("cwd") + "/") + "/absent.ini");
  EXPECT_TRUE(CerrFileNotFound.IsPending());
  EXPECT_EQ(Narrow(C_ERROR::GetPendingExtra()), "absent.ini");
  C_ERROR::ClearPending();
  auto bin = [](const C_STRING& name, C_STRING* path) { C_FILE::ScanBinDirs(name, path); };
  EXPECT_EQ(single("tool.dll", bin), Lib(dir.File("home") + "/binext/tool.dll"));
  EXPECT_EQ(single("app.ini", bin), Lib(dir.File("home") + "/bin/app.ini"));
  single("only.dll", bin);
  EXPECT_TRUE(CerrFileNotFound.IsPending());
  C_ERROR::ClearPending();

  // Collecting: the versioned configuration after the plain one, the
  // directories as written, then the current directory.
  auto all = [](const char* pattern) {
    int count = -1;
    C_STRING* paths = nullptr;
    C_FILE::ScanQorDirs(C_STRING(pattern), &count, &paths);
    return Names(count, paths);
  };
  EXPECT_EQ(all("*.ini"), (std::vector<std::string>{"$QORCONFIG/app.ini", "$QORCONFIG/v2/app.ini", "$QORLANG/app.ini",
                                                    "$QORHOME/bin/app.ini", Lib(dir.File("cwd") + "/") + "here.ini"}));
  EXPECT_TRUE(all("*.none").empty());
  // The current directory is left out when it is the bin directory, but
  // not when it is binext: its files then come twice.
  fs::current_path(dir.File("home/bin"));
  EXPECT_EQ(all("tool.*"), (std::vector<std::string>{"$QORHOME/binext/tool.dll", "$QORHOME/bin/tool.dll"}));
  fs::current_path(dir.File("home/binext"));
  EXPECT_EQ(all("tool.*"), (std::vector<std::string>{"$QORHOME/binext/tool.dll", "$QORHOME/bin/tool.dll",
                                                     Lib(dir.File("home/binext") + "/") + "tool.dll"}));
  fs::current_path(saved);
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(ScanTest, MakeDirCreatesEveryMissingLevel) {
  C_FILE::MakeDir(L(dir.File("x/y/z/")));
  EXPECT_TRUE(fs::is_directory(dir.File("x/y/z")));
  C_FILE::MakeDir(L(dir.File("x/y/z")));
  C_FILE::AddRoot(u"MADE", L(dir.File("x")));
  C_FILE::MakeDir(u"$MADE\\q\\r");
  EXPECT_TRUE(fs::is_directory(dir.File("x/q/r")));
  EXPECT_FALSE(C_ERROR::Is());

  C_FILE::MakeDir(C_STRING());
  EXPECT_TRUE(CerrFileCannotCreate.IsPending());
  EXPECT_TRUE(C_ERROR::GetPendingExtra().IsVoid());
  C_ERROR::ClearPending();
  Touch(dir.File("blocker"));
  C_FILE::MakeDir(L(dir.File("blocker/sub")));
  EXPECT_TRUE(CerrFileCannotCreate.IsPending());
  C_ERROR::ClearPending();
}

TEST(ScanPatterns, WindowsRules) {
  using qorc::platform::MatchesPattern;
  struct Case {
    const char16_t* name;
    const char16_t* pattern;
    bool matches;
  };
  const Case cases[] = {
      {u"a.txt", u"*", true},
      {u"README", u"*.*", true},
      {u"a.b.c", u"*.c", true},
      {u"abc", u"a?c", true},
      {u"ac", u"a?c", false},
      {u"ABC.Txt", u"abc.TXT", true},
      {u"plan", u"plan.*", true},
      {u"planet", u"plan.*", false},
      {u"x.tar.gz", u"*.tar.*", true},
      {u"\u00C9t\u00E9", u"\u00E9T\u00C9", true},
      {u"aaaaaaaaab", u"*a*a*a*b", true},
      {u"aaaaaaaaaa", u"*a*a*b", false},
      {u"", u"*", true},
      {u"a", u"", false},
      {u"a*b", u"a*b", true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(MatchesPattern(c.name, c.pattern), c.matches)
        << Narrow(C_STRING(c.name)) << " ~ " << Narrow(C_STRING(c.pattern));
  }
}

}  // namespace
