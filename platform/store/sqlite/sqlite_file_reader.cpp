#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <map>
#include <optional>
#include <set>

#include "platform/store/record_codec_internal.h"
#include "platform/store/sqlite/sqlite_file_reader_internal.h"
#include "platform/store/sqlite/sqlite_support_internal.h"

namespace platform::store::sqlite {

namespace {

constexpr std::int64_t kNoSeq = std::numeric_limits<std::int64_t>::min();

std::int64_t plus(std::int64_t at, std::int64_t gap) {
  return at > std::numeric_limits<std::int64_t>::max() - gap
             ? std::numeric_limits<std::int64_t>::max()
             : at + gap;
}

bool objectIdOfColumn(sqlite3_stmt *s, int column, _GUID *id) {
  if (sqlite3_column_type(s, column) != SQLITE_BLOB ||
      sqlite3_column_bytes(s, column) != static_cast<int>(sizeof *id)) {
    return false;
  }
  std::memcpy(id, sqlite3_column_blob(s, column), sizeof *id);
  return true;
}

// The place of the object-ID key among the table's keys, if it has one.
std::optional<std::size_t> objectIdKey(const TableDef &def) {
  for (std::size_t i = 0; i < def.keys.size(); ++i) {
    const KeyDef &k = def.keys[i];
    if (k.keyNumber == def.idKey && def.fields[k.field].size == sizeof(_GUID)) return i;
  }
  return std::nullopt;
}

// What the key indexes list: every row's seq, and its object ID where the
// object-ID index gives it.
struct IndexListing {
  std::map<std::int64_t, std::optional<_GUID>> rows;
  std::int64_t highest = kNoSeq;
};

void listIndexes(sqlite3 *db, const TableDef &def, IndexListing *listing,
                 std::vector<std::string> *breaks) {
  std::optional<std::size_t> idKey = objectIdKey(def);
  for (std::size_t i = 0; i < def.keys.size(); ++i) {
    const KeyDef &k = def.keys[i];
    std::string index = keyIndexName(def.name, k.keyNumber);
    Statement s;
    // A missing index is reported by the structure check.
    if (s.prepare(db, "SELECT seq, " + keyColumn(k.keyNumber) + " FROM " + quoted(def.name) +
                          " INDEXED BY " + quoted(index)) != SQLITE_OK) {
      continue;
    }
    Use q(s);
    int rc;
    while ((rc = sqlite3_step(*q)) == SQLITE_ROW) {
      std::int64_t seq = sqlite3_column_int64(*q, 0);
      auto &entry = listing->rows[seq];
      _GUID id;
      if (idKey == i && objectIdOfColumn(*q, 1, &id)) entry = id;
      listing->highest = std::max(listing->highest, seq);
    }
    if (rc != SQLITE_DONE) {
      breaks->push_back("index " + index + " cannot be read whole: " + sqlite3_errmsg(db));
    }
  }
}

enum class Probe { Row, End, Error };

// Where the rows at or after `at` start, reading only the table's row keys.
Probe probe(Statement &s, std::int64_t at, std::int64_t *seq) {
  Use q(s);
  sqlite3_bind_int64(*q, 1, at);
  int rc = sqlite3_step(*q);
  if (rc == SQLITE_ROW) {
    *seq = sqlite3_column_int64(*q, 0);
    return Probe::Row;
  }
  return rc == SQLITE_DONE ? Probe::End : Probe::Error;
}

// The first row after `last` that a seek reaches past damaged pages: seeks
// ever further until one succeeds, then narrows back to the damage's end.
std::optional<std::int64_t> resumeAfter(Statement &s, std::int64_t last, std::int64_t highest) {
  std::int64_t seq = 0;
  std::int64_t failed = last;
  std::int64_t good = kNoSeq;
  // Rows may lie past the highest number anything lists: look a little further.
  std::int64_t bound = std::max(highest, plus(last, std::int64_t{1} << 20));
  for (std::int64_t gap = 1;;
       gap = gap > std::numeric_limits<std::int64_t>::max() / 2 ? gap : gap * 2) {
    std::int64_t at = plus(last, gap);
    Probe p = probe(s, at, &seq);
    if (p != Probe::Error) {
      good = at;
      break;
    }
    failed = at;
    if (at >= bound || at == std::numeric_limits<std::int64_t>::max()) return std::nullopt;
  }
  while (good - failed > 1) {
    std::int64_t middle = failed + (good - failed) / 2;
    if (probe(s, middle, &seq) == Probe::Error) {
      failed = middle;
    } else {
      good = middle;
    }
  }
  return probe(s, good, &seq) == Probe::Row ? std::optional<std::int64_t>(seq) : std::nullopt;
}

}  // namespace

ReadOnlyFile::~ReadOnlyFile() { sqlite3_close_v2(db_); }

std::uint32_t ReadOnlyFile::open(const std::string &path) {
  path_ = path;
  struct stat st;
  hadCompanions_ = false;
  for (const char *suffix : {"-wal", "-shm", "-journal"}) {
    hadCompanions_ = hadCompanions_ || ::stat((path + suffix).c_str(), &st) == 0;
  }
  int rc = sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    sqlite3_close_v2(db_);
    db_ = nullptr;
    return rc == SQLITE_CANTOPEN ? QDB_E_IO : resultOf(rc);
  }
  // Belt and braces beside the read-only open: the log stays where it is.
  sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  sqlite3_extended_result_codes(db_, 1);
  sqlite3_busy_timeout(db_, kBusyTimeoutMs);
  // Damaged cells are told as damage before SQLite follows them; a file cut
  // short is read as far as it goes instead of refused as a whole.
  execute(db_, "PRAGMA query_only=1; PRAGMA cell_size_check=1; PRAGMA writable_schema=1");
  std::int64_t format = 0;
  if (queryNumber(db_, "PRAGMA user_version", &format)) {
    format_ = static_cast<int>(format);
  } else if ((sqlite3_extended_errcode(db_) & 0xFF) == SQLITE_CANTOPEN) {
    // SQLite opens lazily: a file it cannot open (no room or no right to
    // make its shared memory) is unreadable, which says nothing of damage.
    sqlite3_close_v2(db_);
    db_ = nullptr;
    return QDB_E_IO;
  }
  return QDB_OK;
}

