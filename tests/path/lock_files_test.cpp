#include <pwd.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "file/file_test_util.h"
#include "support/child_process.h"

namespace {

std::string Host() {
  char name[256] = {};
  gethostname(name, sizeof name - 1);
  return name;
}

std::string UserOf(uid_t uid) {
  const struct passwd* entry = getpwuid(uid);
  return entry != nullptr ? entry->pw_name : "";
}

std::string NameOf(const std::string& user, long pid) {
  return "\\\\" + Host() + "\\" + user + "\\" + std::to_string(pid);
}

std::string Narrow(const C_STRING& s) {
  std::string out;
  for (int i = 0; i < s.GetNumber(); ++i) out += static_cast<char>(static_cast<char16_t>(s.Get(i)));
  return out;
}

std::vector<std::string> Lockers(const C_STRING& document) {
  int count = -1;
  C_STRING* lockers = nullptr;
  C_FILE::GetLockers(document, &count, &lockers);
  std::vector<std::string> out;
  for (int i = 0; i < count; ++i) out.push_back(Narrow(lockers[i]));
  EXPECT_EQ(lockers == nullptr, count == 0);
  delete[] lockers;
  return out;
}

C_LOG Alive(const std::string& locker) { return C_FILE::IsLockerAlive(C_STRING(locker.c_str())); }

// What the report handler received, one "key|text" per report.
std::vector<std::string> g_reports;
void RecordReport(const C_STRING& key, const C_STRING& text) { g_reports.push_back(Narrow(key) + "|" + Narrow(text)); }

class LockFileTest : public testing::Test {
 protected:
  void SetUp() override {
    g_reports.clear();
    C_ERROR::SetReportHandler(RecordReport);
  }
  TempDir dir;
  const std::string document = dir.File("plan.dat");
  const std::string lockFile = document + ".lck";
  const C_STRING doc = LibraryPath(document);
  const std::string me = NameOf(UserOf(geteuid()), getpid());
};

// A forked process of the same user that holds a lock until it is released.
class OtherHolder {
 public:
  explicit OtherHolder(const C_STRING& document) {
    int ready[2], release[2];
    if (pipe(ready) != 0 || pipe(release) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      close(ready[0]);
      close(release[1]);
      C_FILE::Lock(document);
      char byte = C_ERROR::Is() ? 'e' : 'k';
      if (write(ready[1], &byte, 1) != 1) _exit(2);
      // Holds the lock until the parent lets go of its end.
      while (read(release[0], &byte, 1) > 0) {
      }
      _exit(0);
    }
    close(ready[1]);
    close(release[0]);
    release_ = release[1];
    char byte = 0;
    locked_ = read(ready[0], &byte, 1) == 1 && byte == 'k';
    close(ready[0]);
  }
  ~OtherHolder() { Exit(); }
  // Lets the process end and waits for it. With `reap` false it stays a zombie.
  void Exit(bool reap = true) {
    if (release_ >= 0) close(release_);
    release_ = -1;
    if (pid_ > 0) {
      siginfo_t info;
      waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | (reap ? 0 : WNOWAIT));
      if (reap) pid_ = -1;
    }
  }
  pid_t pid() const { return pid_; }
  bool locked() const { return locked_; }

 private:
  pid_t pid_ = -1;
  int release_ = -1;
  bool locked_ = false;
};

TEST_F(LockFileTest, LockerNameIsHostUserAndProcess) {
  C_STRING name;
  C_FILE::BuildLockerName(&name);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(Narrow(name), me);
  C_STRING who, process;
  C_FILE::SplitPath(name, &who, &process);
  EXPECT_EQ(Narrow(who), "\\\\" + Host() + "\\" + UserOf(geteuid()));
  EXPECT_EQ(Narrow(process), std::to_string(getpid()));
}

