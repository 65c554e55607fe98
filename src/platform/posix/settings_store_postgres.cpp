// Settings stores kept in PostgreSQL databases, for settings that many
// machines share. A store is named by a libpq connection URI
// ("postgresql://user@host:port/database?..."); credentials come as libpq
// takes them (the URI, PGPASSFILE, PGPASSWORD and the other PG variables).
//
// Layout: the schema "qorc_settings" of the database, made on first use,
// holds "keys" (one row per key; the top key has id 1 and no parent) and
// "entries" (one row per entry), with "meta" naming the layout's version.
// Names and data are bytea: names as UTF-16 LE with their case, beside their
// folded form (every unit upper-cased, big-endian), which lookups, uniqueness
// and the order of subkeys use; data exactly as handed over. Entries are
// listed by row id, the order in which they were first stored: an upsert
// keeps the row. Ids come from sequences and are never reused, so each
// connection remembers the ids of the paths it has resolved, and a handle
// whose key has gone resolves its path again.
//
// Each operation is one transaction (a single statement, or BEGIN ... COMMIT
// when it needs several) at the server's isolation level. Concurrent writers
// of one key meet in the unique indexes (an upsert waits for the other
// writer, then updates), deleting a key locks its row first so that no
// subkey appears under it meanwhile, and an operation that meets a
// serialization failure or a deadlock is run again from its start. A client
// that dies or loses its connection mid-transaction leaves nothing of it:
// the server rolls it back.
//
// Time-outs, so that no call hangs: every call of the seam ends within
// kCallTimeoutMs, whatever it has to do (wait for replies, connect again,
// run again after a serialization failure). Connecting gives up after
// kConnectTimeoutSeconds, or the URI's connect_timeout (or PGCONNECT_TIMEOUT)
// when that is shorter; the server cancels a statement after
// kStatementTimeoutMs and ends a transaction left idle after
// kIdleInTransactionTimeoutMs; TCP keepalives find a peer that has vanished.
// A call whose connection is found lost is run once more on a new connection
// (outside a batch), except after a time-out: a server that stopped
// answering is not asked again within the same call. A call that fails
// leaves no connection behind, so the next call connects again and the store
// works again once the server is back. A write whose reply never came is in
// doubt, as with any database: the server may still commit it (whole) when
// it answers again; the call reports the failure. Looking up the server's host name is
// the system resolver's affair and is not bounded here.
//
// A connection belongs to the process that made it: a child made by fork
// keeps its parent's stores and handles, and on first use opens a
// connection of its own, never using or closing the parent's.
#include <libpq-fe.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include "platform/process.h"
#include "platform/process_bound.h"
#include "platform/settings_backend.h"
#include "platform/text.h"

