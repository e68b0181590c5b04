// The members of CAlertDBTable<REC>. Included only by the library's table
// sources, each of which instantiates the template for its own record.
#pragma once

#include <cstdlib>
#include <cstring>
#include <new>

#include "framework/alert_db_table.h"
#include "framework/change_signal_internal.h"
#include "platform/char_set.h"
#include "platform/file_names.h"
#include "platform/guid.h"
#include "platform/memory_blocks.h"
#include "platform/object_manager.h"
#include "platform/string_table.h"

namespace alertdb_internal {

constexpr std::uint32_t kTemplateSize = sizeof(platform::FieldTemplate);
constexpr std::uint32_t kQueryInfoSize = sizeof(platform::QueryInfoEntry);
constexpr std::uint32_t kSpareEntries = 4;
constexpr std::uint32_t kMaxTitle = 79;

inline std::uint32_t low16(std::uint32_t result) { return result & 0xFFFF; }

inline bool isZeroId(const void *id) {
  static const unsigned char zero[16] = {};
  return std::memcmp(id, zero, 16) == 0;
}

// The five data files that are restored from their ".BAK" copy when missing.
inline bool isRestorable(const char *bareName) {
  static const char *const names[] = {"kepuser.dat", "AlRespDB.dat", "AlServdb.dat", "AlEvntdb.dat",
                                      "AlCfgdb.dat"};
  for (const char *name : names) {
    if (std::strcmp(bareName, name) == 0) return true;
  }
  return false;
}

// A copy of `bytes` bytes of `source` in a block with room for four more entries.
template <class T>
T *copyWithSpare(const T *source, std::uint32_t bytes, std::uint32_t entrySize) {
  std::size_t size = (bytes / entrySize + kSpareEntries) * static_cast<std::size_t>(entrySize);
  void *block = std::calloc(1, size);
  if (block) std::memcpy(block, source, bytes);
  return static_cast<T *>(block);
}

}  // namespace alertdb_internal

template <class REC>
CAlertDBTable<REC>::CAlertDBTable()
    : m_pszTableName(nullptr),
      m_pQueryInfo(nullptr),
      m_ppszFieldNames(nullptr),
      m_nTitleStringId(0),
      m_nFirstFieldStringId(0),
      m_nFieldCount(0),
      m_nQueryInfoCount(0),
      m_nEnumKey(0),
      m_hTable(nullptr),
      m_pFieldTemplates(nullptr),
      m_pszCallbackDll(nullptr),
      m_pszCallbackEntry(nullptr),
      m_nReserved1{},
      m_ppszQueryTypeNames(nullptr),
      m_nReserved2{},
      m_pRecordBuffer(static_cast<REC *>(std::calloc(1, sizeof(REC)))),
      m_pszFileName(nullptr),
      m_nIdKey(0),
      m_Replication{},
      m_nSecondKey(-1) {
  m_szFilePath[0] = '\0';
}

template <class REC>
CAlertDBTable<REC>::CAlertDBTable(const CAlertDBTable &other) : CAlertDBTable() {
  m_pszTableName = other.m_pszTableName;
  m_ppszFieldNames = other.m_ppszFieldNames;
  m_nTitleStringId = other.m_nTitleStringId;
  m_nFirstFieldStringId = other.m_nFirstFieldStringId;
  m_nFieldCount = other.m_nFieldCount;
  m_nQueryInfoCount = other.m_nQueryInfoCount;
  m_pszCallbackDll = other.m_pszCallbackDll;
  m_pszCallbackEntry = other.m_pszCallbackEntry;
  m_ppszQueryTypeNames = other.m_ppszQueryTypeNames;
  m_pszFileName = other.m_pszFileName;
  std::memcpy(m_szFilePath, other.m_szFilePath, sizeof m_szFilePath);
  m_nIdKey = other.m_nIdKey;
  m_nSecondKey = other.m_nSecondKey;
  using namespace alertdb_internal;
  if (other.m_pFieldTemplates) {
    m_pFieldTemplates =
        copyWithSpare(other.m_pFieldTemplates, m_nFieldCount * kTemplateSize, kTemplateSize);
    // Unbound until the derived class binds them to this object's storage.
    for (std::uint32_t i = 0; m_pFieldTemplates && i < m_nFieldCount; ++i) {
      m_pFieldTemplates[i].storage = nullptr;
    }
  }
  if (other.m_pQueryInfo) {
    m_pQueryInfo =
        copyWithSpare(other.m_pQueryInfo, m_nQueryInfoCount * kQueryInfoSize, kQueryInfoSize);
  }
}

