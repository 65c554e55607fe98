// The library's headers come before <windows.h>, whose macros would clash with their names.
#include <qorc/qorc.h>
#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#undef VOID  // the library's "empty" constants are named VOID
#else
#include <pwd.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "file/file_test_util.h"
#include "support/child_process.h"
#include "support/os_support.h"

namespace {

namespace fs = std::filesystem;
using Entries = std::vector<std::string>;

#ifdef _WIN32
std::string Host() {
  char name[MAX_COMPUTERNAME_LENGTH + 1] = {};
  DWORD size = sizeof name;
  GetComputerNameA(name, &size);
  return name;
}
std::string CurrentUser() {
  char name[257] = {};
  DWORD size = sizeof name;
  GetUserNameA(name, &size);
  return name;
}
long CurrentPid() { return static_cast<long>(GetCurrentProcessId()); }
#else
std::string Host() {
  char name[256] = {};
  gethostname(name, sizeof name - 1);
  return name;
}

std::string UserOf(uid_t uid) {
  const struct passwd* entry = getpwuid(uid);
  return entry != nullptr ? entry->pw_name : "";
}
std::string CurrentUser() { return UserOf(geteuid()); }
long CurrentPid() { return static_cast<long>(getpid()); }
#endif

// "\\host\user", the locker name without its process.
std::string Owner(const std::string& user, const std::string& host = Host()) { return "\\\\" + host + "\\" + user; }
std::string NameOf(const std::string& user, long pid) { return Owner(user) + "\\" + std::to_string(pid); }

std::string Narrow(const C_STRING& s) {
  std::string out;
  for (int i = 0; i < s.GetNumber(); ++i) out += static_cast<char>(static_cast<char16_t>(s.Get(i)));
  return out;
}

Entries Lockers(const C_STRING& document) {
  int count = -1;
  C_STRING* lockers = nullptr;
  C_FILE::GetLockers(document, &count, &lockers);
  Entries out;
  for (int i = 0; i < count; ++i) out.push_back(Narrow(lockers[i]));
  EXPECT_EQ(lockers == nullptr, count == 0);
  delete[] lockers;
  return out;
}

C_LOG Alive(const std::string& locker) { return C_FILE::IsLockerAlive(C_STRING(locker.c_str())); }

// What the report handler received, one "key|text" per report.
std::vector<std::string> g_reports;
void RecordReport(const C_STRING& key, const C_STRING& text) { g_reports.push_back(Narrow(key) + "|" + Narrow(text)); }

#ifndef _WIN32
// Runs `body` in a child acting as `uid` (0: stays root).
int AsUser(uid_t uid, const std::function<int()>& body) {
  return RunInChild([&] { return uid != 0 && seteuid(uid) != 0 ? 90 : body(); });
}
#endif

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
  const std::string me = NameOf(CurrentUser(), CurrentPid());
  const std::string a = "\\\\pcA\\bob\\1", b = "\\\\pcB\\carol\\2";
};