TEST_F(LockFileTest, LockWritesOneEntryPerLineWithTheCallerLast) {
  EXPECT_FALSE(C_FILE::IsLocked(doc));
  EXPECT_TRUE(Lockers(doc).empty());
  C_FILE::Lock(doc);
  C_FILE::Lock(doc);
  EXPECT_EQ(ReadBytes(lockFile), me);
  EXPECT_EQ(Lockers(doc), std::vector<std::string>{me});
  EXPECT_FALSE(C_FILE::IsLocked(doc));

  // Other users' entries stay in order; an older entry of this user on this
  // machine, whatever its process, is replaced.
  const std::string older = NameOf(UserOf(geteuid()), 999999);
  WriteBytes(lockFile, "\\\\pcA\\bob\\1\n" + older + "\r\n\\\\pcB\\carol\\2");
  EXPECT_TRUE(C_FILE::IsLocked(doc));
  C_FILE::Lock(doc);
  EXPECT_EQ(ReadBytes(lockFile), "\\\\pcA\\bob\\1\n\\\\pcB\\carol\\2\n" + me);
  EXPECT_EQ(Lockers(doc), (std::vector<std::string>{"\\\\pcA\\bob\\1", "\\\\pcB\\carol\\2", me}));

  // Unlock writes the others back run together on one line, as every
  // installation does: two entries come back as one.
  C_FILE::Unlock(doc);
  EXPECT_EQ(ReadBytes(lockFile), "\\\\pcA\\bob\\1\\\\pcB\\carol\\2");
  EXPECT_EQ(Lockers(doc), std::vector<std::string>{"\\\\pcA\\bob\\1\\\\pcB\\carol\\2"});
  EXPECT_TRUE(C_FILE::IsLocked(doc));
  // An Unlock that finds no entry of ours still rewrites and never deletes.
  WriteBytes(lockFile, "\\\\pcA\\bob\\1\n\n\\\\pcB\\carol\\2\n");
  C_FILE::Unlock(doc);
  EXPECT_EQ(ReadBytes(lockFile), "\\\\pcA\\bob\\1\\\\pcB\\carol\\2");
  EXPECT_FALSE(std::filesystem::exists(lockFile + ".tmp"));

  // Unlocking the last entry removes the lock file and the work file.
  WriteBytes(lockFile, me + "\n");
  C_FILE::Unlock(doc);
  EXPECT_FALSE(std::filesystem::exists(lockFile));
  EXPECT_FALSE(std::filesystem::exists(lockFile + ".tmp"));
  C_FILE::Unlock(doc);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_TRUE(g_reports.empty());
}

TEST_F(LockFileTest, EntriesSurviveDamagedLockFiles) {
  const std::string a = "\\\\pcA\\bob\\1", b = "\\\\pcB\\carol\\2";
  const std::string longLine(10000, 'x');
  struct Case {
    std::string bytes;
    std::vector<std::string> entries;
  };
  const Case cases[] = {
      {a + "\n\x01\x7F\xFF garbage \x80\n" + b, {a, "\x01\x7F\xFF garbage \x80", b}},
      {a + "\nxx" + std::string(1, '\0') + "yy\n" + b + "\n", {a, std::string("xx\0yy", 5), b}},
      // A line longer than the line buffer comes back in pieces.
      {a + "\n" + longLine + "\n" + b,
       {a, longLine.substr(0, 4098), longLine.substr(4098, 4098), longLine.substr(8196), b}},
      {a + "\r" + b + "\r", {a, b}},
      {a + "\r\n" + b + "\r\n", {a, b}},
      {a, {a}},
      {"", {}},
  };
  for (const Case& c : cases) {
    WriteBytes(lockFile, c.bytes);
    EXPECT_EQ(Lockers(doc), c.entries);
    EXPECT_EQ(C_FILE::IsLocked(doc), !c.entries.empty());
    EXPECT_FALSE(C_ERROR::Is());
    // Locking keeps every other entry (damaged ones are written back in
    // the process code page, so their bytes may change) and adds ours last;
    // unlocking takes only ours away.
    C_FILE::Lock(doc);
    // A piece of a long line that fills the line buffer reads back followed
    // by an empty line, so only the valid entries are counted.
    const std::vector<std::string> locked = Lockers(doc);
    ASSERT_FALSE(locked.empty());
    EXPECT_EQ(locked.back(), me);
    EXPECT_EQ(std::count(locked.begin(), locked.end(), me), 1);
    EXPECT_EQ(std::count(locked.begin(), locked.end(), a), c.entries.empty() ? 0 : 1);
    EXPECT_EQ(std::count(locked.begin(), locked.end(), b), c.entries.size() > 1 ? 1 : 0);
    C_FILE::Unlock(doc);
    const std::string rest = std::filesystem::exists(lockFile) ? ReadBytes(lockFile) : "";
    EXPECT_EQ(rest.find(me), std::string::npos);
    EXPECT_EQ(rest.rfind(a, 0) == 0, !c.entries.empty());
    EXPECT_EQ(rest.find(b) != std::string::npos, c.entries.size() > 1);
  }
  EXPECT_TRUE(g_reports.empty());
}