template <class REC>
CAlertDBTable<REC> &CAlertDBTable<REC>::operator=(const CAlertDBTable &other) {
  if (this == &other) return *this;
  // Same table, so the schema and the bound buffers stay; only the file moves.
  if (m_hTable) platform::QDBDone(m_hTable);
  m_hTable = nullptr;
  m_pszFileName = other.m_pszFileName;
  std::memcpy(m_szFilePath, other.m_szFilePath, sizeof m_szFilePath);
  m_nEnumKey = 0;
  if (m_pRecordBuffer) std::memset(m_pRecordBuffer, 0, sizeof(REC));
  std::memset(m_Replication, 0, sizeof m_Replication);
  return *this;
}

template <class REC>
CAlertDBTable<REC>::~CAlertDBTable() {
  Release();
}

template <class REC>
void CAlertDBTable<REC>::Release() {
  if (m_hTable) {
    platform::QDBDone(m_hTable);
    m_hTable = nullptr;
  }
  std::free(m_pFieldTemplates);
  m_pFieldTemplates = nullptr;
  std::free(m_pQueryInfo);
  m_pQueryInfo = nullptr;
  std::free(m_pRecordBuffer);
  m_pRecordBuffer = nullptr;
}

template <class REC>
void CAlertDBTable<REC>::ComposePath() {
  m_szFilePath[0] = '\0';
  if (!m_pszFileName) return;
  char dir[260];
  std::size_t nameLength = std::strlen(m_pszFileName);
  if (platform::KepOMGetDataDir(dir, sizeof dir) == 0) {
    std::size_t dirLength = std::strlen(dir);
    // A path that does not fit stays empty rather than naming another file.
    if (dirLength + 1 + nameLength < sizeof m_szFilePath) {
      std::memcpy(m_szFilePath, dir, dirLength);
      m_szFilePath[dirLength] = '/';
      std::memcpy(m_szFilePath + dirLength + 1, m_pszFileName, nameLength + 1);
    }
  } else if (nameLength < sizeof m_szFilePath) {
    std::memcpy(m_szFilePath, m_pszFileName, nameLength + 1);
  }
}

template <class REC>
std::uint32_t CAlertDBTable<REC>::SetSchema(
    const char *tableName, const platform::FieldTemplate *templates,
    const platform::QueryInfoEntry *queryInfo, const char *const *fieldNames,
    std::uint32_t titleStringId, std::uint32_t firstFieldStringId, std::uint32_t fieldCount,
    std::uint32_t queryInfoBytes, std::uint32_t templateBytes, std::uint32_t queryInfoCount) {
  using namespace alertdb_internal;
  ComposePath();
  if (tableName) m_pszTableName = tableName;
  if (templates && templateBytes) {
    std::free(m_pFieldTemplates);
    m_pFieldTemplates = copyWithSpare(templates, templateBytes, kTemplateSize);
  }
  if (queryInfo && queryInfoBytes) {
    std::free(m_pQueryInfo);
    m_pQueryInfo = copyWithSpare(queryInfo, queryInfoBytes, kQueryInfoSize);
  }
  if (fieldNames) m_ppszFieldNames = fieldNames;
  if (titleStringId) m_nTitleStringId = titleStringId;
  if (firstFieldStringId) m_nFirstFieldStringId = firstFieldStringId;
  if (fieldCount) m_nFieldCount = fieldCount;
  if (queryInfoCount) m_nQueryInfoCount = queryInfoCount;
  return IsReady();
}

template <class REC>
void CAlertDBTable<REC>::ApplyDefinition(const AlertTableDefinition &definition,
                                         const char *fileName, std::uint32_t queryInfoBytes,
                                         std::uint32_t templateBytes) {
  m_pszFileName = fileName ? fileName : definition.defaultFileName;
  SetSchema(definition.tableName, definition.templates, definition.queryInfo, definition.fieldNames,
            definition.titleStringId, definition.firstFieldStringId, definition.fieldCount,
            queryInfoBytes, templateBytes, definition.queryInfoCount);
  m_nIdKey = definition.idKey;
}

template <class REC>
bool CAlertDBTable<REC>::BindRecordFields(std::uint32_t count) {
  if (!m_pFieldTemplates || !m_pRecordBuffer || count > m_nFieldCount) return false;
  auto *storage = reinterpret_cast<unsigned char *>(m_pRecordBuffer);
  std::size_t offset = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    m_pFieldTemplates[i].storage = storage + offset;
    offset += m_pFieldTemplates[i].size;
  }
  return offset == sizeof(REC);
}

