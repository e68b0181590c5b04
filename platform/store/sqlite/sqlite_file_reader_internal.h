// Reading a file that may be damaged without changing it: a read-only
// connection that reads the write-ahead log but never writes it back, what
// is wrong with one stored row, and every row of a table that can still be
// read, also past damaged pages.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/store/store_schema_internal.h"

namespace platform::store::sqlite {

class ReadOnlyFile {
 public:
  ReadOnlyFile() = default;
  ReadOnlyFile(const ReadOnlyFile &) = delete;
  ReadOnlyFile &operator=(const ReadOnlyFile &) = delete;
  ~ReadOnlyFile();

  // QDB_OK, or why SQLite would not open the file.
  std::uint32_t open(const std::string &path);
  sqlite3 *db() const { return db_; }
  // The store format the file records; 0 when it cannot be read.
  int format() const { return format_; }
  // Whether SQLite reads the file's schema as it stands; this connection
  // reads past an entry it cannot parse, as a store's own open does not.
  bool schemaReadable(std::string *why) const;

  // For a file found sound: closes, and removes the empty log and shared
  // memory that reading made beside it, the way SQLite's last connection
  // does, so that a check leaves nothing behind. Beside a damaged file they
  // stay, as the store's own connections leave them.
  void closeSound();

 private:
  std::string path_;
  bool hadCompanions_ = false;
  sqlite3 *db_ = nullptr;
  int format_ = 0;
};

// The row statements below give columns: seq, record, then the key columns
// in the order of the table's keys.
std::string rowSelect(const TableDef &def);

// What one stored row holds and what is wrong with it.
struct RowVerdict {
  bool imageWhole = false;  // the record decoded, checksum and all
  bool legacyForm = false;  // stored without a checksum (an older format)
  bool hasObjectId = false;
  _GUID objectId{};
  std::vector<std::string> problems;
};

// Judges the row `row` is on; the decoded image goes to `image`, which has
// room for the table's record.
void judgeRow(const TableDef &def, bool allowLegacy, sqlite3_stmt *row, unsigned char *image,
              RowVerdict *verdict);

// A row a key index lists that the table would not give.
struct LostRow {
  std::int64_t seq = 0;
  bool hasObjectId = false;
  _GUID objectId{};
  std::string why;
};

// Visits every row of the table that can be read, each once, with the
// statement on it. A scan that breaks off goes on after the damaged pages;
// the rows the key indexes list that no scan reached are read one by one,
// and those that stay unreadable go to `lost`. Texts about broken scans go
// to `breaks`. An error result only when the table cannot be read at all.
std::uint32_t readRows(sqlite3 *db, const TableDef &def,
                       const std::function<void(sqlite3_stmt *row)> &visit,
                       std::vector<LostRow> *lost, std::vector<std::string> *breaks);

// The number of rows of a table, or 0 when it cannot be counted.
std::uint64_t countRows(sqlite3 *db, const std::string &table);

}  // namespace platform::store::sqlite
