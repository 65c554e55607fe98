// A PostgreSQL server of the test program's own: initdb into a temporary
// directory, pg_ctl start listening only on a Unix socket in it, never on a
// TCP port. The server refuses to run as root, so under root it runs as the
// "postgres" system user (else "nobody"), with the directory given to that
// user. It is stopped when the program ends, and a watchdog process stops it
// and removes the directory if the program dies in any other way. Its
// cluster is a copy of a template that initdb makes once in the temporary
// directory (qorc-pg-template-*), shared by the test programs.
//
// Roles: "qorc" (superuser, trusted) and "secretive" (a password, asked for).
#ifndef QORC_TESTS_SUPPORT_POSTGRES_SERVER_H
#define QORC_TESTS_SUPPORT_POSTGRES_SERVER_H

#include <fcntl.h>
#include <grp.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

class PostgresServer {
 public:
  static constexpr const char* kSecretPassword = "s3cret-Pa55word";
  // Why a test skips: the only reason it may.
  static constexpr const char* kAbsent =
      "the PostgreSQL server binaries (initdb, pg_ctl) are not installed; scripts/setup-debian.sh installs Debian's "
      "postgresql package";

  // The server of this program, started on first use; null, with the reason
  // in *why, when it cannot be had.
  static PostgresServer* Shared(std::string* why, bool* absent = nullptr) {
    static PostgresServer* server = nullptr;
    static std::string failure;
    if (server == nullptr && failure.empty()) {
      auto* started = new PostgresServer;
      failure = started->Launch();
      if (failure.empty()) {
        server = started;
        std::atexit([] { server->StopForGood(); });
      }
    }
    if (why != nullptr) *why = failure;
    if (absent != nullptr) *absent = server == nullptr && failure == kAbsent;
    return server;
  }

  // A fresh database of the qorc role, and the URI of a settings store in it.
  std::string NewStoreUri(const std::string& user = "qorc") {
    const std::string database = "store" + std::to_string(++databases_) + "_" + std::to_string(getpid());
    Execute("postgres", "CREATE DATABASE " + database);
    Execute("postgres", "GRANT ALL ON DATABASE " + database + " TO secretive");
    return Uri(database, user);
  }
  std::string Uri(const std::string& database, const std::string& user = "qorc") const {
    return "postgresql:///" + database + "?host=" + dir_ + "&port=" + kPort + "&user=" + user;
  }
  const std::string& SocketDirectory() const { return dir_; }

  // The first value of a query (text form), "" when there is none; "<error: ...>" on failure.
  std::string Query(const std::string& uri, const std::string& sql) const {
    PGconn* conn = PQconnectdb(uri.c_str());
    PGresult* result = PQstatus(conn) == CONNECTION_OK ? PQexec(conn, sql.c_str()) : nullptr;
    const ExecStatusType status = PQresultStatus(result);
    std::string out;
    if (result == nullptr || (status != PGRES_TUPLES_OK && status != PGRES_COMMAND_OK)) {
      out = std::string("<error: ") + (result != nullptr ? PQresultErrorMessage(result) : PQerrorMessage(conn)) + ">";
    } else if (status == PGRES_TUPLES_OK && PQntuples(result) > 0 && !PQgetisnull(result, 0, 0)) {
      out = PQgetvalue(result, 0, 0);
    }
    PQclear(result);
    PQfinish(conn);
    return out;
  }
  std::string Execute(const std::string& database, const std::string& sql) const { return Query(Uri(database), sql); }

  // Fast shutdown (clients are disconnected) and start again on the same socket.
  bool Stop() { return Control({"stop", "-m", "fast", "-w", "-t", "60"}) == 0; }
  bool Start() {
    const std::string options = "-k " + dir_ + " -p " + kPort +
                                " -c listen_addresses='' -c fsync=off -c max_connections=60 -c log_min_messages=fatal";
    return Control({"start", "-w", "-t", "60", "-l", dir_ + "/server.log", "-o", options}) == 0;
  }
  // Freezes (or thaws) the server and every process of it, as a machine that stops answering.
  void Freeze(bool frozen) const {
    for (pid_t pid : ServerProcesses()) kill(pid, frozen ? SIGSTOP : SIGCONT);
  }

 private:
  static constexpr const char* kPort = "5432";

  // Empty when the server runs; else why not.
  std::string Launch() {
    bin_ = FindBinaries();
    if (bin_.empty()) return kAbsent;
    char pattern[] = "/tmp/qorc-pg-XXXXXX";
    if (mkdtemp(pattern) == nullptr) return "no temporary directory";
    dir_ = pattern;
    if (geteuid() == 0) {
      const passwd* user = getpwnam("postgres");
      if (user == nullptr) user = getpwnam("nobody");
      if (user == nullptr) return "running as root, with no postgres or nobody user to run the server as";
      uid_ = user->pw_uid;
      gid_ = user->pw_gid;
      if (chown(dir_.c_str(), uid_, gid_) != 0) return "cannot give the server directory to its user";
    }
    chmod(dir_.c_str(), 0755);
    StartWatchdog();
    // A copy of a cluster made once for every test program (initdb takes seconds), else a new one.
    const std::string made = Template();
    if (made.empty() || Run({"/bin/cp", "-a", made + "/data", dir_ + "/data"}, dir_ + "/copy.log") != 0) {
      const std::string why = MakeCluster(dir_);
      if (!why.empty()) return why;
    }
    if (!Start()) return "pg_ctl start failed: " + Tail(dir_ + "/server.log");
    Execute("postgres", std::string("CREATE ROLE secretive LOGIN PASSWORD '") + kSecretPassword + "'");
    return std::string();
  }