namespace qorc::platform::postgres {

namespace {

constexpr int kConnectTimeoutSeconds = 10;
constexpr int kStatementTimeoutMs = 10000;
constexpr int kCallTimeoutMs = 15000;
// A transaction left open by a client that stopped talking is ended by the
// server after this long, so that its locks do not outlive it.
constexpr int kIdleInTransactionTimeoutMs = 60000;
// How often an operation that met a serialization failure is tried.
constexpr int kAttempts = 20;
constexpr int kSchemaVersion = 1;
// "qorc" in ASCII: the advisory lock under which the schema is made.
constexpr long long kSchemaLock = 0x716F7263;

enum Statement {
  kFindChild,
  kInsertKey,
  kKeyExists,
  kKeyPath,
  kLockKey,
  kQueryEntry,
  kUpsertEntry,
  kDeleteEntry,
  kHasChildren,
  kDeleteKey,
  kListSubkeys,
  kListEntries,
  kStatementCount
};

struct StatementText {
  const char* sql;
  int parameters;
};

const StatementText kStatements[kStatementCount] = {
    {"SELECT id FROM qorc_settings.keys WHERE parent = $1 AND fold = $2", 2},
    {"INSERT INTO qorc_settings.keys(parent, name, fold) VALUES ($1, $2, $3) "
     "ON CONFLICT (parent, fold) DO NOTHING RETURNING id",
     3},
    {"SELECT 1 FROM qorc_settings.keys WHERE id = $1", 1},
    {"WITH RECURSIVE up(id, parent, name, depth) AS (SELECT id, parent, name, 0 FROM qorc_settings.keys WHERE id = $1 "
     "UNION ALL SELECT k.id, k.parent, k.name, up.depth + 1 FROM qorc_settings.keys k JOIN up ON k.id = up.parent) "
     "SELECT name FROM up WHERE parent IS NOT NULL ORDER BY depth DESC",
     1},
    {"SELECT 1 FROM qorc_settings.keys WHERE id = $1 FOR UPDATE", 1},
    {"SELECT type, data FROM qorc_settings.entries WHERE key = $1 AND fold = $2", 2},
    {"INSERT INTO qorc_settings.entries(key, name, fold, type, data) VALUES ($1, $2, $3, $4, $5) "
     "ON CONFLICT (key, fold) DO UPDATE SET type = excluded.type, data = excluded.data",
     5},
    {"DELETE FROM qorc_settings.entries WHERE key = $1 AND fold = $2", 2},
    {"SELECT 1 FROM qorc_settings.keys WHERE parent = $1 LIMIT 1", 1},
    {"DELETE FROM qorc_settings.keys WHERE id = $1", 1},
    {"SELECT name FROM qorc_settings.keys WHERE parent = $1 ORDER BY fold", 1},
    {"SELECT name FROM qorc_settings.entries WHERE key = $1 ORDER BY id", 1},
};

const char kSchemaScript[] =
    "CREATE SCHEMA IF NOT EXISTS qorc_settings;"
    "CREATE TABLE qorc_settings.meta(version integer NOT NULL);"
    "INSERT INTO qorc_settings.meta(version) VALUES (1);"
    "CREATE TABLE qorc_settings.keys("
    " id bigint GENERATED BY DEFAULT AS IDENTITY (START WITH 2) PRIMARY KEY,"
    " parent bigint REFERENCES qorc_settings.keys(id) ON DELETE CASCADE,"
    " name bytea NOT NULL,"
    " fold bytea NOT NULL,"
    " UNIQUE (parent, fold));"
    "INSERT INTO qorc_settings.keys(id, parent, name, fold) VALUES (1, NULL, '', '');"
    "CREATE TABLE qorc_settings.entries("
    " id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,"
    " key bigint NOT NULL REFERENCES qorc_settings.keys(id) ON DELETE CASCADE,"
    " name bytea NOT NULL,"
    " fold bytea NOT NULL,"
    " type bigint NOT NULL,"
    " data bytea NOT NULL,"
    " UNIQUE (key, fold));";

// What became of one statement or operation.
enum class Outcome {
  Ok,
  NotFound,
  Denied,
  Failed,
  // A serialization failure or a deadlock: worth running again from the start.
  Retry,
  // The connection is gone; what was not committed is rolled back.
  Lost
};

enum class Batch { None, Open, Broken };

using Clock = std::chrono::steady_clock;

// When the seam call under way in this thread must end; set by each call
// (see Call).
thread_local Clock::time_point g_callDeadline = Clock::time_point::max();
// Whether, during the call under way, the server did not answer in time or
// could not be reached: it is then not asked again within the call.
thread_local bool g_unreachable = false;

// Bounds one call of the seam, with everything it does, by kCallTimeoutMs.
// Calls inside a call keep the outer deadline.
class Call {
 public:
  Call() : outer_(g_callDeadline != Clock::time_point::max()) {
    if (!outer_) {
      g_callDeadline = Clock::now() + std::chrono::milliseconds(kCallTimeoutMs);
      g_unreachable = false;
    }
  }
  ~Call() {
    if (!outer_) g_callDeadline = Clock::time_point::max();
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

 private:
  bool outer_;
};

// One process's session with the server, with the statements it has prepared.
struct Connection {
  PGconn* conn = nullptr;
  bool prepared[kStatementCount] = {};

  explicit Connection(PGconn* opened) : conn(opened) {}
  ~Connection() { PQfinish(conn); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
};

// A store, with the handles on it. The handles are process-wide and a child
// made by fork goes on using its parent's; the session belongs to one
// process, and a child connects again on first use.
struct Store {
  std::string conninfo;  // as given; never shown, since it may hold a password
  int connectTimeoutMs = kConnectTimeoutSeconds * 1000;
  std::string identity;  // server, port, database and user, as connected
  ProcessBound<Connection> connection;
  // A batch is a transaction of one session, of the process that began it.
  Batch batch = Batch::None;
  unsigned long batchProcess = 0;
  // Key ids as this store found them (ids name the same keys in every
  // session).
  SettingsKeyIds children;
  SettingsKey* top = nullptr;
};

PGconn* ConnOf(const Store* store) {
  const Connection* connection = store->connection.Get();
  return connection != nullptr ? connection->conn : nullptr;
}

Store* StoreOf(const SettingsKey* key) { return static_cast<Store*>(key->store); }

// The stores and handles stay until Cclose, never destroyed with the
// program's statics, so that keys closed by other statics' destructors still
// find them.
std::vector<std::unique_ptr<Store>>& Stores() {
  static auto* stores = new std::vector<std::unique_ptr<Store>>;
  return *stores;
}

std::unordered_set<const SettingsKey*>& LiveKeys() {
  static auto* keys = new std::unordered_set<const SettingsKey*>;
  return *keys;
}

bool IsLive(const SettingsKey* key) { return key != nullptr && LiveKeys().count(key) != 0; }

SettingsKey* NewKey(Store* store, long long id, unsigned access, const std::u16string& path) {
  SettingsKey* key = new (std::nothrow) SettingsKey{store, id, access, path};
  if (key == nullptr) return nullptr;
  try {
    LiveKeys().insert(key);
  } catch (const std::bad_alloc&) {
    delete key;
    return nullptr;
  }
  return key;
}

// Connections ------------------------------------------------------------------------------

void IgnoreNotice(void*, const char*) {}

// Waits for the socket's `events` (POLLIN, POLLOUT), at most until the
// deadline; false when the time is up (the server is then taken as not
// answering) or the wait failed.
bool WaitForSocket(PGconn* conn, short events, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) {
      g_unreachable = true;
      return false;
    }
    pollfd descriptor = {PQsocket(conn), events, 0};
    const int ready = poll(&descriptor, 1, static_cast<int>(std::min<long long>(left.count() + 1, kCallTimeoutMs)));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

void Disconnect(Store* store) {
  store->connection.Release();
  // Ids found inside a transaction that the server rolled back are void.
  store->children.Clear();
  if (store->batch == Batch::Open) store->batch = Batch::Broken;
}

bool IsFailure(const PGresult* result) {
  const ExecStatusType status = PQresultStatus(result);
  return status == PGRES_FATAL_ERROR || status == PGRES_BAD_RESPONSE;
}

// Sends what was queued and collects every result of it, keeping the first
// failure (or else the last result). Null when the connection failed or the
// reply took too long; the connection is then dropped.
PGresult* Collect(Store* store) {
  PGconn* conn = ConnOf(store);
  const Clock::time_point deadline = g_callDeadline;
  int flushed;
  while ((flushed = PQflush(conn)) == 1) {
    // Sending may wait for the server to read, and reading what it says meanwhile.
    if (!WaitForSocket(conn, POLLIN | POLLOUT, deadline) || !PQconsumeInput(conn)) {
      flushed = -1;
      break;
    }
  }
  PGresult* kept = nullptr;
  bool failed = flushed == -1;
  while (!failed) {
    while (PQisBusy(conn)) {
      if (!WaitForSocket(conn, POLLIN, deadline) || !PQconsumeInput(conn)) {
        failed = true;
        break;
      }
    }
    if (failed) break;
    PGresult* next = PQgetResult(conn);
    if (next == nullptr) break;
    // The first failure says what went wrong; else the last result is the answer.
    if (kept != nullptr && IsFailure(kept)) {
      PQclear(next);
    } else {
      PQclear(kept);
      kept = next;
    }
  }
  if (failed || PQstatus(conn) != CONNECTION_OK) {
    PQclear(kept);
    Disconnect(store);
    return nullptr;
  }
  return kept;
}

// A result and what it means.
class Reply {
 public:
  explicit Reply(PGresult* result) : result_(result) {}
  ~Reply() { PQclear(result_); }
  Reply(const Reply&) = delete;
  Reply& operator=(const Reply&) = delete;

