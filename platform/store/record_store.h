// The record store engine: table files of fixed-layout records addressed by key
// numbers, built on SQLite. Results are 32-bit; callers read the low 16 bits,
// 0 meaning success.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/win_types.h"

namespace platform {

#pragma pack(push, 1)

// One field of a table, 32 bytes on every build: the storage address takes
// words 4 and 5.
struct FieldTemplate {
  std::uint32_t keyNumber;  // 0 = not a key
  std::uint32_t attribute;  // passed through
  std::uint32_t size;
  std::uint32_t sizeAgain;
  void *storage;  // where the field's bytes live while a record moves
#if UINTPTR_MAX == 0xFFFFFFFFu
  std::uint32_t storagePad;
#endif
  std::uint32_t flags;  // passed through; also tells the kind of key value
  std::uint32_t reserved;
};
static_assert(sizeof(FieldTemplate) == 32, "a field template is 32 bytes");

// One entry of a query-information list, 20 bytes.
struct QueryInfoEntry {
  std::uint16_t entrySize;
  std::uint16_t keyNumber;
  std::uint16_t zero1;
  std::uint16_t fieldRef;
  std::uint16_t zero2;
  std::uint8_t kind;  // 1 = unique key
  std::uint8_t valueClass;
  std::uint8_t zero3[8];
};
static_assert(sizeof(QueryInfoEntry) == 20, "a query-information entry is 20 bytes");

// The table descriptor handed to SchmAddTableEntry. Fields keep their order
// and meaning; pointers take their natural width.
struct TableDescriptor {
  std::uint16_t size;  // sizeof(TableDescriptor)
  std::uint32_t idKey;
  char *tableName;
  void *fieldNames;  // SchmLoadStrings block
  std::uint32_t fieldNamesAux;
  char *title;         // OEM text
  void *descriptions;  // SchmLoadStrings block
  std::uint32_t descriptionsAux;
  std::uint32_t fieldCount;
  std::uint32_t queryInfoCount;
  std::uint32_t zero38;
  std::uint32_t secondKey;  // 0xFFFFFFFF = none
  std::uint32_t zero46;
  std::uint32_t zero50;
  std::uint32_t templateSize;  // 32
  FieldTemplate *templates;
  QueryInfoEntry *queryInfo;
  const char *callbackDll;
  std::uint32_t reserved70;
  std::uint32_t reserved74;
  void *queryTypeNames;  // SchmLoadStrings block, or null
  std::uint32_t queryTypeNamesAux;
  std::uint32_t zero86;
  std::uint32_t reserved90;
  std::uint32_t reserved94;
  const char *callbackEntry;
  std::uint32_t reserved102;
  std::uint32_t one;  // 1
};

#pragma pack(pop)

// Open modes of QDBInit.
constexpr std::uint32_t kOpenExisting = 64;
constexpr std::uint32_t kOpenRecover = 65;
constexpr std::uint32_t kOpenCreate = 0;

// Directions of QDBRecordSkipAndRead.
constexpr std::uint32_t kSkipNext = 1;
constexpr std::uint32_t kSkipFirst = 3;

// Engine results (all below 0x10000).
enum : std::uint32_t {
  QDB_OK = 0,
  QDB_E_BADHANDLE = 1,  // null, unknown or closed handle
  QDB_E_BADARG = 2,
  QDB_E_NOTABLE = 3,     // no such table, or no table selected
  QDB_E_BADKEY = 4,      // the table has no key of that number
  QDB_E_NOTFOUND = 5,    // no such record / end of the order
  QDB_E_NOCURRENT = 6,   // no current record, or it was deleted
  QDB_E_DUPLICATE = 7,   // a unique key would be duplicated
  QDB_E_EXISTS = 8,      // a different table of that name exists
  QDB_E_LAYOUT = 9,      // bound templates do not match the stored table
  QDB_E_BUSY = 10,       // the file stayed locked past the busy timeout
  QDB_E_IO = 11,         // the file could not be read or written
  QDB_E_LOCKSTATE = 12,  // unlock without lock, or write lock inside a read lock
  QDB_E_NOMEMORY = 13,
  QDB_E_DAMAGED = 14,  // the file or a record fails its checks
};

ALERTDB_API KEPDB *QDBInit(std::uint32_t reserved, const char *path, std::uint32_t mode,
                           std::uint32_t flag);
ALERTDB_API std::uint32_t QDBDone(KEPDB *handle);

ALERTDB_API std::uint32_t SchmSetCurrentTbl(KEPDB *handle, const char *tableName,
                                            FieldTemplate *fieldTemplates);
ALERTDB_API std::uint32_t SchmLoadStrings(HINSTANCE instance, void **block, std::uint32_t *aux,
                                          const char *const *strings, std::uint32_t firstId,
                                          std::uint32_t count);
ALERTDB_API std::uint32_t SchmAddTableEntry(KEPDB *handle, TableDescriptor *descriptor);
ALERTDB_API std::uint32_t SchmAddQueryInfo(KEPDB *handle, const char *typeName, std::uint32_t mask,
                                           std::uint32_t valueCount, const std::uint32_t *values,
                                           std::uint32_t aux, void *block);

ALERTDB_API std::uint32_t QDBRecordAdd(KEPDB *handle);
ALERTDB_API std::uint32_t QDBRecordUpdate(KEPDB *handle);
ALERTDB_API std::uint32_t QDBRecordFind(KEPDB *handle, std::uint32_t key, const void *keyValue,
                                        std::uint32_t exact, std::uint32_t keyLength);
ALERTDB_API std::uint32_t QDBRecordRead(KEPDB *handle);
ALERTDB_API std::uint32_t QDBRecordDelete(KEPDB *handle);
ALERTDB_API std::uint32_t QDBRecordFindAndRead(KEPDB *handle, std::uint32_t key,
                                               const void *keyValue, std::uint32_t exact,
                                               std::uint32_t keyLength);
ALERTDB_API std::uint32_t QDBRecordSkipAndRead(KEPDB *handle, std::uint32_t key,
                                               std::uint32_t direction);
// Puts the cursor past the end of every order: the next "next" reports the
// end, as after a walk to the last record. The current record stays current.
ALERTDB_API std::uint32_t QDBRecordSkipToEnd(KEPDB *handle);

// Reads straight to a copy of the caller's record buffer, sparing a second
// pass over a large record: the fields bound inside the `size` bytes at
// `buffer` go to the same places in `copy`, the others to their storage as
// usual. The buffer is owed the record until QDBRecordSettle, which the
// caller runs before it next uses the buffer; a record that moves through the
// bound storage first settles the debt. Results as the plain reads.
struct RecordCopy {
  const void *buffer;
  std::size_t size;
  void *copy;
};
ALERTDB_API std::uint32_t QDBRecordReadCopy(KEPDB *handle, const RecordCopy &to);
ALERTDB_API std::uint32_t QDBRecordFindAndReadCopy(KEPDB *handle, std::uint32_t key,
                                                   const void *keyValue, std::uint32_t exact,
                                                   std::uint32_t keyLength, const RecordCopy &to);
ALERTDB_API std::uint32_t QDBRecordSkipAndReadCopy(KEPDB *handle, std::uint32_t key,
                                                   std::uint32_t direction, const RecordCopy &to);
ALERTDB_API std::uint32_t QDBRecordSettle(KEPDB *handle);

ALERTDB_API std::uint32_t QDBFileLock(KEPDB *handle);
ALERTDB_API std::uint32_t QDBFileUnlock(KEPDB *handle);
ALERTDB_API std::uint32_t QDBReadLock(KEPDB *handle);
ALERTDB_API std::uint32_t QDBReadUnlock(KEPDB *handle);

// What the catalog of a file says about a table, for tools that describe any
// table without knowing its record structure.
struct StoreFieldInfo {
  std::string name;
  std::uint32_t keyNumber;
  std::uint32_t attribute;
  std::uint32_t size;
  std::uint32_t flags;
  std::string description;
  std::string queryType;
};
struct StoreTableInfo {
  std::string name;
  std::string title;
  std::uint32_t idKey = 0;
  std::uint32_t recordCount = 0;
  std::vector<StoreFieldInfo> fields;
};

ALERTDB_API std::uint32_t QDBTableNames(KEPDB *handle, std::vector<std::string> *names);
ALERTDB_API std::uint32_t QDBTableInfo(KEPDB *handle, const char *tableName, StoreTableInfo *info);

// Whole files, for the tools that back up, check and salvage them.

// Told now and then during long work: how much is done of how much (0 when
// the whole is not known).
using StoreProgress = std::function<void(std::uint64_t done, std::uint64_t total)>;

// One thing a check or a salvage found wrong. A problem of the file as a
// whole names no table; one of a record gives its row (its insertion number,
// from 1) and, when it can be read, its object ID.
struct StoreProblem {
  std::string table;
  std::int64_t row = 0;
  bool hasObjectId = false;
  _GUID objectId{};
  std::string what;
};

struct StoreTableCheck {
  std::string name;
  std::uint32_t records = 0;  // rows found
  std::uint32_t damaged = 0;  // of them, or listed by an index but unreadable
};

struct StoreCheckReport {
  bool isStore = false;  // a record store, sound or not
  int format = 0;        // the store format it records (1 or 2)
  std::vector<StoreTableCheck> tables;
  std::vector<StoreProblem> problems;
};

// The full check of a data file: its header, SQLite's integrity check, the
// catalog against the SQL tables, and every record's checksum, decoding and
// key columns. The file is only read: a write-ahead log beside it is read,
// never written back. QDB_OK when sound; QDB_E_DAMAGED with every problem in
// `report` (also for a file that is not a store); QDB_E_NOTFOUND when there
// is no such file.
ALERTDB_API std::uint32_t QDBCheckFile(const char *path, StoreCheckReport *report,
                                       const StoreProgress &progress = nullptr);

// Writes a consistent copy of the store at `source` to `target`: what its
// committed transactions hold, write-ahead log included, read in one snapshot
// through SQLite's online backup, so that writers go on meanwhile. The copy
// is built under a temporary name beside the target, fully checked, synced
// and only then renamed over the target: the target is either as it was or
// the whole copy. QDB_E_DAMAGED when the source is not a store or the copy
// fails its check; QDB_E_NOTFOUND when there is no source; QDB_E_BUSY when a
// program has the target open.
ALERTDB_API std::uint32_t QDBBackupFile(const char *source, const char *target,
                                        const StoreProgress &progress = nullptr);

struct StoreSalvageTable {
  std::string name;
  std::uint32_t saved = 0;
  std::uint32_t lost = 0;  // rows known to have been there that could not be saved
};

struct StoreSalvageReport {
  std::vector<StoreSalvageTable> tables;
  std::vector<StoreProblem> problems;  // what was lost, and why
};

// Copies every record of the store at `source` that can still be read into a
// new store at `target`, with the same catalog (tables, fields, query
// information, query types), each record under its old insertion number. The
// source is only read; the target must not exist and appears whole or not at
// all. QDB_OK also when records were lost (see `report`); QDB_E_EXISTS when
// the target exists; QDB_E_DAMAGED when the source is not a store or its
// catalog cannot be read; QDB_E_NOTFOUND when there is no source.
ALERTDB_API std::uint32_t QDBSalvageFile(const char *source, const char *target,
                                         StoreSalvageReport *report,
                                         const StoreProgress &progress = nullptr);

// Whether another process has the store at `path` open (a process's own
// connections are not seen).
ALERTDB_API std::uint32_t QDBFileInUse(const char *path, bool *inUse);

}  // namespace platform