TEST_F(LockFileTest, LockWritesOneEntryPerLineAndUnlockRunsTheRestTogether) {
  C_STRING name;
  C_FILE::BuildLockerName(&name);
  EXPECT_EQ(Narrow(name), me);
  EXPECT_FALSE(C_FILE::IsLocked(doc));
  EXPECT_TRUE(Lockers(doc).empty());
  C_FILE::Lock(doc);
  C_FILE::Lock(doc);
  EXPECT_EQ(ReadBytes(lockFile), me);
  EXPECT_FALSE(C_FILE::IsLocked(doc));

  // Other users' entries stay in order; an older entry of this user on this
  // machine, whatever its process, is replaced; ours comes last.
  WriteBytes(lockFile, a + "\n" + NameOf(CurrentUser(), 999999) + "\r\n" + b);
  EXPECT_TRUE(C_FILE::IsLocked(doc));
  C_FILE::Lock(doc);
  EXPECT_EQ(ReadBytes(lockFile), TextLineEnds(a + "\n" + b + "\n" + me));
  EXPECT_EQ(Lockers(doc), (Entries{a, b, me}));

  // Unlock writes the others back run together on one line, as every
  // installation does: two entries come back as one. It does so even when
  // no entry is ours, and never deletes a file that keeps entries.
  C_FILE::Unlock(doc);
  EXPECT_EQ(ReadBytes(lockFile), a + b);
  EXPECT_EQ(Lockers(doc), Entries{a + b});
  EXPECT_TRUE(C_FILE::IsLocked(doc));
  WriteBytes(lockFile, a + "\n\n" + b + "\n");
  C_FILE::Unlock(doc);
  EXPECT_EQ(ReadBytes(lockFile), a + b);
  EXPECT_FALSE(fs::exists(lockFile + ".tmp"));

  // Unlocking the last entry removes the lock file and the work file.
  WriteBytes(lockFile, me + "\n");
  C_FILE::Unlock(doc);
  EXPECT_FALSE(fs::exists(lockFile));
  EXPECT_FALSE(fs::exists(lockFile + ".tmp"));
  C_FILE::Unlock(doc);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_TRUE(g_reports.empty());
}

