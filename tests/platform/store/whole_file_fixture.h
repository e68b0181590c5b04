// Stores of sample records made, damaged and read back whole, for the tests
// of backups, full checks and salvage.
#pragma once

#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/memory_blocks.h"
#include "platform/store/record_store.h"
#include "platform/store/record_store_fixture.h"

namespace alertdb_test {

class WholeFileTest : public RecordStoreTest {
 protected:
  static constexpr const char *kNeedle = "NEEDLE-COMMENT";

  // Record n of a sample store: object ID idOf(n), name "r<n>", number n;
  // record 42 alone carries kNeedle.
  static _GUID idOf(std::uint32_t n) {
    _GUID id{};
    id.Data1 = n + 1;
    return id;
  }
  static void fillRecord(SampleTable &t, std::uint32_t n) {
    t.fill(0, ("r" + std::to_string(n)).c_str(), n);
    t.record.id = idOf(n);
    if (n == 42) std::strcpy(t.record.comment, kNeedle);
    std::memset(t.replication, static_cast<int>(n & 0xFF), sizeof t.replication);
  }

  // A closed store of `count` sample records, with a registered query type.
  void makeStore(const std::string &name, std::uint32_t count = 100) {
    SampleTable t;
    KEPDB *h = createSample(t, name);
    const char *texts[] = {"None", "CRITICAL"};
    void *block = nullptr;
    std::uint32_t aux = 0;
    ASSERT_EQ(platform::SchmLoadStrings(nullptr, &block, &aux, texts, 0, 2), 0u);
    std::uint32_t values[] = {0, 1};
    ASSERT_EQ(platform::SchmAddQueryInfo(h, "QInfo_Svrty", 97, 2, values, aux, block), 0u);
    platform::MemFree(block);
    for (std::uint32_t n = 0; n < count; ++n) {
      fillRecord(t, n);
      ASSERT_EQ(platform::QDBRecordAdd(h), 0u);
    }
    close(h);
  }

  // Runs SQL on the file behind the engine's back; with `keepLog` the change
  // stays in the write-ahead log instead of going into the file.
  void sql(const std::string &name, const std::string &statements, bool keepLog = false) {
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(dataPath(name).c_str(), &db), SQLITE_OK);
    if (keepLog) sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    char *error = nullptr;
    EXPECT_EQ(sqlite3_exec(db, statements.c_str(), nullptr, nullptr, &error), SQLITE_OK)
        << (error ? error : "");
    sqlite3_free(error);
    sqlite3_close(db);
  }

  // Flips a byte inside the one stored record image that holds `needle`.
  void flipInRecord(const std::string &name, const char *needle = kNeedle) {
    std::string bytes = readFile(dataPath(name));
    std::size_t at = bytes.find(needle);
    ASSERT_NE(at, std::string::npos);
    ASSERT_EQ(bytes.find(needle, at + 1), std::string::npos);
    bytes[at + 3] ^= 0x20;
    writeFile(dataPath(name), bytes);
  }

  // Replaces the last `from` in the page where the b-tree of `index` starts
  // (its entries fill the page from its end) by `to`, behind SQLite's back.
  void changeInIndex(const std::string &name, const std::string &index, const std::string &from,
                     const std::string &to) {
    sqlite3 *db = nullptr;
    std::int64_t root = 0, pageSize = 0;
    ASSERT_EQ(sqlite3_open_v2(dataPath(name).c_str(), &db, SQLITE_OPEN_READONLY, nullptr),
              SQLITE_OK);
    sqlite3_stmt *s = nullptr;
    sqlite3_prepare_v2(db, "SELECT rootpage FROM sqlite_master WHERE name=?", -1, &s, nullptr);
    sqlite3_bind_text(s, 1, index.c_str(), -1, SQLITE_TRANSIENT);
    if (sqlite3_step(s) == SQLITE_ROW) root = sqlite3_column_int64(s, 0);
    sqlite3_finalize(s);
    sqlite3_prepare_v2(db, "PRAGMA page_size", -1, &s, nullptr);
    if (sqlite3_step(s) == SQLITE_ROW) pageSize = sqlite3_column_int64(s, 0);
    sqlite3_finalize(s);
    sqlite3_close(db);
    ASSERT_GT(root, 1);
    std::string bytes = readFile(dataPath(name));
    auto end = static_cast<std::size_t>(root * pageSize);
    std::size_t at = bytes.rfind(from, end - from.size());
    ASSERT_NE(at, std::string::npos);
    ASSERT_GE(at, end - static_cast<std::size_t>(pageSize)) << "not in the index's page";
    bytes.replace(at, to.size(), to);
    writeFile(dataPath(name), bytes);
  }