bool ReadOnlyFile::schemaReadable(std::string *why) const {
  sqlite3 *db = nullptr;
  bool readable = false;
  if (sqlite3_open_v2(path_.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) ==
      SQLITE_OK) {
    sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_busy_timeout(db, kBusyTimeoutMs);
    readable = execute(db, "SELECT count(*) FROM sqlite_master") == SQLITE_OK;
  }
  if (!readable) *why = db ? sqlite3_errmsg(db) : "out of memory";
  sqlite3_close_v2(db);
  return readable;
}

void ReadOnlyFile::closeSound() {
  sqlite3_close_v2(db_);
  db_ = nullptr;
  struct stat st;
  if (hadCompanions_ || ::stat((path_ + "-wal").c_str(), &st) != 0 || st.st_size != 0) return;
  // With an empty log, the last connection's close writes nothing into the
  // file; it only removes the log and the shared memory.
  sqlite3 *db = nullptr;
  if (sqlite3_open_v2(path_.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) ==
      SQLITE_OK) {
    sqlite3_busy_timeout(db, kBusyTimeoutMs);
    execute(db, "SELECT count(*) FROM sqlite_master");
  }
  sqlite3_close_v2(db);
}

std::string rowSelect(const TableDef &def) {
  std::string sql = "SELECT seq, record";
  for (const KeyDef &k : def.keys) sql += ", " + keyColumn(k.keyNumber);
  return sql + " FROM " + quoted(def.name);
}

void judgeRow(const TableDef &def, bool allowLegacy, sqlite3_stmt *row, unsigned char *image,
              RowVerdict *verdict) {
  *verdict = RowVerdict{};
  if (sqlite3_column_type(row, 1) != SQLITE_BLOB) {
    verdict->problems.push_back("the stored record is not a record image");
  } else {
    const void *stored = sqlite3_column_blob(row, 1);
    auto size = static_cast<std::size_t>(sqlite3_column_bytes(row, 1));
    StoredForm form = inspectRecord(stored, size);
    if (form == StoredForm::Damaged) {
      verdict->problems.push_back("the record fails its checksum");
    } else if (form == StoredForm::Legacy && !allowLegacy) {
      verdict->problems.push_back(
          "the record carries no checksum, which its store format requires");
    } else if (!decodeRecord(stored, size, def.recordSize, image, allowLegacy)) {
      verdict->problems.push_back("the record does not decode to the table's " +
                                  std::to_string(def.recordSize) + " bytes");
    } else {
      verdict->imageWhole = true;
      verdict->legacyForm = form == StoredForm::Legacy;
    }
  }
  std::optional<std::size_t> idKey = objectIdKey(def);
  if (verdict->imageWhole) {
    if (idKey) {
      std::memcpy(&verdict->objectId, image + def.fields[def.keys[*idKey].field].offset,
                  sizeof verdict->objectId);
      verdict->hasObjectId = true;
    }
    for (std::size_t i = 0; i < def.keys.size(); ++i) {
      const KeyDef &k = def.keys[i];
      if (!columnHoldsKey(row, static_cast<int>(i) + 2, keyOfRecord(def, k, image))) {
        verdict->problems.push_back("key column " + keyColumn(k.keyNumber) +
                                    " disagrees with the record's field " +
                                    def.fields[k.field].name);
      }
    }
  } else if (idKey) {
    verdict->hasObjectId = objectIdOfColumn(row, static_cast<int>(*idKey) + 2, &verdict->objectId);
  }
}

