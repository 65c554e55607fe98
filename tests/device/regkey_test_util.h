// Helpers of the settings-store tests: a store read directly through SQLite,
// and short forms of the key operations the tests repeat.
#ifndef QORC_TESTS_DEVICE_REGKEY_TEST_UTIL_H
#define QORC_TESTS_DEVICE_REGKEY_TEST_UTIL_H

#include <sqlite3.h>

#include <initializer_list>
#include <utility>
#include <vector>

#include "file/file_test_util.h"
#include "support/child_process.h"

using NameList = std::vector<std::u16string>;

// The first value of a query on a store, read directly through SQLite, as bytes; "" when absent.
inline std::string Sql(const std::string& database, const std::string& query) {
  sqlite3* db = nullptr;
  std::string out;
  if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_busy_timeout(db, 10000);
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, query.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
      const char* bytes = static_cast<const char*>(sqlite3_column_blob(statement, 0));
      out.assign(bytes != nullptr ? bytes : "", static_cast<std::size_t>(sqlite3_column_bytes(statement, 0)));
    }
    sqlite3_finalize(statement);
  }
  sqlite3_close(db);
  return out;
}

inline bool ErrorIsInternal() { return TakeError() == &CerrInternalError; }

// The names of the entries (or subkeys) of an opened key, in the order the key gives them.
inline NameList Names(C_REGKEY& key, bool subkeys = false) {
  int count = 0;
  C_STRING* names = nullptr;
  subkeys ? key.GetSubkeys(&count, &names) : key.GetEntries(&count, &names);
  NameList out;
  for (int i = 0; i < count; ++i) out.push_back(Text(names[i]));
  delete[] names;
  return out;
}

// Selects `entry` and reads its first value.
template <class T>
T ReadEntry(C_REGKEY& key, const C_STRING& entry) {
  T value{};
  key.SetEntry(entry);
  key.Read(&value);
  return value;
}

// Selects `entry` and writes one field to it.
template <class T>
void Put(C_REGKEY& key, const C_STRING& entry, const T& value) {
  key.SetEntry(entry);
  key.Write(value);
}

inline void PutTexts(C_REGKEY& key, std::initializer_list<std::pair<C_STRING, C_STRING>> entries) {
  for (const auto& [name, text] : entries) {
    key.SetEntry(name);
    key.WriteReadableString(text);
  }
}

// The entry "Fields" of 13 bytes: 5, "ab" and true.
inline void WriteFields(C_REGKEY& key) {
  key.SetEntry(u"Fields");
  key.Write(5);
  key.Write(C_STRING(u"ab"));
  key.Write(C_BOOL(true));
}

#endif