TEST_F(LockFileTest, EntriesSurviveDamagedLockFiles) {
  const std::string longLine(10000, 'x');
  const std::pair<std::string, Entries> cases[] = {
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
  for (const auto& [bytes, entries] : cases) {
    WriteBytes(lockFile, bytes);
    EXPECT_EQ(Lockers(doc), entries);
    EXPECT_EQ(C_FILE::IsLocked(doc), !entries.empty());
    // Locking keeps every valid entry and adds ours once, last (damaged ones
    // go back in the process code page, so their bytes may change); unlocking
    // takes only ours away.
    C_FILE::Lock(doc);
    const Entries locked = Lockers(doc);
    ASSERT_FALSE(locked.empty());
    EXPECT_EQ(locked.back(), me);
    EXPECT_EQ(std::count(locked.begin(), locked.end(), me), 1);
    EXPECT_EQ(std::count(locked.begin(), locked.end(), a), entries.empty() ? 0 : 1);
    EXPECT_EQ(std::count(locked.begin(), locked.end(), b), entries.size() > 1 ? 1 : 0);
    C_FILE::Unlock(doc);
    const std::string rest = fs::exists(lockFile) ? ReadBytes(lockFile) : "";
    EXPECT_EQ(rest.find(me), std::string::npos);
    EXPECT_EQ(rest.rfind(a, 0) == 0, !entries.empty());
    EXPECT_EQ(rest.find(b) != std::string::npos, entries.size() > 1);
  }
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_TRUE(g_reports.empty());
}

#ifndef _WIN32
TEST_F(LockFileTest, LocksOfOtherProcessesAreSharedAndTheirDeathRecognised) {
  // Another process of ours locks and stops, keeping its lock.
  const pid_t other = fork();
  if (other == 0) {
    C_FILE::Lock(doc);
    raise(SIGSTOP);
    _exit(0);
  }
  int status = 0;
  EXPECT_TRUE(waitpid(other, &status, WUNTRACED) == other && WIFSTOPPED(status));
  const std::string theirs = NameOf(CurrentUser(), other);
  EXPECT_EQ(ReadBytes(lockFile), theirs);
  EXPECT_EQ(Lockers(doc), Entries{theirs});
  EXPECT_TRUE(C_FILE::IsLocked(doc));
  EXPECT_EQ(Alive(theirs), C_LOG(1));
  EXPECT_EQ(Alive(me), C_LOG(1));

  // Ours replaces theirs (one user on one machine has one entry), and
  // another process reads it as we wrote it.
  C_FILE::Lock(doc);
  EXPECT_EQ(Lockers(doc), Entries{me});
  EXPECT_EQ(RunInChild([&] { return Lockers(doc) == Entries{me} && C_FILE::IsLocked(doc) ? 0 : 1; }), 0);

  // Exited but not yet reaped (a zombie), then gone: stale, and nothing is
  // cleared by asking. A tool removes it; the rewrite is Unlock's.
  WriteBytes(lockFile, theirs + "\n" + me);
  kill(other, SIGKILL);
  siginfo_t info;
  waitid(P_PID, static_cast<id_t>(other), &info, WEXITED | WNOWAIT);
  EXPECT_EQ(Alive(theirs), C_LOG(0));
  waitpid(other, nullptr, 0);
  EXPECT_EQ(Alive(theirs), C_LOG(0));
  EXPECT_TRUE(C_FILE::IsLocked(doc));
  EXPECT_EQ(Lockers(doc), (Entries{theirs, me}));
  const C_STRING stale(theirs.c_str());
  for (int twice = 0; twice < 2; ++twice) {
    C_FILE::RemoveLockers(doc, 1, &stale);
    EXPECT_EQ(ReadBytes(lockFile), me);
    EXPECT_FALSE(C_FILE::IsLocked(doc));
  }

  // A living process of another user does not hold a lock of ours; other
  // machines and texts that are no locker names cannot be told.
  EXPECT_EQ(Alive(NameOf("nobody", getpid())), C_LOG(0));
  EXPECT_EQ(Alive(NameOf("no-such-user-here", getpid())), C_LOG(0));
  EXPECT_EQ(Alive(NameOf(UserOf(geteuid()), 0)), C_LOG(0));
  for (const char* unknown : {"\\\\elsewhere-pc\\bob\\1", "", "plain", "\\\\\\bob\\1", "\\\\pc\\\\1", "\\\\pc\\bob\\",
                              "\\\\pc\\bob\\12x", "\\\\pc\\bob\\99999999999999999999"}) {
    EXPECT_EQ(C_FILE::IsLockerAlive(C_STRING(unknown)), C_LOG()) << unknown;
  }
  std::string upperHost = Host();
  for (char& c : upperHost) c = static_cast<char>(toupper(c));
  EXPECT_EQ(Alive(Owner(UserOf(geteuid()), upperHost) + "\\" + std::to_string(getpid())), C_LOG(1));
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(LockFileTest, FailuresAreReported) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to act as other users";
  const std::string unableToLock = "C#Err#Unable to lock file|" + Narrow(doc);
  // A user without a name has no locker name, so no lock and no unlock;
  // in doubt the document counts as locked.
  chmod(dir.path().c_str(), 0755);
  WriteBytes(lockFile, a);
  EXPECT_EQ(AsUser(54321,
                   [&] {
                     C_STRING name;
                     C_FILE::BuildLockerName(&name);
                     if (!CerrFileLock.IsPending() || Narrow(name) != "\\\\" + Host()) return 1;
                     C_ERROR::ClearPending();
                     C_FILE::Lock(doc);
                     C_FILE::Unlock(doc);
                     if (!C_FILE::IsLocked(doc) || C_ERROR::Is()) return 2;
                     return g_reports == std::vector<std::string>{unableToLock, unableToLock} ? 0 : 3;
                   }),
            0);
  EXPECT_EQ(ReadBytes(lockFile), a);

  // A lock file this user may not write, in a directory it may not write.
  chmod(lockFile.c_str(), 0644);
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
  EXPECT_EQ(ReadBytes(lockFile), a);
  EXPECT_FALSE(fs::exists(lockFile + ".tmp"));

  // No host name: no locker name either.
  fs::remove(lockFile);
  const int code = RunInChild([&] {
    if (unshare(CLONE_NEWUTS) != 0 || sethostname("", 0) != 0) return 77;
    C_STRING name;
    C_FILE::BuildLockerName(&name);
    if (!CerrFileLock.IsPending() || !name.IsVoid()) return 1;
    C_ERROR::ClearPending();
    C_FILE::Lock(doc);
    return g_reports == std::vector<std::string>{unableToLock} ? 0 : 2;
  });
  if (code == 77) GTEST_SKIP() << "cannot take the host name away here";
  EXPECT_EQ(code, 0);
  EXPECT_FALSE(fs::exists(lockFile));
}

TEST_F(LockFileTest, ReadOnlyLockAndWorkFilesAreLeftAsTheyAre) {
  // The read-only attribute holds for every user, root included: Lock and
  // Unlock report the file layer's refusal once and change no byte.
  const std::string lockName = Narrow(LibraryPath(lockFile, true));
  const std::string workFile = lockFile + ".tmp";
  const std::vector<std::string> cannotCreateLock = {"C#Err#Unable to create file|" + lockName};
  const std::vector<std::string> readOnlyLock = {"C#Err#File is in read only mode|" + lockName};
  const C_STRING others[] = {C_STRING(a.c_str())};
  // Another's entries, ours among others, ours alone (Unlock would remove
  // the file), none (Lock would write the first).
  for (const std::string& content : {a + "\n" + b, a + "\n" + me, me, std::string()}) {
    SCOPED_TRACE(content);
    WriteBytes(lockFile, content);
    ASSERT_EQ(chmod(lockFile.c_str(), 0444), 0);
    g_reports.clear();
    C_FILE::Lock(doc);
    EXPECT_EQ(g_reports, cannotCreateLock);
    g_reports.clear();
    C_FILE::Unlock(doc);
    EXPECT_EQ(g_reports, readOnlyLock);
    g_reports.clear();
    C_FILE::RemoveLockers(doc, 1, others);
    EXPECT_EQ(g_reports, readOnlyLock);
    EXPECT_FALSE(C_ERROR::Is());
    EXPECT_EQ(ReadBytes(lockFile), content);
    EXPECT_FALSE(fs::exists(workFile));
    ASSERT_EQ(chmod(lockFile.c_str(), 0644), 0);
  }

  // A read-only work file left behind by someone: Unlock cannot write it, and
  // keeps the lock file and the work file as they are.
  WriteBytes(lockFile, a + "\n" + me);
  WriteBytes(workFile, "kept");
  ASSERT_EQ(chmod(workFile.c_str(), 0444), 0);
  g_reports.clear();
  C_FILE::Unlock(doc);
  EXPECT_EQ(g_reports, std::vector<std::string>{"C#Err#Unable to create file|" + Narrow(LibraryPath(workFile, true))});
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(ReadBytes(lockFile), a + "\n" + me);
  EXPECT_EQ(ReadBytes(workFile), "kept");
  // Writable again, the same Unlock goes through.
  ASSERT_EQ(chmod(workFile.c_str(), 0644), 0);
  ASSERT_EQ(unlink(workFile.c_str()), 0);
  g_reports.clear();
  C_FILE::Unlock(doc);
  EXPECT_TRUE(g_reports.empty());
  EXPECT_EQ(ReadBytes(lockFile), a);
}

// Eight processes, as the given users, each lock one document 200 times at
// once; `check` runs after every Lock. Returns the statuses of failures.
std::string LockTogether(const C_STRING& doc, const std::vector<uid_t>& users, bool unlock,
                         const std::function<bool(const Entries&)>& check) {
  std::vector<pid_t> children;
  for (uid_t user : users) {
    const pid_t pid = fork();
    if (pid == 0) {
      umask(0);
      if (user != 0 && seteuid(user) != 0) _exit(90);
      for (int round = 0; round < 200; ++round) {
        C_FILE::Lock(doc);
        const Entries lockers = Lockers(doc);
        if (C_ERROR::Is() || !g_reports.empty() || !check(lockers)) _exit(1);
        if (unlock) C_FILE::Unlock(doc);
        if (C_ERROR::Is() || !g_reports.empty()) _exit(2);
      }
      _exit(0);
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

TEST_F(LockFileTest, StressLockAndUnlockOfOneUserLoseNothing) {
  // Each Lock replaces the entry of the user's other processes, so the file
  // holds at most one whole entry of ours at any moment (another process may
  // have unlocked meanwhile), and nothing is left once all have unlocked.
  const std::regex one("\\\\\\\\" + Host() + "\\\\" + UserOf(geteuid()) + "\\\\[0-9]+");
  const std::string failed = LockTogether(doc, std::vector<uid_t>(8, 0), true, [&](const Entries& lockers) {
    return lockers.empty() || (lockers.size() == 1 && std::regex_match(lockers[0], one));
  });
  EXPECT_EQ(failed, "");
  EXPECT_FALSE(fs::exists(lockFile));
  EXPECT_FALSE(fs::exists(lockFile + ".tmp"));
}

TEST_F(LockFileTest, StressLocksOfEightUsersAreAllKept) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to act as other users";
  std::vector<uid_t> users;
  for (uid_t uid = 1; users.size() < 8 && uid < 1000; ++uid) {
    if (!UserOf(uid).empty()) users.push_back(uid);
  }
  if (users.size() < 8) GTEST_SKIP() << "needs eight named users";
  chmod(dir.path().c_str(), 0777);
  // Each process finds its own entry exactly once after every Lock. They do
  // not unlock: an Unlock leaving two or more entries runs them together, and
  // they could no longer be counted.
  const std::string failed = LockTogether(doc, users, false, [](const Entries& lockers) {
    C_STRING self;
    C_FILE::BuildLockerName(&self);
    return std::count(lockers.begin(), lockers.end(), Narrow(self)) == 1 && lockers.size() <= 8;
  });
  EXPECT_EQ(failed, "");
  // Every process is there exactly once, under its own user, and nothing else.
  std::multiset<std::string> who, expected;
  for (const std::string& entry : Lockers(doc)) {
    who.insert(entry.substr(0, entry.rfind('\\')));
    EXPECT_EQ(Alive(entry), C_LOG(0)) << entry;
  }
  for (uid_t uid : users) expected.insert(Owner(UserOf(uid)));
  EXPECT_EQ(who, expected);
  EXPECT_FALSE(fs::exists(lockFile + ".tmp"));
}

#else
// The liveness of lockers through OpenProcess: this process, one that has
// ended (a second process started with CreateProcessW and waited for),
// other users and machines.
TEST_F(LockFileTest, LocksOfOtherProcessesAreSharedAndTheirDeathRecognised) {
  wchar_t command[] = L"cmd.exe /c exit 0";
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  ASSERT_TRUE(CreateProcessW(nullptr, command, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process));
  WaitForSingleObject(process.hProcess, INFINITE);
  const long ended = static_cast<long>(process.dwProcessId);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  WriteBytes(lockFile, NameOf(CurrentUser(), ended) + "\n" + me + "\n");
  EXPECT_EQ(Alive(NameOf(CurrentUser(), ended)), C_LOG(0));
  const C_STRING stale(NameOf(CurrentUser(), ended).c_str());
  C_FILE::RemoveLockers(doc, 1, &stale);
  EXPECT_EQ(Lockers(doc), Entries{me});
  EXPECT_EQ(Alive(me), C_LOG(1));
  EXPECT_EQ(Alive(NameOf("no-such-user-here", CurrentPid())), C_LOG(0));
  EXPECT_EQ(Alive(NameOf(CurrentUser(), 0)), C_LOG(0));
  EXPECT_EQ(C_FILE::IsLockerAlive(C_STRING("\\\\elsewhere-pc\\bob\\1")), C_LOG());
  // Machine names compare without case.
  std::string lowerHost = Host();
  for (char& c : lowerHost) c = static_cast<char>(tolower(c));
  EXPECT_EQ(Alive(Owner(CurrentUser(), lowerHost) + "\\" + std::to_string(CurrentPid())), C_LOG(1));
  EXPECT_FALSE(C_ERROR::Is());
}
TEST_F(LockFileTest, FailuresAreReported) {
  GTEST_SKIP() << "Acting as other users (seteuid) and taking the host name away (unshare) are POSIX's";
}
TEST_F(LockFileTest, StressLockAndUnlockOfOneUserLoseNothing) {
  GTEST_SKIP() << "Eight forked lockers at once are POSIX's (fork)";
}
TEST_F(LockFileTest, StressLocksOfEightUsersAreAllKept) {
  GTEST_SKIP() << "Acting as eight users (seteuid) is POSIX's";
}
#endif

}  // namespace