TEST_F(LockFileTest, LockOfAnotherProcessIsSeenAndItsDeathRecognised) {
  OtherHolder other(doc);
  ASSERT_TRUE(other.locked());
  const std::string theirs = NameOf(UserOf(geteuid()), other.pid());
  EXPECT_EQ(ReadBytes(lockFile), theirs);
  EXPECT_TRUE(C_FILE::IsLocked(doc));
  EXPECT_EQ(Alive(theirs), C_LOG(1));
  EXPECT_EQ(Alive(me), C_LOG(1));

  // Our lock replaces theirs: one user on one machine has one entry.
  C_FILE::Lock(doc);
  EXPECT_EQ(Lockers(doc), std::vector<std::string>{me});
  WriteBytes(lockFile, theirs + "\n" + me);

  // Exited but not yet reaped (a zombie), then gone: stale, and nothing
  // is cleared by asking.
  other.Exit(false);
  EXPECT_EQ(Alive(theirs), C_LOG(0));
  other.Exit();
  EXPECT_EQ(Alive(theirs), C_LOG(0));
  EXPECT_TRUE(C_FILE::IsLocked(doc));
  EXPECT_EQ(Lockers(doc), (std::vector<std::string>{theirs, me}));

  // A tool removes the stale entry; the rewrite is Unlock's.
  const C_STRING stale(theirs.c_str());
  C_FILE::RemoveLockers(doc, 1, &stale);
  EXPECT_EQ(ReadBytes(lockFile), me);
  EXPECT_FALSE(C_FILE::IsLocked(doc));
  C_FILE::RemoveLockers(doc, 1, &stale);
  EXPECT_EQ(ReadBytes(lockFile), me);

  // A living process of another user does not hold a lock of ours; other
  // machines and texts that are no locker names cannot be told.
  EXPECT_EQ(Alive(NameOf("nobody", getpid())), C_LOG(0));
  EXPECT_EQ(Alive(NameOf("no-such-user-here", getpid())), C_LOG(0));
  EXPECT_EQ(Alive(NameOf(UserOf(geteuid()), 0)), C_LOG(0));
  for (const char* unknown : {"\\\\elsewhere-pc\\bob\\1", "", "plain", "\\\\\\bob\\1", "\\\\pc\\\\1", "\\\\pc\\bob\\",
                              "\\\\pc\\bob\\12x", "\\\\pc\\bob\\99999999999999999999"}) {
    EXPECT_EQ(C_FILE::IsLockerAlive(C_STRING(unknown)), C_LOG()) << unknown;
  }
  const std::string upper = "\\\\" +
                            [] {
                              std::string host = Host();
                              for (char& c : host) c = static_cast<char>(toupper(c));
                              return host;
                            }() +
                            "\\" + UserOf(geteuid()) + "\\" + std::to_string(getpid());
  EXPECT_EQ(Alive(upper), C_LOG(1));
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(LockFileTest, LockWrittenByAChildReadsTheSame) {
  int childPid = 0;
  const int code = RunInChild([&] {
    C_FILE::Lock(doc);
    return C_ERROR::Is() ? 1 : 0;
  });
  ASSERT_EQ(code, 0);
  const std::vector<std::string> lockers = Lockers(doc);
  ASSERT_EQ(lockers.size(), 1u);
  const std::regex name("\\\\\\\\" + Host() + "\\\\" + UserOf(geteuid()) + "\\\\([0-9]+)");
  std::smatch match;
  ASSERT_TRUE(std::regex_match(lockers[0], match, name)) << lockers[0];
  childPid = std::stoi(match[1]);
  EXPECT_NE(childPid, getpid());
  EXPECT_TRUE(C_FILE::IsLocked(doc));
  EXPECT_EQ(Alive(lockers[0]), C_LOG(0));
  // And the child reads ours.
  C_FILE::Lock(doc);
  EXPECT_EQ(RunInChild([&] {
              int count = 0;
              C_STRING* entries = nullptr;
              C_FILE::GetLockers(doc, &count, &entries);
              const bool ok = count == 1 && Narrow(entries[0]) == me && C_FILE::IsLocked(doc);
              delete[] entries;
              return ok ? 0 : 1;
            }),
            0);
}

// Runs `body` in a child acting as `uid` (0: stays root).
int AsUser(uid_t uid, const std::function<int()>& body) {
  return RunInChild([&] {
    if (uid != 0 && seteuid(uid) != 0) return 90;
    return body();
  });
}

TEST_F(LockFileTest, FailuresAreReported) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to act as other users";
  // A user without a name: no locker name, so no lock and no unlock.
  chmod(dir.path().c_str(), 0755);
  WriteBytes(lockFile, "\\\\pcA\\bob\\1");
  EXPECT_EQ(AsUser(54321,
                   [&] {
                     C_STRING name;
                     C_FILE::BuildLockerName(&name);
                     if (!CerrFileLock.IsPending() || Narrow(name) != "\\\\" + Host()) return 1;
                     C_ERROR::ClearPending();
                     C_FILE::Lock(doc);
                     C_FILE::Unlock(doc);
                     // When in doubt the document counts as locked.
                     if (!C_FILE::IsLocked(doc) || C_ERROR::Is()) return 2;
                     const std::string expected = "C#Err#Unable to lock file|" + Narrow(doc);
                     return g_reports == std::vector<std::string>{expected, expected} ? 0 : 3;
                   }),
            0);
  EXPECT_EQ(ReadBytes(lockFile), "\\\\pcA\\bob\\1");

  // A lock file this user may not write, in a directory it may not write.
  chmod(lockFile.c_str(), 0644);
  const std::string nobody = NameOf("nobody", 0);
  EXPECT_EQ(AsUser(65534,
                   [&] {
                     C_FILE::Lock(doc);
                     C_FILE::Unlock(doc);
                     C_STRING self;
                     C_FILE::BuildLockerName(&self);
                     C_FILE::RemoveLockers(doc, 1, &self);
                     if (C_ERROR::Is() || g_reports.size() != 3) return 1;
                     for (const std::string& report : g_reports) {
                       if (report.rfind("C#Err#", 0) != 0) return 2;
                     }
                     return 0;
                   }),
            0);
  EXPECT_EQ(ReadBytes(lockFile), "\\\\pcA\\bob\\1");
  EXPECT_FALSE(std::filesystem::exists(lockFile + ".tmp"));
}

