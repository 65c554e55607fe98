// Settings keys: entry writes (Open, SetEntry, three fields, Close) and reads
// (Open, SetEntry, three reads, Close) per second, against the same rows
// written and read through SQLite directly: the same schema, journal and
// synchronous settings, with prepared statements and the key's id known in
// advance. The same for a store in PostgreSQL, on a server of the bench's own
// (a Unix socket), against raw libpq: prepared statements with binary
// parameters, one round trip each, the key's id known. Entries cycle over
// 1000 names of one key. Ratios are printed after the runs.
//
// Before them, the peak resident memory of a fresh process that imports a
// .reg file of about 50 MB (689,500 values under both roots, as the registry
// editor writes them: UTF-16 with a mark, CR LF) into two new stores, against
// the file's size (target: at most twice the file).
#include <benchmark/benchmark.h>
#include <libpq-fe.h>
#include <qorc/qorc.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/postgres_server.h"

namespace {

constexpr int kNames = 1000;

std::string g_dir;
C_REGKEY::HANDLE g_store = nullptr;
std::vector<C_STRING> g_names;
const C_STRING kKey(u"Software\\Bench");
const C_STRING kText(u"a setting of some length");

// The stored bytes of int, double and string, as C_REGKEY lays them out,
// rounded up to a multiple of four.
std::string FieldBytes(int number, double real, const std::u16string& text) {
  std::string bytes(4 + 8 + 4 + 2 * text.size(), '\0');
  std::memcpy(&bytes[0], &number, 4);
  std::memcpy(&bytes[4], &real, 8);
  const unsigned count = static_cast<unsigned>(text.size());
  std::memcpy(&bytes[12], &count, 4);
  std::memcpy(&bytes[16], text.data(), 2 * text.size());
  bytes.resize((bytes.size() + 3) & ~std::size_t(3), '\0');
  return bytes;
}

std::string NameBytes(const C_STRING& name) {
  return std::string(reinterpret_cast<const char*>(name.GetWCHAR()), 2 * static_cast<std::size_t>(name.GetNumber()));
}

std::string FoldBytes(const C_STRING& name) {
  std::string bytes;
  for (int i = 0; i < name.GetNumber(); ++i) {
    char16_t c = name.GetWCHAR()[i];
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
    bytes.push_back(static_cast<char>(c >> 8));
    bytes.push_back(static_cast<char>(c & 0xFF));
  }
  return bytes;
}

// Sets the entry of name i % kNames to its three fields.
void WriteSetting(C_REGKEY& key, int i) {
  key.SetEntry(g_names[i % kNames]);
  key.Write(i);
  key.Write(0.5 * i);
  key.Write(kText);
}

// The number and the text's length of an entry's stored fields, as a reader sums them.
long long SumOfFields(const unsigned char* data) {
  int number = 0;
  double real = 0;
  unsigned count = 0;
  std::memcpy(&number, data, 4);
  std::memcpy(&real, data + 4, 8);
  std::memcpy(&count, data + 12, 4);
  const std::u16string text(reinterpret_cast<const char16_t*>(data + 16), count);
  return number + static_cast<long long>(text.size());
}

// Writes through the library: Open, SetEntry, three fields, Close.
void LibraryWrites(benchmark::State& state, C_REGKEY::HANDLE store) {
  int i = 0;
  for (auto _ : state) {
    C_REGKEY key;
    key.Open(store, kKey, C_REGKEY::WRITE, false);
    WriteSetting(key, i++);
    key.Close();
  }
  if (C_ERROR::Is()) state.SkipWithError("settings write failed");
  state.SetItemsProcessed(state.iterations());
}

// Stores every entry of a store through the library once, so that reads
// find them whichever benchmarks run.
bool FillLibraryStore(C_REGKEY::HANDLE store) {
  static std::set<C_REGKEY::HANDLE> filled;
  if (filled.count(store) != 0) return true;
  C_REGKEY key;
  key.Open(store, kKey, C_REGKEY::WRITE, true);
  for (int i = 0; i < kNames && !C_ERROR::Is(); ++i) WriteSetting(key, i);
  key.Close();
  if (C_ERROR::Is()) return false;
  filled.insert(store);
  return true;
}

// Reads through the library: Open, SetEntry, three reads, Close.
void LibraryReads(benchmark::State& state, C_REGKEY::HANDLE store) {
  if (!FillLibraryStore(store)) return state.SkipWithError("settings could not be stored");
  int i = 0;
  long long sum = 0;
  for (auto _ : state) {
    C_REGKEY key;
    key.Open(store, kKey, C_REGKEY::READ, false);
    key.SetEntry(g_names[i++ % kNames]);
    int number = 0;
    double real = 0;
    C_STRING text;
    key.Read(&number);
    key.Read(&real);
    key.Read(&text);
    key.Close();
    sum += number + text.GetNumber();
  }
  benchmark::DoNotOptimize(sum);
  if (C_ERROR::Is()) state.SkipWithError("settings read failed");
  state.SetItemsProcessed(state.iterations());
}

void BM_RegkeyWriteEntry(benchmark::State& state) { LibraryWrites(state, g_store); }
BENCHMARK(BM_RegkeyWriteEntry);

void BM_RegkeyReadEntry(benchmark::State& state) { LibraryReads(state, g_store); }
BENCHMARK(BM_RegkeyReadEntry);

// The rows' names and folded names as stored, for the direct baselines.
std::vector<std::string> g_nameBytes, g_foldBytes;

// The same rows through a connection of its own on a store file of its own.
struct Direct {
  sqlite3* db = nullptr;
  sqlite3_stmt* upsert = nullptr;
  sqlite3_stmt* select = nullptr;
  sqlite3_int64 key = 0;
};
Direct g_direct;

// Stores the entry of name i % kNames directly, as the library lays it out.
bool WriteDirect(int i) {
  static const std::u16string text(kText.GetWCHAR(), kText.GetNumber());
  const std::string data = FieldBytes(i, 0.5 * i, text);
  sqlite3_stmt* s = g_direct.upsert;
  sqlite3_bind_int64(s, 1, g_direct.key);
  sqlite3_bind_blob(s, 2, g_nameBytes[i % kNames].data(), static_cast<int>(g_nameBytes[i % kNames].size()),
                    SQLITE_STATIC);
  sqlite3_bind_blob(s, 3, g_foldBytes[i % kNames].data(), static_cast<int>(g_foldBytes[i % kNames].size()),
                    SQLITE_STATIC);
  sqlite3_bind_int(s, 4, 3);
  sqlite3_bind_blob(s, 5, data.data(), static_cast<int>(data.size()), SQLITE_TRANSIENT);
  const bool done = sqlite3_step(s) == SQLITE_DONE;
  sqlite3_reset(s);
  return done;
}

void BM_SqliteWriteEntry(benchmark::State& state) {
  int i = 0;
  for (auto _ : state) {
    if (!WriteDirect(i)) state.SkipWithError("sqlite write failed");
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SqliteWriteEntry);

// Stores every row directly once, so that reads find them whichever
// benchmarks run.
bool FillDirectStore() {
  static bool filled = false;
  for (int i = 0; i < kNames && !filled; ++i) {
    if (!WriteDirect(i)) return false;
  }
  filled = true;
  return true;
}

void BM_SqliteReadEntry(benchmark::State& state) {
  if (!FillDirectStore()) {
    state.SkipWithError("sqlite rows could not be stored");
    return;
  }
  int i = 0;
  long long sum = 0;
  for (auto _ : state) {
    sqlite3_stmt* s = g_direct.select;
    sqlite3_bind_int64(s, 1, g_direct.key);
    sqlite3_bind_blob(s, 2, g_foldBytes[i % kNames].data(), static_cast<int>(g_foldBytes[i % kNames].size()),
                      SQLITE_STATIC);
    if (sqlite3_step(s) == SQLITE_ROW) {
      sum += SumOfFields(static_cast<const unsigned char*>(sqlite3_column_blob(s, 0)));
    } else {
      state.SkipWithError("sqlite read failed");
    }
    sqlite3_reset(s);
    ++i;
  }
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SqliteReadEntry);

bool PrepareDirect(const std::string& path) {
  // The library lays out the schema; the baseline then uses its own connection.
  if (C_REGKEY::OpenStore(C_STRING(path.c_str())) == nullptr) return false;
  C_REGKEY key;
  key.Open(C_REGKEY::OpenStore(C_STRING(path.c_str())), kKey, C_REGKEY::WRITE, true);
  key.Close();
  Direct& d = g_direct;
  if (sqlite3_open_v2(path.c_str(), &d.db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) return false;
  sqlite3_busy_timeout(d.db, 10000);
  sqlite3_exec(d.db, "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = ON", nullptr,
               nullptr, nullptr);
  sqlite3_stmt* find = nullptr;
  sqlite3_prepare_v2(d.db, "SELECT max(id) FROM keys", -1, &find, nullptr);
  if (sqlite3_step(find) == SQLITE_ROW) d.key = sqlite3_column_int64(find, 0);
  sqlite3_finalize(find);
  return sqlite3_prepare_v2(d.db,
                            "INSERT INTO entries(key, name, fold, type, data) VALUES (?1, ?2, ?3, ?4, ?5) "
                            "ON CONFLICT(key, fold) DO UPDATE SET type = excluded.type, data = excluded.data",
                            -1, &d.upsert, nullptr) == SQLITE_OK &&
         sqlite3_prepare_v2(d.db, "SELECT data FROM entries WHERE key = ?1 AND fold = ?2", -1, &d.select, nullptr) ==
             SQLITE_OK;
}

// PostgreSQL: the library's store, and the same rows through libpq directly,
// in a database of their own.
C_REGKEY::HANDLE g_pgStore = nullptr;
struct DirectPostgres {
  PGconn* conn = nullptr;
  long long key = 0;
};
DirectPostgres g_pg;

void BM_RegkeyWriteEntryPostgres(benchmark::State& state) {
  if (g_pgStore == nullptr) return state.SkipWithError("no PostgreSQL server");
  LibraryWrites(state, g_pgStore);
}
BENCHMARK(BM_RegkeyWriteEntryPostgres)->UseRealTime();

void BM_RegkeyReadEntryPostgres(benchmark::State& state) {
  if (g_pgStore == nullptr) return state.SkipWithError("no PostgreSQL server");
  LibraryReads(state, g_pgStore);
}
BENCHMARK(BM_RegkeyReadEntryPostgres)->UseRealTime();

std::string BigEndian64(long long value) {
  std::string bytes(8, '\0');
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<char>(static_cast<unsigned long long>(value) >> (56 - 8 * i));
  return bytes;
}

bool DirectPostgresWrite(int i) {
  const std::u16string text(kText.GetWCHAR(), kText.GetNumber());
  const std::string key = BigEndian64(g_pg.key), type = BigEndian64(3);
  const std::string data = FieldBytes(i, 0.5 * i, text);
  const std::string& name = g_nameBytes[i % kNames];
  const std::string& fold = g_foldBytes[i % kNames];
  const char* values[] = {key.data(), name.data(), fold.data(), type.data(), data.data()};
  const int lengths[] = {8, static_cast<int>(name.size()), static_cast<int>(fold.size()), 8,
                         static_cast<int>(data.size())};
  const int formats[] = {1, 1, 1, 1, 1};
  PGresult* result = PQexecPrepared(g_pg.conn, "upsert", 5, values, lengths, formats, 1);
  const bool ok = PQresultStatus(result) == PGRES_COMMAND_OK;
  PQclear(result);
  return ok;
}

void BM_LibpqWriteEntry(benchmark::State& state) {
  if (g_pg.conn == nullptr) return state.SkipWithError("no PostgreSQL server");
  int i = 0;
  for (auto _ : state) {
    if (!DirectPostgresWrite(i)) state.SkipWithError("libpq write failed");
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LibpqWriteEntry)->UseRealTime();

void BM_LibpqReadEntry(benchmark::State& state) {
  if (g_pg.conn == nullptr) return state.SkipWithError("no PostgreSQL server");
  for (int i = 0; i < kNames; ++i) {  // the rows it reads, stored first
    if (!DirectPostgresWrite(i)) return state.SkipWithError("libpq write failed");
  }
  const std::string key = BigEndian64(g_pg.key);
  int i = 0;
  long long sum = 0;
  for (auto _ : state) {
    const std::string& fold = g_foldBytes[i % kNames];
    const char* values[] = {key.data(), fold.data()};
    const int lengths[] = {8, static_cast<int>(fold.size())};
    const int formats[] = {1, 1};
    PGresult* result = PQexecPrepared(g_pg.conn, "select", 2, values, lengths, formats, 1);
    if (PQresultStatus(result) == PGRES_TUPLES_OK && PQntuples(result) == 1) {
      sum += SumOfFields(reinterpret_cast<const unsigned char*>(PQgetvalue(result, 0, 0)));
    } else {
      state.SkipWithError("libpq read failed");
    }
    PQclear(result);
    ++i;
  }
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LibpqReadEntry)->UseRealTime();

// Both databases start with the key; each read benchmark stores the entries it reads.
bool PreparePostgres(PostgresServer* server) {
  const std::string library = server->NewStoreUri(), direct = server->NewStoreUri();
  g_pgStore = C_REGKEY::OpenStore(C_STRING(library.c_str()));
  const C_REGKEY::HANDLE directStore = C_REGKEY::OpenStore(C_STRING(direct.c_str()));
  if (g_pgStore == nullptr || directStore == nullptr) return false;
  for (const C_REGKEY::HANDLE store : {g_pgStore, directStore}) {
    C_REGKEY key;
    key.Open(store, kKey, C_REGKEY::WRITE, true);
    key.Close();
  }
  g_pg.conn = PQconnectdb(direct.c_str());
  if (PQstatus(g_pg.conn) != CONNECTION_OK) return false;
  g_pg.key = std::atoll(server->Query(direct, "SELECT max(id) FROM qorc_settings.keys").c_str());
  PGresult* upsert = PQprepare(g_pg.conn, "upsert",
                               "INSERT INTO qorc_settings.entries(key, name, fold, type, data) VALUES ($1, $2, $3, $4, "
                               "$5) ON CONFLICT (key, fold) DO UPDATE SET type = excluded.type, data = excluded.data",
                               5, nullptr);
  PGresult* select =
      PQprepare(g_pg.conn, "select", "SELECT data FROM qorc_settings.entries WHERE key = $1 AND fold = $2", 2, nullptr);
  const bool prepared = PQresultStatus(upsert) == PGRES_COMMAND_OK && PQresultStatus(select) == PGRES_COMMAND_OK;
  PQclear(upsert);
  PQclear(select);
  return prepared && !C_ERROR::Is();
}

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) times_[run.benchmark_name()] = {run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};
    ConsoleReporter::ReportRuns(runs);
  }
  // How much longer `library` takes than `baseline` (1.00x: as fast), in
  // elapsed time and in processor time (steadier on a busy machine).
  void PrintRatio(const char* what, const std::string& library, const std::string& baseline) {
    const auto a = times_.find(library), b = times_.find(baseline);
    if (a == times_.end() || b == times_.end() || b->second.first <= 0 || b->second.second <= 0) return;
    std::printf("%-38s %5.2fx elapsed, %5.2fx cpu (%.0f vs %.0f per second)\n", what, a->second.first / b->second.first,
                a->second.second / b->second.second, 1e9 / a->second.first, 1e9 / b->second.first);
  }

 private:
  std::map<std::string, std::pair<double, double>> times_;
};

// A .reg file of `values` entries, fifty to a key, the keys alternating
// between the two roots; a third of the entries are dword:, the others text.
void WriteRegFile(const std::string& path, int values) {
  std::u16string text = u"Windows Registry Editor Version 5.00\r\n\r\n";
  std::FILE* out = std::fopen(path.c_str(), "wb");
  if (out == nullptr) return;
  std::fwrite("\xFF\xFE", 1, 2, out);
  char line[128];
  for (int n = 0, key = 0; n < values; ++key) {
    std::snprintf(line, sizeof line, "[%s\\Software\\Bench\\Group%03d\\Key%05d]\r\n",
                  key % 2 == 0 ? "HKEY_CURRENT_USER" : "HKEY_LOCAL_MACHINE", key % 100, key);
    text.append(line, line + std::strlen(line));
    for (int i = 0; i < 50 && n < values; ++i, ++n) {
      if (i % 3 == 0) {
        std::snprintf(line, sizeof line, "\"Value%02d\"=dword:%08x\r\n", i, n);
      } else {
        std::snprintf(line, sizeof line, "\"Value%02d\"=\"setting %07d of the bench\"\r\n", i, n);
      }
      text.append(line, line + std::strlen(line));
    }
    text += u"\r\n";
    if (text.size() > (1u << 20) || n >= values) {
      std::fwrite(text.data(), 2, text.size(), out);  // UTF-16 LE on this platform
      text.clear();
    }
  }
  std::fclose(out);
}

// Imports the file into new stores of the two roots and prints the peak
// resident memory of this (fresh) process in KiB, or -1 when the import fails.
int ImportAndReportPeak(const char* file, const char* user, const char* machine) {
  Copen();
  C_REGKEY::InitUser(C_REGKEY::OpenStore(C_STRING(user)));
  C_REGKEY::InitMachine(C_REGKEY::OpenStore(C_STRING(machine)));
  CregkeyImport(C_STRING(file));
  struct rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  std::printf("%ld\n", C_ERROR::Is() ? -1L : usage.ru_maxrss);
  Cclose();
  return 0;
}

void ReportImportPeak() {
  constexpr int kValues = 689500;
  const std::string file = g_dir + "/import.reg";
  WriteRegFile(file, kValues);
  const std::string command = std::filesystem::read_symlink("/proc/self/exe").string() + " --import-peak " + file +
                              " " + g_dir + "/import-user.sqlite " + g_dir + "/import-machine.sqlite";
  long kib = -1;
  if (std::FILE* child = popen(command.c_str(), "r")) {
    if (std::fscanf(child, "%ld", &kib) != 1) kib = -1;
    pclose(child);
  }
  const double fileKib = std::filesystem::file_size(file) / 1024.0;
  std::printf("Peak resident memory importing a .reg file of %d values (%.1f MiB) into two stores:\n", kValues,
              fileKib / 1024);
  std::printf("  %ld KiB, %.2fx the file (target: at most 2x)\n\n", kib, kib / fileKib);
  for (const char* name : {"/import.reg", "/import-user.sqlite", "/import-machine.sqlite"}) {
    std::filesystem::remove(g_dir + name);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 5 && std::strcmp(argv[1], "--import-peak") == 0) return ImportAndReportPeak(argv[2], argv[3], argv[4]);
  Copen();
  std::string pattern = (std::filesystem::temp_directory_path() / "qorc-bench-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) return 1;
  g_dir = pattern;
  for (int i = 0; i < kNames; ++i) {
    g_names.push_back(C_STRING(i, C_STRING(u"Setting%04d")));
    g_nameBytes.push_back(NameBytes(g_names.back()));
    g_foldBytes.push_back(FoldBytes(g_names.back()));
  }
  g_store = C_REGKEY::OpenStore(C_STRING((g_dir + "/library.sqlite").c_str()));
  if (g_store == nullptr || !PrepareDirect(g_dir + "/direct.sqlite")) return 1;
  // The key exists from the start; each benchmark stores the entries it reads.
  C_REGKEY key;
  key.Open(g_store, kKey, C_REGKEY::WRITE, true);
  key.Close();

  ReportImportPeak();

  std::string why;
  PostgresServer* server = PostgresServer::Shared(&why);
  if (server == nullptr) {
    std::printf("PostgreSQL benchmarks skipped: %s\n", why.c_str());
  } else if (!PreparePostgres(server)) {
    std::printf("PostgreSQL benchmarks skipped: the stores could not be prepared\n");
    g_pgStore = nullptr;
  }

  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nLibrary against SQLite directly (target: at most 1.5x the time):\n");
  reporter.PrintRatio("write: Open+SetEntry+3 fields+Close", "BM_RegkeyWriteEntry", "BM_SqliteWriteEntry");
  reporter.PrintRatio("read: Open+SetEntry+3 reads+Close", "BM_RegkeyReadEntry", "BM_SqliteReadEntry");
  std::printf("\nLibrary's PostgreSQL store against raw libpq (target: at most 1.5x the time):\n");
  reporter.PrintRatio("write: Open+SetEntry+3 fields+Close", "BM_RegkeyWriteEntryPostgres/real_time",
                      "BM_LibpqWriteEntry/real_time");
  reporter.PrintRatio("read: Open+SetEntry+3 reads+Close", "BM_RegkeyReadEntryPostgres/real_time",
                      "BM_LibpqReadEntry/real_time");
  std::printf("\nPostgreSQL store against the SQLite store:\n");
  reporter.PrintRatio("write", "BM_RegkeyWriteEntryPostgres/real_time", "BM_RegkeyWriteEntry");
  reporter.PrintRatio("read", "BM_RegkeyReadEntryPostgres/real_time", "BM_RegkeyReadEntry");
  benchmark::Shutdown();
  sqlite3_finalize(g_direct.upsert);
  sqlite3_finalize(g_direct.select);
  sqlite3_close(g_direct.db);
  PQfinish(g_pg.conn);
  std::filesystem::remove_all(g_dir);
  Cclose();
  return 0;
}
