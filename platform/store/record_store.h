// The record store engine: table files of fixed-layout records addressed by key
// numbers, built on SQLite. Results are 32-bit; callers read the low 16 bits,
// 0 meaning success.
#pragma once

#include <cstddef>
#include <cstdint>
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

}  // namespace platform