template <class REC>
void CAlertDBTable<REC>::BindField(std::uint32_t index, void *storage) {
  if (m_pFieldTemplates && index < m_nFieldCount) m_pFieldTemplates[index].storage = storage;
}

template <class REC>
void CAlertDBTable<REC>::BindReplication(std::uint32_t index) {
  BindField(index, m_Replication);
}

template <class REC>
inline std::uint32_t CAlertDBTable<REC>::IsReady() {
  if (!m_pszFileName || !m_pRecordBuffer || !m_pszTableName || !m_pFieldTemplates ||
      !m_pQueryInfo || !m_ppszFieldNames || !m_nTitleStringId || !m_nFirstFieldStringId) {
    return ALRT_NOTREADY;
  }
  return 0;
}

template <class REC>
std::uint32_t CAlertDBTable<REC>::CreateObjectId(KEPOID *out) {
  if (!out) return ALRT_NOTREADY;
  std::memset(out, 0, sizeof *out);
  return platform::CoCreateGuid(out) == 0 ? 0 : ALRT_NOTREADY;
}

// ------------------------------------------------------------ open, create

template <class REC>
std::uint32_t CAlertDBTable<REC>::DBOpen() {
  using namespace alertdb_internal;
  if (m_hTable) return 0;
  if (IsReady() != 0) return ALRT_E_NOTOPEN;
  if (platform::FileExists(m_szFilePath)) {
    m_hTable = platform::QDBInit(0, m_szFilePath, platform::kOpenExisting, 1);
    if (!m_hTable) {
      m_hTable = platform::QDBInit(0, m_szFilePath, platform::kOpenRecover, 1);
      return m_hTable ? ALRT_E_ALTOPEN : ALRT_E_INITFAILED;
    }
  } else {
    const char *slash = std::strrchr(m_szFilePath, '/');
    const char *bareName = slash ? slash + 1 : m_szFilePath;
    if (!isRestorable(bareName)) return ALRT_MISSINGFILE;
    char backup[sizeof m_szFilePath + 8];
    std::memcpy(backup, m_szFilePath, sizeof m_szFilePath);
    platform::NameStripExtension(backup);
    platform::NameAppendExtension(backup, "BAK");
    if (!platform::FileExists(backup)) return ALRT_MISSINGFILE;
    platform::FileCopy(backup, m_szFilePath, 0);
    m_hTable = platform::QDBInit(0, m_szFilePath, platform::kOpenRecover, 1);
    if (!m_hTable) return ALRT_E_INITFAILED;
  }
  if (low16(platform::SchmSetCurrentTbl(m_hTable, m_pszTableName, m_pFieldTemplates)) != 0) {
    platform::QDBDone(m_hTable);
    m_hTable = nullptr;
    return ALRT_E_NOTABLE;
  }
  return 0;
}

template <class REC>
std::uint32_t CAlertDBTable<REC>::DBCreate() {
  return CreateTable(nullptr, nullptr);
}

