// The settings suites run against every kind of store: a SQLite store file,
// and a store in a PostgreSQL database of the tests' own server. Each test
// gets a new store; what was stored is read back by the store's own engine
// (SQLite directly, libpq), never only through the library.
#ifndef QORC_TESTS_DEVICE_SETTINGS_STORE_FIXTURE_H
#define QORC_TESTS_DEVICE_SETTINGS_STORE_FIXTURE_H

#include <string>

#include "device/regkey_test_util.h"
#include "support/postgres_server.h"

enum class StoreKind { Sqlite, Postgres };

inline std::string StoreKindName(const testing::TestParamInfo<StoreKind>& info) {
  return info.param == StoreKind::Sqlite ? "Sqlite" : "Postgres";
}

// Names are stored as UTF-16 LE; this gives their bytes in hexadecimal.
inline std::string Utf16Hex(const std::u16string& text) {
  std::string hex;
  for (char16_t c : text) {
    for (int shift : {4, 0, 12, 8}) hex += "0123456789abcdef"[(c >> shift) & 15];
  }
  return hex;
}

inline std::string FromHex(const std::string& hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  return bytes;
}

// One store of either kind, and raw access to what it holds.
class StoreUnderTest {
 public:
  // Empty when the store can be had; else why not, with *absent telling
  // whether the PostgreSQL binaries are missing (the test then skips; any
  // other reason fails it).
  std::string Make(StoreKind kind, const TempDir& dir, const std::string& file, bool* absent) {
    kind_ = kind;
    *absent = false;
    if (kind == StoreKind::Sqlite) {
      name_ = dir.File(file);
      return std::string();
    }
    std::string why;
    server_ = PostgresServer::Shared(&why, absent);
    if (server_ != nullptr) name_ = server_->NewStoreUri();
    return why;
  }

  const std::string& name() const { return name_; }
  PostgresServer* server() const { return server_; }
  C_REGKEY::HANDLE Open() const { return C_REGKEY::OpenStore(LibraryPath(name_)); }

  // The stored bytes of an entry of a key named `key` (at any level); "" when absent.
  std::string StoredData(const std::u16string& key, const std::u16string& entry) const {
    if (kind_ == StoreKind::Sqlite) {
      return Sql(name_, "SELECT e.data FROM entries e JOIN keys k ON k.id = e.key WHERE k.name = x'" + Utf16Hex(key) +
                            "' AND e.name = x'" + Utf16Hex(entry) + "'");
    }
    return FromHex(server_->Query(name_,
                                  "SELECT encode(e.data, 'hex') FROM qorc_settings.entries e JOIN "
                                  "qorc_settings.keys k ON k.id = e.key WHERE k.name = '\\x" +
                                      Utf16Hex(key) + "'::bytea AND e.name = '\\x" + Utf16Hex(entry) + "'::bytea"));
  }

  std::string CountKeysNamed(const std::u16string& key) const {
    if (kind_ == StoreKind::Sqlite)
      return Sql(name_, "SELECT count(*) FROM keys WHERE name = x'" + Utf16Hex(key) + "'");
    return server_->Query(name_,
                          "SELECT count(*) FROM qorc_settings.keys WHERE name = '\\x" + Utf16Hex(key) + "'::bytea");
  }

  // Every entry, by key name, entry name, type and data, in hexadecimal, sorted, one per line.
  std::string AllEntries() const {
    if (kind_ == StoreKind::Sqlite) {
      return Sql(name_,
                 "SELECT group_concat(row || char(10), '') FROM (SELECT hex(k.name) || '|' || hex(e.name) || '|' || "
                 "e.type || '|' || hex(e.data) AS row FROM entries e JOIN keys k ON k.id = e.key ORDER BY row)");
    }
    return server_->Query(
        name_,
        "SELECT string_agg(row || chr(10), '' ORDER BY row) FROM (SELECT upper(encode(k.name, 'hex')) "
        "|| '|' || upper(encode(e.name, 'hex')) || '|' || e.type || '|' || upper(encode(e.data, "
        "'hex')) AS row FROM qorc_settings.entries e JOIN qorc_settings.keys k ON k.id = e.key) r");
  }

  // "ok" when the store's structure holds: no entry or key without its key or parent.
  std::string Consistency() const {
    if (kind_ == StoreKind::Sqlite) {
      const std::string integrity = Sql(name_, "PRAGMA integrity_check");
      return integrity == "ok" && Sql(name_, "PRAGMA foreign_key_check").empty() ? "ok" : integrity;
    }
    return server_->Query(
        name_,
        "SELECT CASE WHEN NOT EXISTS (SELECT 1 FROM qorc_settings.entries e WHERE NOT EXISTS (SELECT 1 FROM "
        "qorc_settings.keys k WHERE k.id = e.key)) AND NOT EXISTS (SELECT 1 FROM qorc_settings.keys c WHERE c.parent "
        "IS NOT NULL AND NOT EXISTS (SELECT 1 FROM qorc_settings.keys p WHERE p.id = c.parent)) THEN 'ok' ELSE "
        "'orphans' END");
  }

 private:
  StoreKind kind_ = StoreKind::Sqlite;
  std::string name_;
  PostgresServer* server_ = nullptr;
};

// Makes the store of a test, skipping only where the PostgreSQL binaries are absent.
#define MAKE_STORE_OR_SKIP(store, kind, dir, file)                        \
  do {                                                                    \
    bool absent = false;                                                  \
    const std::string why = (store).Make((kind), (dir), (file), &absent); \
    if (absent) GTEST_SKIP() << why;                                      \
    ASSERT_TRUE(why.empty()) << why;                                      \
  } while (false)

#endif