  // A new cluster in `dir`/data; empty when made, else why not.
  std::string MakeCluster(const std::string& dir) const {
    if (Run({bin_ + "/initdb", "-D", dir + "/data", "-U", "qorc", "--auth=trust", "-E", "UTF8", "--locale=C",
             "--no-sync"},
            dir + "/initdb.log") != 0) {
      return "initdb failed: " + Tail(dir + "/initdb.log");
    }
    std::ofstream(dir + "/data/pg_hba.conf", std::ios::trunc) << "local all secretive scram-sha-256\n"
                                                              << "local all all trust\n";
    return std::string();
  }

  // The directory of the shared template cluster, made on first use under a
  // lock (test programs run side by side); empty when it cannot be had.
  std::string Template() const {
    const std::string base =
        "/tmp/qorc-pg-template-" + std::to_string(std::hash<std::string>{}(bin_)) + "-" + std::to_string(geteuid());
    const int lock = open((base + ".lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    if (lock < 0) return std::string();
    flock(lock, LOCK_EX);
    bool ready = access((base + "/ready").c_str(), F_OK) == 0;
    if (!ready) {
      std::error_code ignored;
      std::filesystem::remove_all(base, ignored);
      ready = mkdir(base.c_str(), 0755) == 0 && (geteuid() != 0 || chown(base.c_str(), uid_, gid_) == 0) &&
              MakeCluster(base).empty();
      if (ready) std::ofstream(base + "/ready") << "made by the qorc tests\n";
    }
    flock(lock, LOCK_UN);
    close(lock);
    return ready ? base : std::string();
  }

  void StopForGood() {
    if (getpid() != starter_) return;  // a forked child leaves the server to its parent
    Stop();
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
    if (watchdog_ >= 0) close(watchdog_);
  }

  // A process that waits for this program's end (its pipe closes however the
  // program ends), then stops the server and removes the directory.
  void StartWatchdog() {
    int ends[2];
    if (pipe(ends) != 0) return;
    const pid_t pid = fork();
    if (pid == 0) {
      close(ends[1]);
      setsid();
      char byte;
      while (read(ends[0], &byte, 1) > 0) {
      }
      Control({"stop", "-m", "immediate", "-w", "-t", "30"});
      std::error_code ignored;
      std::filesystem::remove_all(dir_, ignored);
      _exit(0);
    }
    close(ends[0]);
    fcntl(ends[1], F_SETFD, FD_CLOEXEC);
    watchdog_ = ends[1];
  }

  // QORC_PG_BINDIR, else the newest of Debian's /usr/lib/postgresql/VERSION/bin.
  static std::string FindBinaries() {
    const auto usable = [](const std::string& bin) {
      return access((bin + "/initdb").c_str(), X_OK) == 0 && access((bin + "/pg_ctl").c_str(), X_OK) == 0;
    };
    if (const char* given = std::getenv("QORC_PG_BINDIR")) return usable(given) ? given : "";
    std::string newest;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/usr/lib/postgresql", error)) {
      const std::string bin = (entry.path() / "bin").string();
      const auto version = [](const std::string& path) { return std::atoi(path.c_str() + 20); };  // after ".../"
      if (usable(bin) && (newest.empty() || version(bin) > version(newest))) newest = bin;
    }
    return newest;
  }

  int Control(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {bin_ + "/pg_ctl", "-D", dir_ + "/data"});
    return Run(arguments, dir_ + "/pg_ctl.log");
  }

  // Runs a program as the server's user, its output appended to `log`; its exit status.
  int Run(const std::vector<std::string>& arguments, const std::string& log) const {
    const pid_t pid = fork();
    if (pid == 0) {
      const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
      if (out >= 0) {
        dup2(out, 1);
        dup2(out, 2);
      }
      const int nothing = open("/dev/null", O_RDONLY);
      if (nothing >= 0) dup2(nothing, 0);
      if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(gid_) != 0 || setuid(uid_) != 0)) _exit(126);
      std::vector<char*> argv;
      for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
      argv.push_back(nullptr);
      if (chdir(dir_.c_str()) != 0) _exit(126);
      execv(argv[0], argv.data());
      _exit(127);
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  // The postmaster (a process of one thread) and its children, as the kernel lists them.
  std::vector<pid_t> ServerProcesses() const {
    std::vector<pid_t> pids(1, 0);
    if (!(std::ifstream(dir_ + "/data/postmaster.pid") >> pids[0])) return {};
    const std::string postmaster = std::to_string(pids[0]);
    std::ifstream children("/proc/" + postmaster + "/task/" + postmaster + "/children");
    for (pid_t child; children >> child;) pids.push_back(child);
    return pids;
  }

  static std::string Tail(const std::string& file) {
    std::ifstream in(file);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return text.size() > 600 ? text.substr(text.size() - 600) : text;
  }

  std::string bin_;
  std::string dir_;
  uid_t uid_ = 0;
  gid_t gid_ = 0;
  int watchdog_ = -1;
  int databases_ = 0;
  pid_t starter_ = getpid();
};

#endif