template <class REC>
std::uint32_t CAlertDBTable<REC>::CreateTable(const char *title, const char *const *descriptions) {
  using namespace alertdb_internal;
  if (IsReady() != 0) return ALRT_E_NOTOPEN;
  if (m_hTable) return 0;
  m_hTable = platform::QDBInit(0, m_szFilePath, platform::kOpenCreate, 1);
  if (!m_hTable) return ALRT_E_INITFAILED;

  platform::TableDescriptor d{};
  d.size = sizeof d;
  d.idKey = m_nIdKey;
  d.fieldCount = m_nFieldCount;
  d.queryInfoCount = m_nQueryInfoCount;
  d.secondKey = static_cast<std::uint32_t>(m_nSecondKey);
  d.templateSize = kTemplateSize;
  d.templates = m_pFieldTemplates;
  d.queryInfo = m_pQueryInfo;
  d.callbackDll = m_pszCallbackDll;
  d.callbackEntry = m_pszCallbackEntry;
  d.reserved70 = m_nReserved1[0];
  d.reserved74 = m_nReserved1[1];
  d.reserved90 = m_nReserved2[0];
  d.reserved94 = m_nReserved2[1];
  d.reserved102 = m_nReserved2[2];
  d.one = 1;

  std::uint32_t status = 0;
  std::size_t nameLength = std::strlen(m_pszTableName);
  d.tableName = static_cast<char *>(
      platform::MemAlloc(platform::kMemMovableZeroed, static_cast<std::uint32_t>(nameLength + 20)));
  d.title = static_cast<char *>(platform::MemAlloc(platform::kMemMovableZeroed, 90));
  if (!d.tableName || !d.title) status = ALRT_E_SCHEMAENTRY;
  if (status == 0) {
    std::memcpy(d.tableName, m_pszTableName, nameLength + 1);
    if (platform::SchmLoadStrings(nullptr, &d.fieldNames, &d.fieldNamesAux, m_ppszFieldNames, 0,
                                  m_nFieldCount) != 0) {
      status = ALRT_E_SCHEMASTRINGS;
    }
  }
  if (status == 0 && m_ppszQueryTypeNames &&
      platform::SchmLoadStrings(nullptr, &d.queryTypeNames, &d.queryTypeNamesAux,
                                m_ppszQueryTypeNames, 0, m_nFieldCount) != 0) {
    status = ALRT_E_SCHEMASTRINGS;
  }
  if (status == 0) {
    char loaded[kMaxTitle + 1] = {};
    if (!title) {
      platform::LoadStringA(AlertDBModuleHandle(), m_nTitleStringId, loaded, sizeof loaded);
    } else {
      std::strncpy(loaded, title, kMaxTitle);
    }
    platform::CharToOemA(loaded, d.title);
    HINSTANCE module = descriptions ? nullptr : AlertDBModuleHandle();
    if (platform::SchmLoadStrings(module, &d.descriptions, &d.descriptionsAux, descriptions,
                                  m_nFirstFieldStringId, m_nFieldCount) != 0) {
      status = ALRT_E_SCHEMASTRINGS;
    }
  }
  if (status == 0 && low16(platform::SchmAddTableEntry(m_hTable, &d)) != 0) {
    status = ALRT_E_SCHEMAENTRY;
  }
  platform::MemFree(d.title);
  platform::MemFree(d.tableName);
  platform::MemFree(d.fieldNames);
  platform::MemFree(d.queryTypeNames);
  platform::MemFree(d.descriptions);
  return status;
}

// ------------------------------------------------------------ record operations

template <class REC>
REC *CAlertDBTable<REC>::SettledRecordBuffer() {
  // Only a record read straight to the caller can be owed.
  if constexpr (kReadsStraight) platform::QDBRecordSettle(m_hTable);
  return m_pRecordBuffer;
}

template <class REC>
std::uint32_t CAlertDBTable<REC>::FindById(const _GUID *id) {
  std::memcpy(SettledRecordBuffer(), id, sizeof(_GUID));
  return alertdb_internal::low16(
      platform::QDBRecordFind(m_hTable, m_nIdKey, m_pRecordBuffer, 1, sizeof(_GUID)));
}

template <class REC>
std::uint32_t CAlertDBTable<REC>::DBAlertRecAdd(REC *record, _GUID *newId) {
  if (IsReady() != 0) return ALRT_E_NOTOPEN;
  if (!record) return ALRT_E_INVALIDPARAM;
  std::memset(SettledRecordBuffer(), 0, sizeof(REC));
  if (alertdb_internal::isZeroId(record)) {
    if (CreateObjectId(newId) != 0) return ALRT_E_NOOID;
    std::memcpy(record, newId, sizeof(_GUID));
  } else if (newId) {
    std::memcpy(newId, record, sizeof(_GUID));
  }
  std::memcpy(m_pRecordBuffer, record, sizeof(REC));
  if (alertdb_internal::low16(platform::QDBRecordAdd(m_hTable)) != 0) {
    if (newId) std::memset(newId, 0, sizeof *newId);
    return ALRT_E_ADDFAILED;
  }
  return 0;
}

template <class REC>
std::uint32_t CAlertDBTable<REC>::DBAlertRecUpdate(REC *record) {
  if (IsReady() != 0) return ALRT_E_NOTOPEN;
  try {
    // Where the original's guard caught an access violation, a null record
    // is reported the same way.
    if (!record) return ALRT_E_EXCEPTION;
    if (FindById(reinterpret_cast<const _GUID *>(record)) != 0) return ALRT_E_NOTFOUND;
    if (std::memcmp(record, m_pRecordBuffer, sizeof(REC)) == 0) return ALRT_UNCHANGED;
  } catch (...) {
    return ALRT_E_EXCEPTION;
  }
  std::memcpy(m_pRecordBuffer, record, sizeof(REC));
  if (alertdb_internal::low16(platform::QDBRecordUpdate(m_hTable)) != 0) {
    return ALRT_E_UPDATEFAILED;
  }
  return 0;
}