  Outcome outcome() const {
    if (result_ == nullptr) return Outcome::Lost;
    const ExecStatusType status = PQresultStatus(result_);
    if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK) return Outcome::Ok;
    const char* state = PQresultErrorField(result_, PG_DIAG_SQLSTATE);
    if (state == nullptr) return Outcome::Failed;
    // serialization_failure, deadlock_detected
    if (std::strcmp(state, "40001") == 0 || std::strcmp(state, "40P01") == 0) return Outcome::Retry;
    // insufficient_privilege, read_only_sql_transaction
    if (std::strcmp(state, "42501") == 0 || std::strcmp(state, "25006") == 0) return Outcome::Denied;
    return Outcome::Failed;
  }
  int rows() const { return result_ != nullptr ? PQntuples(result_) : 0; }
  const unsigned char* bytes(int row, int column) const {
    return reinterpret_cast<const unsigned char*>(PQgetvalue(result_, row, column));
  }
  std::size_t size(int row, int column) const { return static_cast<std::size_t>(PQgetlength(result_, row, column)); }
  bool null(int row, int column) const { return PQgetisnull(result_, row, column) != 0; }
  // A bigint column of a binary result: eight bytes, big-endian.
  long long number(int row, int column) const {
    if (size(row, column) != 8) return 0;
    unsigned long long value = 0;
    for (int i = 0; i < 8; ++i) value = (value << 8) | bytes(row, column)[i];
    return static_cast<long long>(value);
  }
  const char* command() const { return result_ != nullptr ? PQcmdStatus(result_) : ""; }
  const char* tuples() const { return result_ != nullptr ? PQcmdTuples(result_) : ""; }
  // The text of a field of a text result.
  std::string text(int row, int column) const { return std::string(PQgetvalue(result_, row, column)); }
  bool state(const char* code) const {
    const char* state = result_ != nullptr ? PQresultErrorField(result_, PG_DIAG_SQLSTATE) : nullptr;
    return state != nullptr && std::strcmp(state, code) == 0;
  }

