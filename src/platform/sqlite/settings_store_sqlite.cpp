// Settings stores kept in SQLite databases, one file per store.
//
// Layout: the table "keys" holds one row per key (the top key has id 1 and no
// parent), "entries" one row per entry. Names are kept as UTF-16 LE bytes
// with their case; beside each name its folded form (every unit upper-cased,
// stored big-endian so that byte order is code-unit order) is what lookups,
// uniqueness and the order of subkeys use. Entries are listed by row id, the
// order in which they were first stored: an upsert keeps the row. Key ids
// are never reused, so a key id remembered for a path either still names
// that key or names none: each connection remembers the ids of the paths it
// has resolved, and a handle whose key turns out to be gone (deleted by
// another process, perhaps made anew) resolves its path again.
//
// The journal is a write-ahead log with synchronous=NORMAL: a commit survives
// the death of the writing process, and a process killed in the middle of a
// write leaves the database as it was before that write. Writers of other
// processes wait for each other through the busy time-out.
//
// Handles are process-wide and outlive fork: a child made by fork goes on
// using its parent's handles, each naming the same key, through a connection
// of its own that it opens from the same file on first use.
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <unordered_set>
#include <vector>

#include "platform/posix/native_path.h"
#include "platform/process.h"
#include "platform/process_bound.h"
#include "platform/settings_backend.h"

namespace qorc::platform::posix {

// "qorc" in ASCII: marks a database as a settings store.
constexpr int kStoreApplicationId = 0x716F7263;
constexpr int kStoreSchemaVersion = 1;
constexpr sqlite3_int64 kTopKeyId = kTopSettingsKeyId;
// How long a writer waits for the writers of other processes.
constexpr int kBusyTimeoutMs = 10000;

enum Statement {
  kFindChild,
  kKeyExists,
  kInsertKey,
  kKeyParent,
  kQueryEntry,
  kUpsertEntry,
  kDeleteEntry,
  kHasChildren,
  kDeleteKey,
  kListSubkeys,
  kListEntries,
  kStatementCount
};

const char* const kStatementTexts[kStatementCount] = {
    "SELECT id FROM keys WHERE parent = ?1 AND fold = ?2",
    "SELECT 1 FROM keys WHERE id = ?1",
    "INSERT INTO keys(parent, name, fold) VALUES (?1, ?2, ?3)",
    "SELECT parent, name FROM keys WHERE id = ?1",
    "SELECT type, data FROM entries WHERE key = ?1 AND fold = ?2",
    "INSERT INTO entries(key, name, fold, type, data) VALUES (?1, ?2, ?3, ?4, ?5) "
    "ON CONFLICT(key, fold) DO UPDATE SET type = excluded.type, data = excluded.data",
    "DELETE FROM entries WHERE key = ?1 AND fold = ?2",
    "SELECT 1 FROM keys WHERE parent = ?1 LIMIT 1",
    "DELETE FROM keys WHERE id = ?1",
    "SELECT name FROM keys WHERE parent = ?1 ORDER BY fold",
    "SELECT name FROM entries WHERE key = ?1 ORDER BY id",
};

const char* const kSchema =
    "CREATE TABLE keys("
    " id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " parent INTEGER REFERENCES keys(id) ON DELETE CASCADE,"
    " name BLOB NOT NULL,"
    " fold BLOB NOT NULL,"
    " UNIQUE(parent, fold));"
    "INSERT INTO keys(id, parent, name, fold) VALUES (1, NULL, x'', x'');"
    "CREATE TABLE entries("
    " id INTEGER PRIMARY KEY,"
    " key INTEGER NOT NULL REFERENCES keys(id) ON DELETE CASCADE,"
    " name BLOB NOT NULL,"
    " fold BLOB NOT NULL,"
    " type INTEGER NOT NULL,"
    " data BLOB NOT NULL,"
    " UNIQUE(key, fold));"
    "PRAGMA application_id = 1903129187;"
    "PRAGMA user_version = 1;";

// One process's connection to a store file, with what it has learnt.
struct Connection {
  sqlite3* db = nullptr;
  sqlite3_stmt* statements[kStatementCount] = {};
  // Key ids as this connection found them.
  SettingsKeyIds children;

