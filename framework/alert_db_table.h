// CAlertDBTable<REC>: the generic table on which every table class is built.
// It owns the record store handle, the record buffer and the table's schema;
// it opens and creates the table and carries out the record operations.
#pragma once

#include <cstdint>
#include <cstring>

#include "framework/alert_status.h"
#include "platform/export.h"
#include "platform/store/record_store.h"
#include "platform/win_types.h"

// One field template of a table definition, not yet bound to storage.
constexpr platform::FieldTemplate AlertField(std::uint32_t keyNumber, std::uint32_t attribute,
                                             std::uint32_t size, std::uint32_t flags) {
  platform::FieldTemplate t{};
  t.keyNumber = keyNumber;
  t.attribute = attribute;
  t.size = size;
  t.sizeAgain = size;
  t.flags = flags;
  return t;
}

// The constants a table class hands to SetSchema, gathered in one place.
struct AlertTableDefinition {
  const char *tableName;
  const platform::FieldTemplate *templates;
  std::uint32_t fieldCount;
  const platform::QueryInfoEntry *queryInfo;
  std::uint32_t queryInfoCount;
  const char *const *fieldNames;
  std::uint32_t titleStringId;
  std::uint32_t firstFieldStringId;
  std::uint32_t idKey;
  const char *defaultFileName;
};

template <class REC>
class ALERTDB_API CAlertDBTable {
 public:
  CAlertDBTable();
  // A copy is an independent object of the same table and file name: it holds
  // no handle and has its own buffers (the derived class binds them again).
  CAlertDBTable(const CAlertDBTable &other);
  CAlertDBTable &operator=(const CAlertDBTable &other);
  virtual ~CAlertDBTable();

  std::uint32_t DBOpen();
  std::uint32_t DBCreate();
  std::uint32_t DBAlertRecAdd(REC *record, _GUID *newId);
  std::uint32_t DBAlertRecUpdate(REC *record);
  std::uint32_t DBAlertRecRetrieve(_GUID *id, REC *record);
  std::uint32_t DBAlertRecFind(_GUID *id);
  std::uint32_t DBAlertRecFindFirst(std::uint32_t key, std::uint32_t keyLength,
                                    unsigned char *keyValue, REC *record);
  std::uint32_t DBAlertRecFindNext(REC *record);
  std::uint32_t DBAlertRecDelete(_GUID *id);

  // 65535 when the object is not fully described, else 0.
  std::uint32_t IsReady();
  // 0 and a new object ID in `out`; 65535 on failure.
  std::uint32_t CreateObjectId(KEPOID *out);

 protected:
  std::uint32_t SetSchema(const char *tableName, const platform::FieldTemplate *templates,
                          const platform::QueryInfoEntry *queryInfo, const char *const *fieldNames,
                          std::uint32_t titleStringId, std::uint32_t firstFieldStringId,
                          std::uint32_t fieldCount, std::uint32_t queryInfoBytes,
                          std::uint32_t templateBytes, std::uint32_t queryInfoCount);

  // The work of a derived constructor: file name, schema and object-ID key.
  // The derived class then binds the fields.
  void ApplyDefinition(const AlertTableDefinition &definition, const char *fileName,
                       std::uint32_t queryInfoBytes, std::uint32_t templateBytes);
  // Binds the first `count` templates back to back over the record buffer;
  // false when they do not cover exactly the record.
  bool BindRecordFields(std::uint32_t count);
  void BindField(std::uint32_t index, void *storage);
  // Binds template `index`, the table's "Replication" field, to m_Replication.
  void BindReplication(std::uint32_t index);

  // DBCreate with the table's title and field descriptions given instead of
  // taken from the string table (null: from the string table).
  std::uint32_t CreateTable(const char *title, const char *const *descriptions);

  // Leaves the enumeration past its end, where a walk to the last record
  // would leave it, without walking there.
  void EndEnumeration();

  // The derived members' rule for change signalling.
  std::uint32_t SignalIfDone(std::uint32_t status);
  // Base update, then the signal; "unchanged" is success without a signal.
  std::uint32_t UpdateAndSignal(REC *record);

  const char *m_pszTableName;
  platform::QueryInfoEntry *m_pQueryInfo;
  const char *const *m_ppszFieldNames;
  std::uint32_t m_nTitleStringId;
  std::uint32_t m_nFirstFieldStringId;
  std::uint32_t m_nFieldCount;
  std::uint32_t m_nQueryInfoCount;
  std::uint32_t m_nEnumKey;
  KEPDB *m_hTable;
  platform::FieldTemplate *m_pFieldTemplates;
  const char *m_pszCallbackDll;
  const char *m_pszCallbackEntry;
  std::uint32_t m_nReserved1[2];
  const char *const *m_ppszQueryTypeNames;
  std::uint32_t m_nReserved2[4];
  REC *m_pRecordBuffer;
  const char *m_pszFileName;
  char m_szFilePath[260];
  std::uint32_t m_nIdKey;
  unsigned char m_Replication[12];
  std::int32_t m_nSecondKey;

 private:
  void ComposePath();
  void Release();
  std::uint32_t FindById(const _GUID *id);
  // A large record is read straight to the caller's record, and the record
  // buffer brought up to date only before its own next use; a small one goes
  // through the buffer and is copied out, which costs less than keeping it owed.
  static constexpr bool kReadsStraight = sizeof(REC) > 1024;
  platform::RecordCopy CopyTo(REC *record) { return {m_pRecordBuffer, sizeof(REC), record}; }
  void TakeRead(REC *record) {
    if constexpr (!kReadsStraight) std::memcpy(record, m_pRecordBuffer, sizeof(REC));
  }
  REC *SettledRecordBuffer();
};