std::uint32_t readRows(sqlite3 *db, const TableDef &def,
                       const std::function<void(sqlite3_stmt *row)> &visit,
                       std::vector<LostRow> *lost, std::vector<std::string> *breaks) {
  std::string select = rowSelect(def);
  Statement scan, seek, one;
  int rc = scan.prepare(db, select + " WHERE seq>=? ORDER BY seq");
  if (rc == SQLITE_OK) {
    rc = seek.prepare(db,
                      "SELECT seq FROM " + quoted(def.name) + " WHERE seq>=? ORDER BY seq LIMIT 1");
  }
  if (rc == SQLITE_OK) rc = one.prepare(db, select + " WHERE seq=?");
  if (rc != SQLITE_OK) return resultOf(rc) == QDB_OK ? QDB_E_DAMAGED : resultOf(rc);

  IndexListing listing;
  listIndexes(db, def, &listing, breaks);
  std::int64_t highest = listing.highest;
  {
    std::int64_t sequence = 0;
    Statement s;
    if (s.prepare(db, "SELECT seq FROM sqlite_sequence WHERE name=?") == SQLITE_OK) {
      Use q(s);
      bindText(*q, 1, def.name);
      if (sqlite3_step(*q) == SQLITE_ROW) sequence = sqlite3_column_int64(*q, 0);
    }
    highest = std::max(highest, sequence);
  }
  auto objectIdOf = [&](std::int64_t seq, LostRow *row) {
    auto it = listing.rows.find(seq);
    if (it != listing.rows.end() && it->second) {
      row->hasObjectId = true;
      row->objectId = *it->second;
    }
  };

  std::set<std::int64_t> seen, unreadable;
  std::int64_t from = kNoSeq;
  bool fromIsRow = false;
  for (;;) {
    std::int64_t last = kNoSeq;
    {
      Use q(scan);
      sqlite3_bind_int64(*q, 1, from);
      while ((rc = sqlite3_step(*q)) == SQLITE_ROW) {
        last = sqlite3_column_int64(*q, 0);
        seen.insert(last);
        visit(*q);
      }
    }
    if (rc == SQLITE_DONE) break;
    std::string why = sqlite3_errmsg(db);
    if (last == kNoSeq && fromIsRow) {
      // The row a seek found cannot be read itself.
      LostRow row;
      row.seq = from;
      row.why = "the row cannot be read: " + why;
      objectIdOf(from, &row);
      lost->push_back(row);
      unreadable.insert(from);
      last = from;
    } else {
      if (last == kNoSeq) last = from == kNoSeq ? 0 : from - 1;
      breaks->push_back("rows after position " + std::to_string(last) + " cannot be read: " + why);
    }
    std::optional<std::int64_t> next = resumeAfter(seek, last, highest);
    // A damaged page can give back a row before the one asked for: going on
    // from there would go round for ever.
    if (!next || *next <= std::max(last, from)) break;
    from = *next;
    fromIsRow = true;
  }

  // Rows the indexes know that no scan reached.
  for (const auto &[seq, id] : listing.rows) {
    if (seen.count(seq) || unreadable.count(seq)) continue;
    Use q(one);
    sqlite3_bind_int64(*q, 1, seq);
    rc = sqlite3_step(*q);
    if (rc == SQLITE_ROW) {
      seen.insert(seq);
      visit(*q);
      continue;
    }
    LostRow row;
    row.seq = seq;
    row.why = rc == SQLITE_DONE ? "a key index lists the row, but the table does not hold it"
                                : std::string("the row cannot be read: ") + sqlite3_errmsg(db);
    objectIdOf(seq, &row);
    lost->push_back(row);
  }
  return QDB_OK;
}

std::uint64_t countRows(sqlite3 *db, const std::string &table) {
  std::int64_t n = 0;
  return queryNumber(db, "SELECT count(*) FROM " + quoted(table), &n) && n > 0
             ? static_cast<std::uint64_t>(n)
             : 0;
}

}  // namespace platform::store::sqlite