TEST_F(LockFileTest, MissingHostNameIsReported) {
  const int code = RunInChild([&] {
    if (unshare(CLONE_NEWUTS) != 0 || sethostname("", 0) != 0) return 77;
    C_STRING name;
    C_FILE::BuildLockerName(&name);
    if (!CerrFileLock.IsPending() || !name.IsVoid()) return 1;
    C_ERROR::ClearPending();
    C_FILE::Lock(doc);
    return g_reports == std::vector<std::string>{"C#Err#Unable to lock file|" + Narrow(doc)} ? 0 : 2;
  });
  if (code == 77) GTEST_SKIP() << "cannot take the host name away here";
  EXPECT_EQ(code, 0);
  EXPECT_FALSE(std::filesystem::exists(lockFile));
}

// Eight processes lock one document at once, then check and reports.
class LockStress : public LockFileTest {
 protected:
  static constexpr int kProcesses = 8;
  static constexpr int kRounds = 200;

  // Starts the processes (as the given users) and returns the exit codes
  // of those that failed.
  std::string RunAll(const std::vector<uid_t>& users, const std::function<int(int)>& body) {
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
      const pid_t pid = fork();
      if (pid == 0) {
        umask(0);
        if (users[i] != 0 && seteuid(users[i]) != 0) _exit(90);
        _exit(body(i));
      }
      children.push_back(pid);
    }
    std::string failed;
    for (pid_t pid : children) {
      int status = 0;
      waitpid(pid, &status, 0);
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) failed += std::to_string(status) + " ";
    }
    return failed;
  }
};