  // The file and its write-ahead log, to show that neither changed.
  std::string fileAndLog(const std::string &name) {
    return readFile(dataPath(name)) + "|wal|" + readFile(dataPath(name) + "-wal");
  }

  // The full check and the salvage of a file, which leave it (and its log)
  // as it was.
  std::uint32_t check(const std::string &name, platform::StoreCheckReport *report) {
    std::string before = fileAndLog(name);
    std::uint32_t status = platform::QDBCheckFile(dataPath(name).c_str(), report);
    EXPECT_EQ(fileAndLog(name), before) << "the check changed " << name;
    return status;
  }
  std::uint32_t salvage(const std::string &from, const std::string &to,
                        platform::StoreSalvageReport *report) {
    std::string before = fileAndLog(from);
    std::uint32_t status =
        platform::QDBSalvageFile(dataPath(from).c_str(), dataPath(to).c_str(), report);
    EXPECT_EQ(fileAndLog(from), before) << "the salvage changed " << from;
    return status;
  }

  // Whether a problem of `table` ("" for the file's own) says `text`.
  static bool mentions(const platform::StoreCheckReport &report, const std::string &table,
                       const std::string &text) {
    for (const platform::StoreProblem &p : report.problems) {
      if (p.table == table && p.what.find(text) != std::string::npos) return true;
    }
    return false;
  }
  static std::string listed(const platform::StoreCheckReport &report) {
    std::string out;
    for (const platform::StoreProblem &p : report.problems) {
      out += "[" + p.table + " row " + std::to_string(p.row) + "] " + p.what + "\n";
    }
    return out;
  }

  // Every record of the sample table of a file, in the order of their
  // numbers, as the bytes of the record and its replication block.
  std::vector<std::string> records(const std::string &name) {
    std::vector<std::string> out;
    SampleTable t;
    KEPDB *h = open(name, platform::kOpenExisting);
    EXPECT_NE(h, nullptr) << name;
    if (!h) return out;
    EXPECT_EQ(t.select(h), 0u);
    std::uint32_t r = platform::QDBRecordSkipAndRead(h, kNumberKey, platform::kSkipFirst);
    for (; r == 0; r = platform::QDBRecordSkipAndRead(h, kNumberKey, platform::kSkipNext)) {
      out.push_back(
          std::string(reinterpret_cast<const char *>(&t.record), sizeof t.record) +
          std::string(reinterpret_cast<const char *>(t.replication), sizeof t.replication));
    }
    EXPECT_EQ(r, platform::QDB_E_NOTFOUND) << name;
    close(h);
    return out;
  }

  // What records(name) gives for a sample store of records 0..count-1.
  static std::vector<std::string> expectedRecords(std::uint32_t count,
                                                  std::uint32_t without = ~0u) {
    std::vector<std::string> out;
    SampleTable t;
    for (std::uint32_t n = 0; n < count; ++n) {
      if (n == without) continue;
      fillRecord(t, n);
      out.push_back(
          std::string(reinterpret_cast<const char *>(&t.record), sizeof t.record) +
          std::string(reinterpret_cast<const char *>(t.replication), sizeof t.replication));
    }
    return out;
  }

  // The names in the data directory other than `except`: what a failed or
  // finished operation left behind. Reading a damaged file may leave an
  // empty log and shared memory beside it, as the store's own opens do: with
  // `besideDamaged` those are not counted either.
  std::vector<std::string> leftovers(const std::vector<std::string> &except,
                                     const std::vector<std::string> &besideDamaged = {}) {
    std::vector<std::string> out;
    for (const auto &entry : std::filesystem::directory_iterator(dataDir())) {
      std::string name = entry.path().filename().string();
      bool expected = std::find(except.begin(), except.end(), name) != except.end();
      for (const std::string &damaged : besideDamaged) {
        if (name == damaged + "-wal" || name == damaged + "-shm") {
          expected = entry.file_size() == 0 || name.back() == 'm';
        }
      }
      if (!expected) out.push_back(name);
    }
    std::sort(out.begin(), out.end());
    return out;
  }
};

}  // namespace alertdb_test