 private:
  PGresult* result_;
};

// Runs SQL text (one or several statements, no parameters); results in text.
PGresult* RunText(Store* store, const char* sql) {
  PGconn* conn = ConnOf(store);
  if (conn == nullptr || !PQsendQuery(conn, sql)) {
    Disconnect(store);
    return nullptr;
  }
  return Collect(store);
}

// Opens a connection (without waiting past the call's deadline or the
// connect time-out) with the session settings every operation relies on.
// The URI's own keywords win over the defaults given here.
bool Connect(Store* store) {
  Disconnect(store);
  if (g_unreachable) return false;
  const std::string tcpTimeout = std::to_string(kCallTimeoutMs);
  const char* keywords[] = {"keepalives",       "keepalives_idle", "keepalives_interval",       "keepalives_count",
                            "tcp_user_timeout", "dbname",          "fallback_application_name", nullptr};
  const char* values[] = {"1", "10", "5", "3", tcpTimeout.c_str(), store->conninfo.c_str(), "qorc", nullptr};
  PGconn* conn = PQconnectStartParams(keywords, values, 1);
  if (conn == nullptr) return false;
  try {
    store->connection.Adopt(std::unique_ptr<Connection>(new Connection(conn)));
  } catch (const std::bad_alloc&) {
    PQfinish(conn);
    return false;
  }
  const Clock::time_point deadline =
      std::min(g_callDeadline, Clock::now() + std::chrono::milliseconds(store->connectTimeoutMs));
  PostgresPollingStatusType polling = PGRES_POLLING_WRITING;
  while (PQstatus(conn) != CONNECTION_BAD && polling != PGRES_POLLING_OK && polling != PGRES_POLLING_FAILED) {
    if (!WaitForSocket(conn, polling == PGRES_POLLING_WRITING ? POLLOUT : POLLIN, deadline)) break;
    polling = PQconnectPoll(conn);
  }
  if (polling != PGRES_POLLING_OK || PQstatus(conn) != CONNECTION_OK) {
    g_unreachable = true;
    Disconnect(store);
    return false;
  }
  PQsetNoticeProcessor(conn, IgnoreNotice, nullptr);
  if (PQsetnonblocking(conn, 1) != 0) {
    Disconnect(store);
    return false;
  }
  const std::string session =
      "SET statement_timeout = " + std::to_string(kStatementTimeoutMs) +
      "; SET idle_in_transaction_session_timeout = " + std::to_string(kIdleInTransactionTimeoutMs) +
      "; SET client_min_messages = warning";
  Reply settings(RunText(store, session.c_str()));
  if (settings.outcome() != Outcome::Ok) {
    Disconnect(store);
    return false;
  }
  return true;
}

// The connect time-out of a URI: its connect_timeout, else PGCONNECT_TIMEOUT,
// as libpq reads them (at least 2 s), when shorter than the library's.
int ConnectTimeoutMs(const PQconninfoOption* options) {
  const char* given = std::getenv("PGCONNECT_TIMEOUT");
  for (const PQconninfoOption* option = options; option->keyword != nullptr; ++option) {
    if (std::strcmp(option->keyword, "connect_timeout") == 0 && option->val != nullptr && option->val[0] != '\0') {
      given = option->val;
    }
  }
  const int seconds = given != nullptr ? std::atoi(given) : 0;
  return (seconds > 0 ? std::min(kConnectTimeoutSeconds, std::max(seconds, 2)) : kConnectTimeoutSeconds) * 1000;
}

// The connection of this process, made (again) when there is none: a child
// made by fork leaves its parent's connection alone, unused and open.
bool Connected(Store* store) {
  if (store->batch != Batch::None && store->batchProcess != CurrentProcessId()) store->batch = Batch::None;
  if (store->connection.Get() != nullptr) return true;
  // A batch lives in one session: once that is gone, so is the batch.
  if (store->batch != Batch::None) return false;
  return Connect(store);
}

// Statements --------------------------------------------------------------------------------

// One parameter, sent in binary.
struct Parameter {
  std::string bytes;
  static Parameter Number(long long value) {
    Parameter parameter;
    parameter.bytes.resize(8);
    for (int i = 0; i < 8; ++i) {
      parameter.bytes[i] = static_cast<char>(static_cast<unsigned long long>(value) >> (56 - 8 * i));
    }
    return parameter;
  }
  static Parameter Bytes(std::string bytes) { return Parameter{std::move(bytes)}; }
};

// The name a statement is prepared under in each session.
const char* StatementName(Statement which) {
  static const char* const kNames[kStatementCount] = {"qorc_settings_0", "qorc_settings_1",  "qorc_settings_2",
                                                      "qorc_settings_3", "qorc_settings_4",  "qorc_settings_5",
                                                      "qorc_settings_6", "qorc_settings_7",  "qorc_settings_8",
                                                      "qorc_settings_9", "qorc_settings_10", "qorc_settings_11"};
  return kNames[which];
}

// Runs a prepared statement (prepared on first use in this connection) with
// binary parameters and results.
PGresult* Run(Store* store, Statement which, const std::vector<Parameter>& parameters) {
  if (!Connected(store)) return nullptr;
  Connection* connection = store->connection.Get();
  const char* name = StatementName(which);
  if (!connection->prepared[which]) {
    if (!PQsendPrepare(connection->conn, name, kStatements[which].sql, kStatements[which].parameters, nullptr)) {
      Disconnect(store);
      return nullptr;
    }
    PGresult* prepared = Collect(store);
    if (prepared == nullptr || PQresultStatus(prepared) != PGRES_COMMAND_OK) return prepared;
    PQclear(prepared);
    connection->prepared[which] = true;
  }
  std::vector<const char*> values;
  std::vector<int> lengths, formats;
  for (const Parameter& parameter : parameters) {
    values.push_back(parameter.bytes.data());
    lengths.push_back(static_cast<int>(parameter.bytes.size()));
    formats.push_back(1);
  }
  if (!PQsendQueryPrepared(connection->conn, name, static_cast<int>(parameters.size()), values.data(), lengths.data(),
                           formats.data(), 1)) {
    Disconnect(store);
    return nullptr;
  }
  return Collect(store);
}

// One change made of several statements, unless the store is inside a batch,
// which then holds it.
class Transaction {
 public:
  Transaction(Store* store, bool needed) : store_(store), own_(needed && store->batch == Batch::None) {
    if (own_) {
      Reply begin(Connected(store) ? RunText(store, "BEGIN") : nullptr);
      began_ = begin.outcome();
    }
  }
  ~Transaction() {
    if (own_ && began_ == Outcome::Ok && !done_) Rollback();
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  // Ok, or why the transaction could not begin.
  Outcome began() const { return began_; }
  Outcome Commit() {
    if (!own_) return store_->batch == Batch::Broken ? Outcome::Lost : Outcome::Ok;
    done_ = true;
    Reply commit(RunText(store_, "COMMIT"));
    Outcome outcome = commit.outcome();
    // A transaction that failed on the way ends in a rollback, which COMMIT reports.
    if (outcome == Outcome::Ok && std::strcmp(commit.command(), "COMMIT") != 0) outcome = Outcome::Failed;
    if (outcome != Outcome::Ok) store_->children.Clear();
    return outcome;
  }

 private:
  void Rollback() {
    if (ConnOf(store_) != nullptr) Reply(RunText(store_, "ROLLBACK"));
    store_->children.Clear();
  }

  Store* store_;
  bool own_;
  bool done_ = false;
  Outcome began_ = Outcome::Ok;
};

// Runs an operation as many times as serialization failures ask, and once
// more on a new connection when the old one was lost; inside a batch, once.
template <typename Operation>
Outcome Attempt(Store* store, Operation operation) {
  bool reconnected = false;
  for (int attempt = 1;; ++attempt) {
    const Outcome outcome = operation();
    if (store->batch != Batch::None) return outcome;
    if (Clock::now() >= g_callDeadline) return outcome;
    if (outcome == Outcome::Retry && attempt < kAttempts) {
      std::this_thread::sleep_for(std::chrono::milliseconds(attempt));
      continue;
    }
    if (outcome == Outcome::Lost && !reconnected && !g_unreachable) {
      reconnected = true;
      if (Connected(store)) continue;
    }
    return outcome;
  }
}

SettingsResult Result(Outcome outcome) {
  switch (outcome) {
    case Outcome::Ok:
      return SettingsResult::Ok;
    case Outcome::NotFound:
      return SettingsResult::NotFound;
    case Outcome::Denied:
      return SettingsResult::Denied;
    default:
      return SettingsResult::Failed;
  }
}

// Keys ---------------------------------------------------------------------------------------

Outcome FindChild(Store* store, long long parent, const std::string& fold, long long* id) {
  Reply find(Run(store, kFindChild, {Parameter::Number(parent), Parameter::Bytes(fold)}));
  if (find.outcome() != Outcome::Ok) return find.outcome();
  if (find.rows() == 0) return Outcome::NotFound;
  *id = find.number(0, 0);
  return Outcome::Ok;
}

// Makes the child, or finds the one another client made meanwhile.
Outcome InsertKey(Store* store, long long parent, const std::u16string& name, long long* id) {
  const std::string fold = SettingsFoldBytes(name);
  Reply insert(Run(store, kInsertKey,
                   {Parameter::Number(parent), Parameter::Bytes(SettingsNameBytes(name)), Parameter::Bytes(fold)}));
  if (insert.outcome() != Outcome::Ok) return insert.outcome();
  if (insert.rows() == 1) {
    *id = insert.number(0, 0);
    return Outcome::Ok;
  }
  const Outcome found = FindChild(store, parent, fold, id);
  return found == Outcome::NotFound ? Outcome::Failed : found;
}

// Walks (and with `create` makes) the path from `id`. With `remembered`, ids
// this store found before are taken without asking the database.
Outcome ResolvePath(Store* store, long long id, const std::vector<std::u16string>& parts, bool create, bool remembered,
                    long long* found) {
  Outcome outcome = Outcome::Ok;
  store->children.Resolve(
      id, parts, remembered,
      [&](long long parent, const std::u16string& name, const std::string& fold, long long* child) {
        outcome = FindChild(store, parent, fold, child);
        if (outcome == Outcome::NotFound && create) outcome = InsertKey(store, parent, name, child);
        return outcome == Outcome::Ok;
      },
      found);
  return outcome;
}

Outcome KeyExists(Store* store, long long id) {
  Reply exists(Run(store, kKeyExists, {Parameter::Number(id)}));
  if (exists.outcome() != Outcome::Ok) return exists.outcome();
  return exists.rows() > 0 ? Outcome::Ok : Outcome::NotFound;
}

// When the key's id no longer names a key, finds its path again; true when
// the handle now names another id, so that the failed operation is worth
// repeating.
bool Refresh(SettingsKey* key) {
  Store* store = StoreOf(key);
  return RefreshSettingsKey(
      key, [&](long long id) { return Attempt(store, [&] { return KeyExists(store, id); }) == Outcome::NotFound; },
      [&](const std::vector<std::u16string>& parts, long long* id) {
        return Attempt(store, [&] { return ResolvePath(store, kTopSettingsKeyId, parts, false, false, id); }) ==
               Outcome::Ok;
      });
}

// Runs the operation, and once more when it failed because the key's id had
// gone stale.
template <typename Operation>
SettingsResult OnFreshKey(SettingsKey* key, Operation operation) {
  Store* store = StoreOf(key);
  const Outcome outcome = Attempt(store, operation);
  if (outcome == Outcome::Ok || outcome == Outcome::Denied || store->batch != Batch::None || !Refresh(key)) {
    return Result(outcome);
  }
  return Result(Attempt(store, operation));
}

// The names of the key's subkeys or entries; NotFound when the key is gone.
Outcome ListNames(SettingsKey* key, Statement which, std::vector<std::u16string>* names) {
  names->clear();
  Store* store = StoreOf(key);
  Reply list(Run(store, which, {Parameter::Number(key->id)}));
  if (list.outcome() != Outcome::Ok) return list.outcome();
  for (int row = 0; row < list.rows(); ++row) {
    names->push_back(SettingsNameFromBytes(list.bytes(row, 0), list.size(row, 0)));
  }
  return names->empty() ? KeyExists(store, key->id) : Outcome::Ok;
}

// Deletes the key `id` (its entries and, by cascade, its subkeys go with it).
Outcome DeleteKeyRow(Store* store, long long id) {
  Reply erase(Run(store, kDeleteKey, {Parameter::Number(id)}));
  return erase.outcome();
}

// Stores -------------------------------------------------------------------------------------

// The version of the layout in the database: 0 when it has none, -1 when
// that cannot be told.
int SchemaVersion(Store* store) {
  Reply version(RunText(store, "SELECT version FROM qorc_settings.meta"));
  if (version.outcome() == Outcome::Ok) return version.rows() == 1 ? std::atoi(version.text(0, 0).c_str()) : -1;
  // undefined_table, invalid_schema_name
  return version.state("42P01") || version.state("3F000") ? 0 : -1;
}

// Whether the database holds a settings store, making one when it holds none.
// Clients that start at once take turns through an advisory lock.
bool PrepareSchema(Store* store) {
  const int version = SchemaVersion(store);
  if (version != 0) return version == kSchemaVersion;
  const std::string lock = "BEGIN; SELECT pg_advisory_xact_lock(" + std::to_string(kSchemaLock) +
                           "); SELECT to_regclass('qorc_settings.meta') IS NULL";
  bool ok;
  {
    Reply missing(RunText(store, lock.c_str()));
    ok = missing.outcome() == Outcome::Ok && missing.rows() == 1;
    if (ok && missing.text(0, 0) == "t") {
      Reply made(RunText(store, kSchemaScript));
      ok = made.outcome() == Outcome::Ok;
    } else if (ok) {
      ok = SchemaVersion(store) == kSchemaVersion;
    }
  }
  if (ConnOf(store) == nullptr) return false;
  Reply end(RunText(store, ok ? "COMMIT" : "ROLLBACK"));
  return ok && end.outcome() == Outcome::Ok && std::strcmp(end.command(), "COMMIT") == 0;
}

std::string Utf8(const char16_t* text) {
  const int units = static_cast<int>(std::char_traits<char16_t>::length(text));
  const int needed = WideToMultiByte(65001, text, units, nullptr, 0);
  if (needed < 0) return std::string();
  std::string out(static_cast<std::size_t>(needed), '\0');
  WideToMultiByte(65001, text, units, out.data(), needed);
  return out;
}

Store* FindStore(const std::string& conninfo, const std::string& identity) {
  for (const std::unique_ptr<Store>& store : Stores()) {
    if ((!conninfo.empty() && store->conninfo == conninfo) || (!identity.empty() && store->identity == identity)) {
      return store.get();
    }
  }
  return nullptr;
}

}  // namespace

// The back-end's operations, with the contracts of the seam functions of the
// same names.

SettingsKey* OpenSettingsStore(const char16_t* name) {
  const Call call;
  try {
    const std::string conninfo = Utf8(name);
    if (conninfo.empty()) return nullptr;
    if (Store* known = FindStore(conninfo, std::string())) return known->top;
    char* parseError = nullptr;
    PQconninfoOption* options = PQconninfoParse(conninfo.c_str(), &parseError);
    PQfreemem(parseError);  // it may quote the URI, password and all: never shown
    if (options == nullptr) return nullptr;
    std::unique_ptr<Store> store(new Store);
    store->conninfo = conninfo;
    store->connectTimeoutMs = ConnectTimeoutMs(options);
    PQconninfoFree(options);
    if (!Connect(store.get()) || !PrepareSchema(store.get())) return nullptr;
    const PGconn* conn = ConnOf(store.get());
    store->identity = std::string(PQhost(conn)) + '\n' + PQport(conn) + '\n' + PQdb(conn) + '\n' + PQuser(conn);
    if (Store* known = FindStore(std::string(), store->identity)) return known->top;
    store->top = NewKey(store.get(), kTopSettingsKeyId,
                        kSettingsQuery | kSettingsSet | kSettingsCreateSubkey | kSettingsEnumerate, std::u16string());
    if (store->top == nullptr) return nullptr;
    Stores().push_back(std::move(store));
    return Stores().back()->top;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void CloseAllSettingsStores() {
  for (const SettingsKey* key : LiveKeys()) delete key;
  LiveKeys().clear();
  // A parent's sessions are the parent's: a child leaves them open.
  Stores().clear();
}

bool OwnsKey(const SettingsKey* key) { return IsLive(key); }

SettingsResult OpenSettingsKey(SettingsKey* parent, const std::u16string& path, unsigned access, bool create,
                               SettingsKey** key) {
  const Call call;
  *key = nullptr;
  if (!IsLive(parent)) return SettingsResult::Failed;
  try {
    std::vector<std::u16string> parts;
    if (!SplitSettingsKeyPath(path, &parts)) return SettingsResult::NotFound;
    Store* store = StoreOf(parent);
    long long id = 0;
    // Opening trusts the ids found before; creating asks the database, which
    // makes what is missing.
    const SettingsResult result = OnFreshKey(parent, [&] {
      Transaction change(store, create && !parts.empty());
      if (change.began() != Outcome::Ok) return change.began();
      const Outcome resolved = ResolvePath(store, parent->id, parts, create, !create, &id);
      if (resolved != Outcome::Ok) return resolved;
      return change.Commit();
    });
    if (result != SettingsResult::Ok) return result;
    *key = NewKey(store, id, access, JoinSettingsKeyPath(parent->path, path));
    return *key != nullptr ? SettingsResult::Ok : SettingsResult::Failed;
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

bool CloseSettingsKey(SettingsKey* key) {
  if (!IsLive(key)) return false;
  if (key == StoreOf(key)->top) return true;
  LiveKeys().erase(key);
  delete key;
  return true;
}

SettingsResult QuerySettingsEntry(SettingsKey* key, const std::u16string& name, unsigned* type,
                                  std::vector<unsigned char>* data) {
  const Call call;
  if (!IsLive(key)) return SettingsResult::Failed;
  if ((key->access & kSettingsQuery) == 0) return SettingsResult::Denied;
  try {
    const std::string fold = SettingsFoldBytes(name);
    return OnFreshKey(key, [&] {
      Reply query(Run(StoreOf(key), kQueryEntry, {Parameter::Number(key->id), Parameter::Bytes(fold)}));
      if (query.outcome() != Outcome::Ok) return query.outcome();
      if (query.rows() == 0) return Outcome::NotFound;
      *type = static_cast<unsigned>(query.number(0, 0));
      data->assign(query.bytes(0, 1), query.bytes(0, 1) + query.size(0, 1));
      return Outcome::Ok;
    });
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

SettingsResult SetSettingsEntry(SettingsKey* key, const std::u16string& name, unsigned type, const unsigned char* data,
                                std::size_t size) {
  const Call call;
  if (!IsLive(key)) return SettingsResult::Failed;
  if ((key->access & kSettingsSet) == 0) return SettingsResult::Denied;
  try {
    std::vector<Parameter> parameters = {
        Parameter::Number(key->id), Parameter::Bytes(SettingsNameBytes(name)),
        Parameter::Bytes(SettingsFoldBytes(name)), Parameter::Number(type),
        Parameter::Bytes(size != 0 ? std::string(reinterpret_cast<const char*>(data), size) : std::string())};
    return OnFreshKey(key, [&] {
      parameters[0] = Parameter::Number(key->id);  // the id may have been found again
      Reply upsert(Run(StoreOf(key), kUpsertEntry, parameters));
      return upsert.outcome();
    });
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

SettingsResult DeleteSettingsEntry(SettingsKey* key, const std::u16string& name) {
  const Call call;
  if (!IsLive(key)) return SettingsResult::Failed;
  if ((key->access & kSettingsSet) == 0) return SettingsResult::Denied;
  try {
    const std::string fold = SettingsFoldBytes(name);
    return OnFreshKey(key, [&] {
      Reply erase(Run(StoreOf(key), kDeleteEntry, {Parameter::Number(key->id), Parameter::Bytes(fold)}));
      if (erase.outcome() != Outcome::Ok) return erase.outcome();
      return std::strcmp(erase.tuples(), "0") != 0 ? Outcome::Ok : Outcome::NotFound;
    });
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

SettingsResult DeleteSettingsSubkey(SettingsKey* key, const std::u16string& name) {
  const Call call;
  if (!IsLive(key)) return SettingsResult::Failed;
  try {
    std::vector<std::u16string> parts;
    if (!SplitSettingsKeyPath(name, &parts) || parts.empty()) return SettingsResult::NotFound;
    Store* store = StoreOf(key);
    return OnFreshKey(key, [&] {
      Transaction change(store, true);
      if (change.began() != Outcome::Ok) return change.began();
      long long id = 0;
      Outcome outcome = ResolvePath(store, key->id, parts, false, false, &id);
      if (outcome != Outcome::Ok) return outcome;
      // The lock keeps other clients from making a subkey under it meanwhile.
      {
        Reply lock(Run(store, kLockKey, {Parameter::Number(id)}));
        if (lock.outcome() != Outcome::Ok) return lock.outcome();
        if (lock.rows() == 0) return Outcome::NotFound;
        Reply children(Run(store, kHasChildren, {Parameter::Number(id)}));
        if (children.outcome() != Outcome::Ok) return children.outcome();
        if (children.rows() > 0) return Outcome::Denied;
      }
      outcome = DeleteKeyRow(store, id);
      if (outcome != Outcome::Ok) return outcome;
      store->children.Clear();
      return change.Commit();
    });
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

SettingsResult DeleteSettingsTree(SettingsKey* key, const std::u16string& path) {
  const Call call;
  if (!IsLive(key)) return SettingsResult::Failed;
  try {
    std::vector<std::u16string> parts;
    if (!SplitSettingsKeyPath(path, &parts) || parts.empty()) return SettingsResult::NotFound;
    Store* store = StoreOf(key);
    if (store->batch == Batch::None) Refresh(key);
    return Result(Attempt(store, [&] {
      Transaction change(store, true);
      if (change.began() != Outcome::Ok) return change.began();
      const Outcome exists = KeyExists(store, key->id);
      if (exists != Outcome::Ok) return exists;
      long long id = 0;
      Outcome outcome = ResolvePath(store, key->id, parts, false, false, &id);
      if (outcome == Outcome::NotFound) return change.Commit();
      if (outcome == Outcome::Ok) outcome = DeleteKeyRow(store, id);
      if (outcome != Outcome::Ok) return outcome;
      store->children.Clear();
      return change.Commit();
    }));
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

SettingsResult ListSettingsSubkeys(SettingsKey* key, std::vector<std::u16string>* names) {
  const Call call;
  if (!IsLive(key)) return SettingsResult::Failed;
  if ((key->access & kSettingsEnumerate) == 0) return SettingsResult::Denied;
  try {
    return OnFreshKey(key, [&] { return ListNames(key, kListSubkeys, names); });
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

SettingsResult ListSettingsEntries(SettingsKey* key, std::vector<std::u16string>* names) {
  const Call call;
  if (!IsLive(key)) return SettingsResult::Failed;
  if ((key->access & kSettingsQuery) == 0) return SettingsResult::Denied;
  try {
    return OnFreshKey(key, [&] { return ListNames(key, kListEntries, names); });
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

// Whether this process has a batch open in its session.
static bool BatchOpenHere(const Store* store) {
  return store->batch == Batch::Open && store->batchProcess == CurrentProcessId() && ConnOf(store) != nullptr;
}

// A batch is one transaction of the store's connection. It cannot be run
// again on a serialization failure or a lost connection: it then fails
// whole, and nothing of it is stored.
bool BeginSettingsBatch(SettingsKey* key) {
  const Call call;
  if (!IsLive(key)) return false;
  Store* store = StoreOf(key);
  if (store->batch != Batch::None) return false;
  const Outcome began = Attempt(store, [&] {
    Reply begin(Connected(store) ? RunText(store, "BEGIN") : nullptr);
    return begin.outcome();
  });
  if (began != Outcome::Ok) return false;
  store->batch = Batch::Open;
  store->batchProcess = CurrentProcessId();
  return true;
}

bool CommitSettingsBatch(SettingsKey* key) {
  const Call call;
  if (!IsLive(key)) return false;
  Store* store = StoreOf(key);
  if (!BatchOpenHere(store)) {
    AbandonSettingsBatch(key);
    return false;
  }
  Reply commit(RunText(store, "COMMIT"));
  store->batch = Batch::None;
  if (commit.outcome() == Outcome::Ok && std::strcmp(commit.command(), "COMMIT") == 0) return true;
  store->children.Clear();
  return false;
}

void AbandonSettingsBatch(SettingsKey* key) {
  const Call call;
  if (!IsLive(key)) return;
  Store* store = StoreOf(key);
  if (BatchOpenHere(store)) {
    Reply(RunText(store, "ROLLBACK"));
  }
  store->batch = Batch::None;
  store->children.Clear();
}

std::u16string SettingsKeyPath(const SettingsKey* key) {
  const Call call;
  std::u16string path;
  if (!IsLive(key)) return path;
  try {
    // One statement, so that the path is read as it stood at one moment.
    Reply names(Run(StoreOf(key), kKeyPath, {Parameter::Number(key->id)}));
    if (names.outcome() != Outcome::Ok) return path;
    for (int row = 0; row < names.rows(); ++row) {
      if (row > 0) path += u'\\';
      path += SettingsNameFromBytes(names.bytes(row, 0), names.size(row, 0));
    }
  } catch (const std::bad_alloc&) {
    path.clear();
  }
  return path;
}

bool SameSettingsStore(const SettingsKey* a, const SettingsKey* b) {
  return IsLive(a) && IsLive(b) && a->store == b->store;
}

}  // namespace qorc::platform::postgres

namespace qorc::platform {

const SettingsBackend* PostgresSettingsBackend() {
  static const SettingsBackend backend = {
      postgres::OpenSettingsStore,  postgres::CloseAllSettingsStores, postgres::OwnsKey,
      postgres::OpenSettingsKey,    postgres::CloseSettingsKey,       postgres::QuerySettingsEntry,
      postgres::SetSettingsEntry,   postgres::DeleteSettingsEntry,    postgres::DeleteSettingsSubkey,
      postgres::DeleteSettingsTree, postgres::ListSettingsSubkeys,    postgres::ListSettingsEntries,
      postgres::BeginSettingsBatch, postgres::CommitSettingsBatch,    postgres::AbandonSettingsBatch,
      postgres::SettingsKeyPath,    postgres::SameSettingsStore,
  };
  return &backend;
}

}  // namespace qorc::platform