template <class REC>
std::uint32_t CAlertDBTable<REC>::DBAlertRecRetrieve(_GUID *id, REC *record) {
  if (!record) return ALRT_E_INVALIDPARAM;
  if (alertdb_internal::isZeroId(record)) {
    if (!id || alertdb_internal::isZeroId(id)) return ALRT_E_INVALIDPARAM;
    std::memcpy(record, id, sizeof(_GUID));
  }
  if (IsReady() != 0) return ALRT_E_NOTOPEN;
  if (FindById(reinterpret_cast<const _GUID *>(record)) != 0) return ALRT_E_NOTFOUND;
  std::uint32_t r = kReadsStraight ? platform::QDBRecordReadCopy(m_hTable, CopyTo(record))
                                   : platform::QDBRecordRead(m_hTable);
  if (alertdb_internal::low16(r) != 0) return ALRT_E_READFAILED;
  TakeRead(record);
  return 0;
}

template <class REC>
std::uint32_t CAlertDBTable<REC>::DBAlertRecFind(_GUID *id) {
  if (IsReady() != 0) return ALRT_E_NOTOPEN;
  if (!id) return ALRT_E_INVALIDPARAM;
  return FindById(id);
}

template <class REC>
std::uint32_t CAlertDBTable<REC>::DBAlertRecFindFirst(std::uint32_t key, std::uint32_t keyLength,
                                                      unsigned char *keyValue, REC *record) {
  if (IsReady() != 0) return ALRT_E_NOTOPEN;
  if ((keyLength != 0 && !keyValue) || !record) return ALRT_E_INVALIDPARAM;
  m_nEnumKey = key;
  std::uint32_t r;
  if (keyValue) {
    r = kReadsStraight ? platform::QDBRecordFindAndReadCopy(m_hTable, key, keyValue, 1, keyLength,
                                                            CopyTo(record))
                       : platform::QDBRecordFindAndRead(m_hTable, key, keyValue, 1, keyLength);
  } else {
    r = kReadsStraight ? platform::QDBRecordSkipAndReadCopy(m_hTable, key, platform::kSkipFirst,
                                                            CopyTo(record))
                       : platform::QDBRecordSkipAndRead(m_hTable, key, platform::kSkipFirst);
  }
  if (alertdb_internal::low16(r) != 0) return ALRT_E_NOTFOUND;
  TakeRead(record);
  return 0;
}

template <class REC>
std::uint32_t CAlertDBTable<REC>::DBAlertRecFindNext(REC *record) {
  if (IsReady() != 0) return ALRT_E_NOTOPEN;
  if (!record) return ALRT_E_INVALIDPARAM;
  std::uint32_t r = kReadsStraight
                        ? platform::QDBRecordSkipAndReadCopy(m_hTable, m_nEnumKey,
                                                             platform::kSkipNext, CopyTo(record))
                        : platform::QDBRecordSkipAndRead(m_hTable, m_nEnumKey, platform::kSkipNext);
  if (alertdb_internal::low16(r) != 0) {
    std::memset(record, 0, sizeof(REC));
    return ALRT_E_NOTFOUND;
  }
  TakeRead(record);
  return 0;
}

template <class REC>
std::uint32_t CAlertDBTable<REC>::DBAlertRecDelete(_GUID *id) {
  if (IsReady() != 0) return ALRT_E_NOTOPEN;
  if (!id) return ALRT_E_INVALIDPARAM;
  std::uint32_t r = FindById(id);
  if (r != 0) return r;
  return alertdb_internal::low16(platform::QDBRecordDelete(m_hTable));
}

template <class REC>
void CAlertDBTable<REC>::EndEnumeration() {
  platform::QDBRecordSkipToEnd(m_hTable);
}

// ------------------------------------------------------------ signalling

template <class REC>
std::uint32_t CAlertDBTable<REC>::SignalIfDone(std::uint32_t status) {
  if (status == 0) alertdb_internal::SignalChange(m_hTable);
  return status;
}

template <class REC>
std::uint32_t CAlertDBTable<REC>::UpdateAndSignal(REC *record) {
  std::uint32_t status = CAlertDBTable<REC>::DBAlertRecUpdate(record);
  if (status == ALRT_UNCHANGED) return 0;
  return SignalIfDone(status);
}