  ~Connection() {
    for (sqlite3_stmt* statement : statements) sqlite3_finalize(statement);
    sqlite3_close_v2(db);
  }
};

// A store file, with the handles on it. The handles are process-wide and a
// child made by fork goes on using its parent's; the connection belongs to
// one process, and a child opens the file again on first use.
struct Store {
  std::string file;  // absolute, so that a child finds it whatever its directory
  dev_t device = 0;
  ino_t inode = 0;
  C_REGKEY::STORE_KEY* top = nullptr;
  ProcessBound<Connection> connection;
};

// The store a key of this back-end belongs to.
inline Store* StoreOf(const SettingsKey* key) { return static_cast<Store*>(key->store); }

}  // namespace qorc::platform::posix

namespace qorc::platform {
namespace posix {
namespace {

// The stores and handles stay until Cclose; they are never destroyed with
// the program's statics, so that keys closed by other statics' destructors
// still find them.
std::vector<std::unique_ptr<Store>>& Stores() {
  static auto* stores = new std::vector<std::unique_ptr<Store>>;
  return *stores;
}

// Every handle handed out and not yet released: a handle that is not here is
// refused rather than followed.
std::unordered_set<const SettingsKey*>& LiveKeys() {
  static auto* keys = new std::unordered_set<const SettingsKey*>;
  return *keys;
}

SettingsKey* NewKey(Store* store, sqlite3_int64 id, unsigned access, const std::u16string& path) {
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

bool IsLive(const SettingsKey* key) { return key != nullptr && LiveKeys().count(key) != 0; }

// Connections at rest are closed just before a fork, and opened again on
// first use, in the parent as in the child. SQLite keeps the record of the
// locks a process holds on a file in the process's memory: a child that
// inherited the parent's record would believe it holds the parent's locks
// when it opens the file again, and would not take them for itself. A
// connection in the middle of a batch stays open; the child lets go of it.
void CloseConnectionsAtRest() {
  for (const std::unique_ptr<Store>& store : Stores()) {
    const Connection* connection = store->connection.Get();
    if (connection != nullptr && sqlite3_get_autocommit(connection->db) != 0) store->connection.Release();
  }
}

std::unique_ptr<Connection> OpenConnection(const std::string& file, dev_t device, ino_t inode);

// The calling process's connection to the key's store, opened again from
// the same file on first use in a process made by fork. Null for a handle
// that is not live or a store that can no longer be opened.
Connection* Connect(const SettingsKey* key) {
  if (!IsLive(key)) return nullptr;
  Store* store = StoreOf(key);
  try {
    return store->connection.Acquire([store] { return OpenConnection(store->file, store->device, store->inode); });
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

std::string NameBytes(const std::u16string& name) { return SettingsNameBytes(name); }
std::string FoldBytes(const std::u16string& name) { return SettingsFoldBytes(name); }

std::u16string NameFromColumn(sqlite3_stmt* statement, int column) {
  const unsigned char* bytes = static_cast<const unsigned char*>(sqlite3_column_blob(statement, column));
  return SettingsNameFromBytes(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
}

void BindBytes(sqlite3_stmt* statement, int index, const std::string& bytes) {
  sqlite3_bind_blob(statement, index, bytes.data(), static_cast<int>(bytes.size()), SQLITE_TRANSIENT);
}

// A prepared statement of the store, reset and unbound when the use ends.
class Use {
 public:
  Use(Connection* connection, Statement which) : statement_(Prepare(connection, which)) {}
  ~Use() {
    if (statement_ != nullptr) {
      sqlite3_reset(statement_);
      sqlite3_clear_bindings(statement_);
    }
  }
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;

  sqlite3_stmt* get() const { return statement_; }
  explicit operator bool() const { return statement_ != nullptr; }

 private:
  static sqlite3_stmt* Prepare(Connection* connection, Statement which) {
    sqlite3_stmt*& statement = connection->statements[which];
    if (statement == nullptr) {
      sqlite3_prepare_v3(connection->db, kStatementTexts[which], -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    }
    return statement;
  }

  sqlite3_stmt* statement_;
};

// One change made of several statements, unless the store is already inside
// a batch, which then holds it.
class Transaction {
 public:
  explicit Transaction(Connection* connection, bool needed = true)
      : connection_(connection), own_(needed && sqlite3_get_autocommit(connection->db) != 0) {
    if (own_) begun_ = sqlite3_exec(connection_->db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  ~Transaction() {
    if (own_ && begun_) Rollback();
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  bool Begun() const { return !own_ || begun_; }
  bool Commit() {
    if (!own_) return true;
    begun_ = false;
    if (sqlite3_exec(connection_->db, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK) return true;
    Rollback();
    return false;
  }

 private:
  // Key ids found or made inside the change are void with it.
  void Rollback() {
    sqlite3_exec(connection_->db, "ROLLBACK", nullptr, nullptr, nullptr);
    connection_->children.Clear();
  }

  Connection* connection_;
  bool own_;
  bool begun_ = false;
};

// The child of `parent` named `name`: Ok with its id, NotFound, or Failed.
SettingsResult FindChild(Connection* connection, sqlite3_int64 parent, const std::string& fold, sqlite3_int64* id) {
  Use find(connection, kFindChild);
  if (!find) return SettingsResult::Failed;
  sqlite3_bind_int64(find.get(), 1, parent);
  BindBytes(find.get(), 2, fold);
  const int rc = sqlite3_step(find.get());
  if (rc == SQLITE_ROW) {
    *id = sqlite3_column_int64(find.get(), 0);
    return SettingsResult::Ok;
  }
  return rc == SQLITE_DONE ? SettingsResult::NotFound : SettingsResult::Failed;
}

SettingsResult InsertKey(Connection* connection, sqlite3_int64 parent, const std::u16string& name, sqlite3_int64* id) {
  Use insert(connection, kInsertKey);
  if (!insert) return SettingsResult::Failed;
  sqlite3_bind_int64(insert.get(), 1, parent);
  BindBytes(insert.get(), 2, NameBytes(name));
  BindBytes(insert.get(), 3, FoldBytes(name));
  if (sqlite3_step(insert.get()) != SQLITE_DONE) return SettingsResult::Failed;
  *id = sqlite3_last_insert_rowid(connection->db);
  return SettingsResult::Ok;
}

bool SplitKeyPath(const std::u16string& path, std::vector<std::u16string>* parts) {
  return SplitSettingsKeyPath(path, parts);
}

// Walks (and with `create` makes) the path from `id`. With `remembered`, ids
// this connection found before are taken without asking the database.
SettingsResult ResolvePath(Connection* connection, sqlite3_int64 id, const std::vector<std::u16string>& parts,
                           bool create, bool remembered, sqlite3_int64* found) {
  SettingsResult result = SettingsResult::Ok;
  connection->children.Resolve(
      id, parts, remembered,
      [&](long long parent, const std::u16string& name, const std::string& fold, long long* child) {
        result = FindChild(connection, parent, fold, child);
        if (result == SettingsResult::NotFound && create) result = InsertKey(connection, parent, name, child);
        return result == SettingsResult::Ok;
      },
      found);
  return result;
}

bool KeyExists(Connection* connection, sqlite3_int64 id) {
  Use exists(connection, kKeyExists);
  if (!exists) return false;
  sqlite3_bind_int64(exists.get(), 1, id);
  return sqlite3_step(exists.get()) == SQLITE_ROW;
}

// When the key's id no longer names a key, finds its path again; true when
// the handle now names another id, so that the failed operation is worth
// repeating.
bool Refresh(Connection* connection, SettingsKey* key) {
  return RefreshSettingsKey(
      key, [&](long long id) { return !KeyExists(connection, id); },
      [&](const std::vector<std::u16string>& parts, long long* id) {
        return ResolvePath(connection, kTopKeyId, parts, false, false, id) == SettingsResult::Ok;
      });
}

// The names of the key's subkeys or entries; NotFound when the key is gone.
SettingsResult ListNames(Connection* connection, const SettingsKey* key, Statement which,
                         std::vector<std::u16string>* names) {
  names->clear();
  Use list(connection, which);
  if (!list) return SettingsResult::Failed;
  sqlite3_bind_int64(list.get(), 1, key->id);
  int rc;
  while ((rc = sqlite3_step(list.get())) == SQLITE_ROW) names->push_back(NameFromColumn(list.get(), 0));
  if (rc != SQLITE_DONE) return SettingsResult::Failed;
  return !names->empty() || KeyExists(connection, key->id) ? SettingsResult::Ok : SettingsResult::NotFound;
}

// Runs the operation, and once more when it failed because the key's id had
// gone stale.
template <typename Operation>
SettingsResult OnFreshKey(Connection* connection, SettingsKey* key, Operation operation) {
  const SettingsResult result = operation();
  if (result == SettingsResult::Ok || result == SettingsResult::Denied || !Refresh(connection, key)) return result;
  return operation();
}

SettingsResult StepToEnd(sqlite3_stmt* statement) {
  const int rc = sqlite3_step(statement);
  if (rc == SQLITE_DONE) return SettingsResult::Ok;
  return rc == SQLITE_READONLY ? SettingsResult::Denied : SettingsResult::Failed;
}

// Reads one integer pragma; false when the file is no database at all.
bool ReadPragma(sqlite3* db, const char* sql, long long* value) {
  sqlite3_stmt* statement = nullptr;
  bool ok = sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) == SQLITE_OK && sqlite3_step(statement) == SQLITE_ROW;
  if (ok) *value = sqlite3_column_int64(statement, 0);
  sqlite3_finalize(statement);
  return ok;
}

// Whether the database is a settings store, making it one when it is empty.
bool PrepareSchema(sqlite3* db, bool writable) {
  long long applicationId = 0, version = 0, objects = 0;
  if (!ReadPragma(db, "PRAGMA application_id", &applicationId)) return false;
  if (applicationId == kStoreApplicationId) {
    return ReadPragma(db, "PRAGMA user_version", &version) && version == kStoreSchemaVersion;
  }
  if (applicationId != 0 || !writable) return false;
  if (sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK) return false;
  // Another process may have made it a store while this one waited.
  bool ok = ReadPragma(db, "PRAGMA application_id", &applicationId) &&
            ReadPragma(db, "SELECT count(*) FROM sqlite_schema", &objects);
  if (ok && applicationId == 0 && objects == 0) {
    ok = sqlite3_exec(db, kSchema, nullptr, nullptr, nullptr) == SQLITE_OK;
  } else {
    ok = ok && applicationId == kStoreApplicationId;
  }
  if (ok) ok = sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
  if (!ok) sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
  return ok;
}

bool CreateParentDirectories(const std::string& file) {
  for (std::size_t slash = file.find('/', 1); slash != std::string::npos; slash = file.find('/', slash + 1)) {
    const std::string directory = file.substr(0, slash);
    if (mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) return false;
  }
  return true;
}

// The store of the file at `absolute`. The path counts beside the file's
// identity: a connection at rest is closed, and then nothing keeps the
// number of a removed store file from going to a new file elsewhere.
Store* FindStore(const std::string& absolute, dev_t device, ino_t inode) {
  for (const std::unique_ptr<Store>& store : Stores()) {
    if (store->device == device && store->inode == inode && store->file == absolute) return store.get();
  }
  return nullptr;
}

// The file's absolute path with every link resolved; empty when it has none.
std::string AbsolutePath(const std::string& file) {
  char* absolute = realpath(file.c_str(), nullptr);
  if (absolute == nullptr) return std::string();
  std::string path(absolute);
  std::free(absolute);
  return path;
}

// Sets the journal of a writable connection: a write-ahead log, synced at
// checkpoints.
bool UseWriteAheadLog(sqlite3* db) {
  sqlite3_stmt* journal = nullptr;
  const bool wal = sqlite3_prepare_v2(db, "PRAGMA journal_mode = WAL", -1, &journal, nullptr) == SQLITE_OK &&
                   sqlite3_step(journal) == SQLITE_ROW &&
                   sqlite3_strnicmp(reinterpret_cast<const char*>(sqlite3_column_text(journal, 0)), "wal", 3) == 0;
  sqlite3_finalize(journal);
  return wal && sqlite3_exec(db, "PRAGMA synchronous = NORMAL", nullptr, nullptr, nullptr) == SQLITE_OK;
}

// Makes a new store at `file` whole under a name of its own and then links
// it in under its real name, which never replaces: another process opening
// the store meanwhile finds no file or a whole store, never an empty
// database whose tables a moment later appear behind the schema it has
// already read. Another process's store linked in first is kept. False when
// this cannot be done (a file system without hard links, say), and the
// store is then made in place.
bool MakeWholeStoreFile(const std::string& file) {
  static std::atomic<unsigned> drafts{0};
  const std::string draft = file + ".new-" + std::to_string(getpid()) + "-" + std::to_string(++drafts);
  // A draft of this name can only be left by a dead process whose id this
  // one now has: it is made anew, without that one's log.
  for (const char* part : {"", "-wal", "-shm"}) unlink((draft + part).c_str());
  sqlite3* db = nullptr;
  bool made = sqlite3_open_v2(draft.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOFOLLOW,
                              nullptr) == SQLITE_OK &&
              UseWriteAheadLog(db) && PrepareSchema(db, true);
  // The last connection's close moves the log into the file and removes it.
  made = sqlite3_close(db) == SQLITE_OK && made;
  made = made && (link(draft.c_str(), file.c_str()) == 0 || errno == EEXIST);
  unlink(draft.c_str());
  return made;
}

// Opens the database at `file` as a settings store. With a device and inode
// given, the file must still be that one: a child opening its parent's
// store again must not take up another database put in its place.
std::unique_ptr<Connection> OpenConnection(const std::string& file, dev_t device, ino_t inode) {
  struct stat status;
  bool exists = stat(file.c_str(), &status) == 0;
  if (inode != 0 && (!exists || status.st_dev != device || status.st_ino != inode)) return nullptr;
  if (!exists) {
    if (!CreateParentDirectories(file)) return nullptr;
    exists = MakeWholeStoreFile(file) && stat(file.c_str(), &status) == 0;
  }
  // Without write permission the store is read-only for every user, root
  // included, as the library treats read-only files everywhere; a store this
  // user may not write (another user's) is opened for reading too.
  const bool writable =
      !exists || ((status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) != 0 && access(file.c_str(), W_OK) == 0);

  std::unique_ptr<Connection> connection(new Connection);
  const int flags =
      (writable ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY) | SQLITE_OPEN_NOFOLLOW;
  sqlite3*& db = connection->db;
  if (sqlite3_open_v2(file.c_str(), &db, flags, nullptr) != SQLITE_OK) return nullptr;
  sqlite3_extended_result_codes(db, 1);
  sqlite3_busy_timeout(db, kBusyTimeoutMs);
  if (sqlite3_exec(db, "PRAGMA foreign_keys = ON", nullptr, nullptr, nullptr) != SQLITE_OK) return nullptr;
  if (writable && !UseWriteAheadLog(db)) return nullptr;
  if (!PrepareSchema(db, writable)) return nullptr;
  return connection;
}

// The record of a store file opened now: where it is, which file it is, and
// this process's connection to it.
std::unique_ptr<Store> OpenStoreFile(const std::string& file) {
  std::unique_ptr<Connection> connection = OpenConnection(file, 0, 0);
  if (connection == nullptr) return nullptr;
  std::unique_ptr<Store> store(new Store);
  store->file = AbsolutePath(file);
  struct stat status;
  if (store->file.empty() || stat(store->file.c_str(), &status) != 0) return nullptr;
  store->device = status.st_dev;
  store->inode = status.st_ino;
  store->connection.Adopt(std::move(connection));
  return store;
}

}  // namespace
}  // namespace posix

// The back-end's operations, with the contracts of the seam functions of the
// same names.
namespace sqlite {

SettingsKey* OpenSettingsStore(const char16_t* path) {
  using namespace posix;
  try {
    const std::string file = NativePath(path);
    if (file.empty()) return nullptr;
    const std::string absolute = AbsolutePath(file);
    struct stat status;
    if (!absolute.empty() && stat(absolute.c_str(), &status) == 0) {
      if (Store* known = FindStore(absolute, status.st_dev, status.st_ino)) return known->top;
    }
    static const bool closingBeforeForks = (CallBeforeEachFork(CloseConnectionsAtRest), true);
    (void)closingBeforeForks;
    std::unique_ptr<Store> store = OpenStoreFile(file);
    if (store == nullptr) return nullptr;
    if (Store* known = FindStore(store->file, store->device, store->inode)) return known->top;
    store->top = NewKey(store.get(), kTopKeyId,
                        kSettingsQuery | kSettingsSet | kSettingsCreateSubkey | kSettingsEnumerate, std::u16string());
    if (store->top == nullptr) return nullptr;
    Stores().push_back(std::move(store));
    return Stores().back()->top;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void CloseAllSettingsStores() {
  using namespace posix;
  for (const SettingsKey* key : LiveKeys()) delete key;
  LiveKeys().clear();
  // Each store closes this process's connection and lets go of a parent's.
  Stores().clear();
}

SettingsResult OpenSettingsKey(SettingsKey* parent, const std::u16string& path, unsigned access, bool create,
                               SettingsKey** key) {
  using namespace posix;
  *key = nullptr;
  Connection* connection = Connect(parent);
  if (connection == nullptr) return SettingsResult::Failed;
  try {
    std::vector<std::u16string> parts;
    if (!SplitKeyPath(path, &parts)) return SettingsResult::NotFound;
    sqlite3_int64 id = 0;
    // Opening trusts the ids found before; creating asks the database, which
    // makes what is missing.
    const SettingsResult result = OnFreshKey(connection, parent, [&] {
      Transaction change(connection, create);
      if (!change.Begun()) return SettingsResult::Failed;
      const SettingsResult resolved = ResolvePath(connection, parent->id, parts, create, !create, &id);
      if (resolved != SettingsResult::Ok) return resolved;
      return change.Commit() ? SettingsResult::Ok : SettingsResult::Failed;
    });
    if (result != SettingsResult::Ok) return result;
    *key = NewKey(StoreOf(parent), id, access, JoinSettingsKeyPath(parent->path, path));
    return *key != nullptr ? SettingsResult::Ok : SettingsResult::Failed;
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

bool CloseSettingsKey(SettingsKey* key) {
  using namespace posix;
  if (!IsLive(key)) return false;
  if (key == StoreOf(key)->top) return true;
  LiveKeys().erase(key);
  delete key;
  return true;
}

SettingsResult QuerySettingsEntry(SettingsKey* key, const std::u16string& name, unsigned* type,
                                  std::vector<unsigned char>* data) {
  using namespace posix;
  Connection* connection = Connect(key);
  if (connection == nullptr) return SettingsResult::Failed;
  if ((key->access & kSettingsQuery) == 0) return SettingsResult::Denied;
  try {
    const std::string fold = FoldBytes(name);
    return OnFreshKey(connection, key, [&] {
      Use query(connection, kQueryEntry);
      if (!query) return SettingsResult::Failed;
      sqlite3_bind_int64(query.get(), 1, key->id);
      BindBytes(query.get(), 2, fold);
      const int rc = sqlite3_step(query.get());
      if (rc == SQLITE_DONE) return SettingsResult::NotFound;
      if (rc != SQLITE_ROW) return SettingsResult::Failed;
      *type = static_cast<unsigned>(sqlite3_column_int64(query.get(), 0));
      const unsigned char* bytes = static_cast<const unsigned char*>(sqlite3_column_blob(query.get(), 1));
      const int size = sqlite3_column_bytes(query.get(), 1);
      data->assign(bytes, bytes + (bytes != nullptr ? size : 0));
      return SettingsResult::Ok;
    });
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

SettingsResult SetSettingsEntry(SettingsKey* key, const std::u16string& name, unsigned type, const unsigned char* data,
                                std::size_t size) {
  using namespace posix;
  static const unsigned char kNoData = 0;
  Connection* connection = Connect(key);
  if (connection == nullptr) return SettingsResult::Failed;
  if ((key->access & kSettingsSet) == 0) return SettingsResult::Denied;
  try {
    const std::string bytes = NameBytes(name), fold = FoldBytes(name);
    return OnFreshKey(connection, key, [&] {
      Use upsert(connection, kUpsertEntry);
      if (!upsert) return SettingsResult::Failed;
      sqlite3_bind_int64(upsert.get(), 1, key->id);
      BindBytes(upsert.get(), 2, bytes);
      BindBytes(upsert.get(), 3, fold);
      sqlite3_bind_int64(upsert.get(), 4, type);
      sqlite3_bind_blob(upsert.get(), 5, size != 0 ? data : &kNoData, static_cast<int>(size), SQLITE_STATIC);
      return StepToEnd(upsert.get());
    });
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

SettingsResult DeleteSettingsEntry(SettingsKey* key, const std::u16string& name) {
  using namespace posix;
  Connection* connection = Connect(key);
  if (connection == nullptr) return SettingsResult::Failed;
  if ((key->access & kSettingsSet) == 0) return SettingsResult::Denied;
  try {
    const std::string fold = FoldBytes(name);
    return OnFreshKey(connection, key, [&] {
      Use erase(connection, kDeleteEntry);
      if (!erase) return SettingsResult::Failed;
      sqlite3_bind_int64(erase.get(), 1, key->id);
      BindBytes(erase.get(), 2, fold);
      const SettingsResult result = StepToEnd(erase.get());
      if (result != SettingsResult::Ok) return result;
      return sqlite3_changes(connection->db) > 0 ? SettingsResult::Ok : SettingsResult::NotFound;
    });
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

namespace {

// Deletes the key `id` (its entries and, by cascade, its subkeys go with it).
SettingsResult DeleteKeyRow(posix::Connection* connection, sqlite3_int64 id) {
  posix::Use erase(connection, posix::kDeleteKey);
  if (!erase) return SettingsResult::Failed;
  sqlite3_bind_int64(erase.get(), 1, id);
  return posix::StepToEnd(erase.get());
}

}  // namespace

SettingsResult DeleteSettingsSubkey(SettingsKey* key, const std::u16string& name) {
  using namespace posix;
  Connection* connection = Connect(key);
  if (connection == nullptr) return SettingsResult::Failed;
  try {
    std::vector<std::u16string> parts;
    if (!SplitKeyPath(name, &parts) || parts.empty()) return SettingsResult::NotFound;
    return OnFreshKey(connection, key, [&] {
      Transaction change(connection);
      if (!change.Begun()) return SettingsResult::Failed;
      sqlite3_int64 id = 0;
      SettingsResult result = ResolvePath(connection, key->id, parts, false, false, &id);
      if (result != SettingsResult::Ok) return result;
      {
        Use children(connection, kHasChildren);
        if (!children) return SettingsResult::Failed;
        sqlite3_bind_int64(children.get(), 1, id);
        const int rc = sqlite3_step(children.get());
        if (rc == SQLITE_ROW) return SettingsResult::Denied;
        if (rc != SQLITE_DONE) return SettingsResult::Failed;
      }
      result = DeleteKeyRow(connection, id);
      if (result != SettingsResult::Ok) return result;
      connection->children.Clear();
      return change.Commit() ? SettingsResult::Ok : SettingsResult::Failed;
    });
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

SettingsResult DeleteSettingsTree(SettingsKey* key, const std::u16string& path) {
  using namespace posix;
  Connection* connection = Connect(key);
  if (connection == nullptr) return SettingsResult::Failed;
  try {
    std::vector<std::u16string> parts;
    if (!SplitKeyPath(path, &parts) || parts.empty()) return SettingsResult::NotFound;
    Refresh(connection, key);
    if (!KeyExists(connection, key->id)) return SettingsResult::NotFound;
    Transaction change(connection);
    if (!change.Begun()) return SettingsResult::Failed;
    sqlite3_int64 id = 0;
    SettingsResult result = ResolvePath(connection, key->id, parts, false, false, &id);
    if (result == SettingsResult::NotFound) return SettingsResult::Ok;
    if (result == SettingsResult::Ok) result = DeleteKeyRow(connection, id);
    if (result != SettingsResult::Ok) return result;
    connection->children.Clear();
    return change.Commit() ? SettingsResult::Ok : SettingsResult::Failed;
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

SettingsResult ListSettingsSubkeys(SettingsKey* key, std::vector<std::u16string>* names) {
  using namespace posix;
  Connection* connection = Connect(key);
  if (connection == nullptr) return SettingsResult::Failed;
  if ((key->access & kSettingsEnumerate) == 0) return SettingsResult::Denied;
  try {
    return OnFreshKey(connection, key, [&] { return ListNames(connection, key, kListSubkeys, names); });
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

SettingsResult ListSettingsEntries(SettingsKey* key, std::vector<std::u16string>* names) {
  using namespace posix;
  Connection* connection = Connect(key);
  if (connection == nullptr) return SettingsResult::Failed;
  if ((key->access & kSettingsQuery) == 0) return SettingsResult::Denied;
  try {
    return OnFreshKey(connection, key, [&] { return ListNames(connection, key, kListEntries, names); });
  } catch (const std::bad_alloc&) {
    return SettingsResult::Failed;
  }
}

bool BeginSettingsBatch(SettingsKey* key) {
  posix::Connection* connection = posix::Connect(key);
  return connection != nullptr && sqlite3_get_autocommit(connection->db) != 0 &&
         sqlite3_exec(connection->db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool CommitSettingsBatch(SettingsKey* key) {
  posix::Connection* connection = posix::Connect(key);
  if (connection == nullptr) return false;
  if (sqlite3_exec(connection->db, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK) return true;
  AbandonSettingsBatch(key);
  return false;
}

void AbandonSettingsBatch(SettingsKey* key) {
  posix::Connection* connection = posix::Connect(key);
  if (connection != nullptr && sqlite3_get_autocommit(connection->db) == 0) {
    sqlite3_exec(connection->db, "ROLLBACK", nullptr, nullptr, nullptr);
    connection->children.Clear();
  }
}

std::u16string SettingsKeyPath(const SettingsKey* key) {
  using namespace posix;
  std::u16string path;
  Connection* connection = Connect(key);
  if (connection == nullptr) return path;
  try {
    sqlite3_int64 id = key->id;
    while (id != kTopKeyId) {
      Use parent(connection, kKeyParent);
      if (!parent) break;
      sqlite3_bind_int64(parent.get(), 1, id);
      if (sqlite3_step(parent.get()) != SQLITE_ROW) break;
      const std::u16string name = NameFromColumn(parent.get(), 1);
      path = path.empty() ? name : name + u'\\' + path;
      id = sqlite3_column_int64(parent.get(), 0);
    }
  } catch (const std::bad_alloc&) {
    path.clear();
  }
  return path;
}

bool SameSettingsStore(const SettingsKey* a, const SettingsKey* b) {
  return posix::IsLive(a) && posix::IsLive(b) && a->store == b->store;
}

bool OwnsKey(const SettingsKey* key) { return posix::IsLive(key); }

}  // namespace sqlite

const SettingsBackend& LocalSettingsBackend() {
  static const SettingsBackend backend = {
      sqlite::OpenSettingsStore,  sqlite::CloseAllSettingsStores, sqlite::OwnsKey,
      sqlite::OpenSettingsKey,    sqlite::CloseSettingsKey,       sqlite::QuerySettingsEntry,
      sqlite::SetSettingsEntry,   sqlite::DeleteSettingsEntry,    sqlite::DeleteSettingsSubkey,
      sqlite::DeleteSettingsTree, sqlite::ListSettingsSubkeys,    sqlite::ListSettingsEntries,
      sqlite::BeginSettingsBatch, sqlite::CommitSettingsBatch,    sqlite::AbandonSettingsBatch,
      sqlite::SettingsKeyPath,    sqlite::SameSettingsStore,
  };
  return backend;
}

std::u16string UserSettingsStorePath() {
  const char* config = std::getenv("XDG_CONFIG_HOME");
  std::string base;
  if (config != nullptr && config[0] == '/') {
    base = config;
  } else {
    const char* home = std::getenv("HOME");
    if (home == nullptr || home[0] == '\0') return std::u16string();
    base = std::string(home) + "/.config";
  }
  return posix::LibraryPath(base + "/qorc/settings.sqlite");
}

std::u16string MachineSettingsStorePath() { return posix::LibraryPath("/var/lib/qorc/settings.sqlite"); }

// Without a system registry the host wires both roots.
SettingsKey* SystemUserSettingsKey() { return nullptr; }
SettingsKey* SystemMachineSettingsKey() { return nullptr; }

}  // namespace qorc::platform