TEST_F(LockStress, LockAndUnlockOfOneUserLoseNothing) {
  // Every Lock by this user replaces the entry of the user's other
  // processes, so the file holds at most one whole entry at every moment,
  // and once every process has unlocked nothing is left behind.
  std::set<std::string> seen;
  const std::string user = UserOf(geteuid());
  const std::string failed = RunAll(std::vector<uid_t>(kProcesses, 0), [&](int) {
    const std::regex one("\\\\\\\\" + Host() + "\\\\" + user + "\\\\[0-9]+");
    for (int round = 0; round < kRounds; ++round) {
      C_FILE::Lock(doc);
      const std::vector<std::string> lockers = Lockers(doc);
      if (C_ERROR::Is() || !g_reports.empty()) return 1;
      // Another process may have locked and unlocked meanwhile.
      if (lockers.size() > 1 || (lockers.size() == 1 && !std::regex_match(lockers[0], one))) return 2;
      C_FILE::Unlock(doc);
      if (C_ERROR::Is() || !g_reports.empty()) return 3;
    }
    return 0;
  });
  EXPECT_EQ(failed, "");
  EXPECT_FALSE(std::filesystem::exists(lockFile));
  EXPECT_FALSE(std::filesystem::exists(lockFile + ".tmp"));
}

TEST_F(LockStress, LocksOfEightUsersAreAllKept) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to act as other users";
  std::vector<uid_t> users;
  for (uid_t uid = 1; users.size() < kProcesses && uid < 1000; ++uid) {
    if (!UserOf(uid).empty()) users.push_back(uid);
  }
  if (users.size() < kProcesses) GTEST_SKIP() << "needs eight named users";
  chmod(dir.path().c_str(), 0777);
  // Each process locks 200 times and must find its own entry exactly once
  // every time. Locks of different users are kept side by side; they are not
  // unlocked here, because an Unlock that leaves two or more entries runs
  // them together (see the first test), and the entries could no longer be
  // counted.
  const std::string failed = RunAll(users, [&](int) {
    C_STRING self;
    C_FILE::BuildLockerName(&self);
    for (int round = 0; round < kRounds; ++round) {
      C_FILE::Lock(doc);
      const std::vector<std::string> lockers = Lockers(doc);
      if (C_ERROR::Is() || !g_reports.empty()) return 1;
      int mine = 0;
      for (const std::string& entry : lockers) mine += entry == Narrow(self);
      if (mine != 1 || lockers.size() > kProcesses) return 2;
    }
    return 0;
  });
  EXPECT_EQ(failed, "");
  // Every process is there exactly once, under its own user, and nothing else.
  std::multiset<std::string> who;
  for (const std::string& entry : Lockers(doc)) {
    C_STRING dirPart, process;
    C_FILE::SplitPath(C_STRING(entry.c_str()), &dirPart, &process);
    who.insert(Narrow(dirPart));
    EXPECT_EQ(Alive(entry), C_LOG(0)) << entry;
  }
  std::multiset<std::string> expected;
  for (uid_t uid : users) expected.insert("\\\\" + Host() + "\\" + UserOf(uid));
  EXPECT_EQ(who, expected);
  EXPECT_FALSE(std::filesystem::exists(lockFile + ".tmp"));
}

}  // namespace
